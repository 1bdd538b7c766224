#include "libs/IOU/IOU_UsbPacket.hpp"

#include "UTL/UTL_HexDump.hpp"
#include "libs/IOU/IOU_Trace.hpp"

namespace iou {
namespace {

constexpr std::size_t gcLayerOffset = 0;
constexpr std::size_t gcIdOffset = 4;
constexpr std::size_t gcSizeOffset = 8;

std::uint32_t ReadLittleEndian(std::span<const unsigned char> bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) value = value << 8 | bytes[i];
    return value;
}

void WriteLittleEndian(std::uint32_t value, std::span<unsigned char> bytes) {
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(value & 0xFF);
        value >>= 8;
    }
}

/// Says why the bytes are no packet, and shows them.
template <typename... Pieces_t>
std::nullopt_t Refuse(std::span<const unsigned char> bytes, const Pieces_t&... why) {
    Trace(why..., "Bad packet:\n", [bytes] { return utl::HexDump(bytes); });
    return std::nullopt;
}

}  // namespace

std::optional<std::uint32_t> UsbPacket_t::ControlValue(std::uint16_t wantedId) const {
    if (layer != Layer_t::UsbProtocol || id != wantedId || data.size() != sizeof(std::uint32_t)) return std::nullopt;
    return ReadLittleEndian(data);
}

std::optional<UsbPacket_t> MakeUsbPacket(std::span<const unsigned char> bytes) {
    if (bytes.size() < gcUsbPacketHeaderSize)
        return Refuse(bytes, "Failed to make packet!\n", "Buffer size: ", bytes.size(),
                      ", packet size: ", gcUsbPacketHeaderSize, "\n");

    const Layer_t layer{bytes[gcLayerOffset]};
    if (layer != Layer_t::UsbProtocol && layer != Layer_t::Application)
        return Refuse(bytes, "Packet discarded!\n", "Bad layer: ", layer, "\n");

    const std::uint32_t dataSize = ReadLittleEndian(bytes.subspan(gcSizeOffset, sizeof(std::uint32_t)));
    const auto data = bytes.subspan(gcUsbPacketHeaderSize);
    if (dataSize != data.size())
        return Refuse(bytes, "Packet discarded!\n", "Bad size - packet: ", dataSize, ", buffer: ", data.size(), "\n");

    const auto id = static_cast<std::uint16_t>(ReadLittleEndian(bytes.subspan(gcIdOffset, sizeof(std::uint16_t))));
    return UsbPacket_t{layer, id, data};
}

void WriteUsbPacket(Layer_t layer, std::uint16_t id, std::span<const unsigned char> data,
                    std::vector<unsigned char>& bytes) {
    bytes.assign(gcUsbPacketHeaderSize, 0);
    bytes[gcLayerOffset] = static_cast<unsigned char>(layer);
    WriteLittleEndian(id, std::span(bytes).subspan(gcIdOffset, sizeof(std::uint16_t)));
    WriteLittleEndian(static_cast<std::uint32_t>(data.size()),
                      std::span(bytes).subspan(gcSizeOffset, sizeof(std::uint32_t)));
    bytes.insert(bytes.end(), data.begin(), data.end());
}

}  // namespace iou
