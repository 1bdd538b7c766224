#include "libs/IOU/IOU_UsbPacket.hpp"

#include "IOU/IOU_DebugServer.hpp"
#include "UTL/UTL_HexDump.hpp"

#include <algorithm>

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

void TraceBadPacket(std::span<const unsigned char> bytes) {
    if (!DebugServer().IsEnabled()) return;  // the dump is five times the packet's size
    DebugServer().PrintStr("Bad packet:\n");
    DebugServer().PrintStr(utl::HexDump(bytes).c_str());
}

}  // namespace

std::optional<std::uint32_t> UsbPacket_t::ControlValue(std::uint16_t wantedId) const {
    if (layer != Layer_t::UsbProtocol || id != wantedId || data.size() != sizeof(std::uint32_t)) return std::nullopt;
    return ReadLittleEndian(data);
}

std::optional<UsbPacket_t> MakeUsbPacket(const std::vector<unsigned char>& bytes) {
    const std::span<const unsigned char> view(bytes);
    if (view.size() < gcUsbPacketHeaderSize) {
        win::DebugServer_t& trace = DebugServer();
        trace.PrintStr("Failed to make packet!\n");
        trace.PrintStr("Buffer size: ");
        trace.PrintData(static_cast<unsigned long>(view.size()));
        trace.PrintStr(", packet size: ");
        trace.PrintData(static_cast<unsigned long>(gcUsbPacketHeaderSize));
        trace.PrintStr("\n");
        TraceBadPacket(view);
        return std::nullopt;
    }

    const Layer_t layer{view[gcLayerOffset]};
    if (layer != Layer_t::UsbProtocol && layer != Layer_t::Application) {
        win::DebugServer_t& trace = DebugServer();
        trace.PrintStr("Packet discarded!\n");
        trace.PrintStr("Bad layer: ");
        trace.PrintData(layer);
        trace.PrintStr("\n");
        TraceBadPacket(view);
        return std::nullopt;
    }

    const std::uint32_t dataSize = ReadLittleEndian(view.subspan(gcSizeOffset, sizeof(std::uint32_t)));
    const auto data = view.subspan(gcUsbPacketHeaderSize);
    if (dataSize != data.size()) {
        win::DebugServer_t& trace = DebugServer();
        trace.PrintStr("Packet discarded!\n");
        trace.PrintStr("Bad size - packet: ");
        trace.PrintData(static_cast<unsigned int>(dataSize));
        trace.PrintStr(", buffer: ");
        trace.PrintData(static_cast<unsigned long>(data.size()));
        trace.PrintStr("\n");
        TraceBadPacket(view);
        return std::nullopt;
    }

    const auto id = static_cast<std::uint16_t>(ReadLittleEndian(view.subspan(gcIdOffset, sizeof(std::uint16_t))));
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
