#include "simulator/engine/Wire.hpp"

#include <algorithm>

namespace simulator {
namespace {

std::uint32_t number(std::span<const unsigned char> bytes, std::size_t offset, std::size_t width) {
    std::uint32_t value = 0;
    for (std::size_t i = width; i-- > 0;) value = value << 8 | bytes[offset + i];
    return value;
}

}  // namespace

Bytes encodePacket(const UsbPacket& packet) {
    Writer header;
    header.u8(packet.layer).u8(0).u16(0).u16(packet.id).u16(0).u32(static_cast<std::uint32_t>(packet.data.size()));
    Bytes bytes = header.take();
    bytes.insert(bytes.end(), packet.data.begin(), packet.data.end());
    return bytes;
}

std::optional<UsbPacket> decodePacket(std::span<const unsigned char> bytes, std::string& reason) {
    if (bytes.size() < kHeaderSize) {
        reason = "shorter than a header: " + std::to_string(bytes.size()) + " bytes";
        return std::nullopt;
    }
    if (bytes[0] != kUsbLayer && bytes[0] != kApplicationLayer) {
        reason = "unknown layer " + std::to_string(bytes[0]);
        return std::nullopt;
    }
    if (number(bytes, 1, 3) != 0 || number(bytes, 6, 2) != 0) {
        reason = "reserved bytes are not 0";
        return std::nullopt;
    }
    const std::uint32_t size = number(bytes, 8, 4);
    if (size != bytes.size() - kHeaderSize) {
        reason = "size field says " + std::to_string(size) + ", data has " + std::to_string(bytes.size() - kHeaderSize);
        return std::nullopt;
    }
    return UsbPacket{bytes[0], static_cast<std::uint16_t>(number(bytes, 4, 2)),
                     Bytes(bytes.begin() + kHeaderSize, bytes.end())};
}

Writer& Writer::number(std::uint64_t value, int width) {
    for (int i = 0; i < width; ++i) mBytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
    return *this;
}

Writer& Writer::text(const std::string& value) {
    mBytes.insert(mBytes.end(), value.begin(), value.end());
    return u8(0);
}

std::optional<std::uint16_t> readU16(std::span<const unsigned char> data, std::size_t offset) {
    if (data.size() < 2 || offset > data.size() - 2) return std::nullopt;
    return static_cast<std::uint16_t>(number(data, offset, 2));
}

std::optional<std::uint32_t> readU32(std::span<const unsigned char> data, std::size_t offset) {
    if (data.size() < 4 || offset > data.size() - 4) return std::nullopt;
    return number(data, offset, 4);
}

std::string hexText(std::span<const unsigned char> bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const unsigned char byte : bytes) {
        if (!text.empty()) text += ' ';
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

}  // namespace simulator
