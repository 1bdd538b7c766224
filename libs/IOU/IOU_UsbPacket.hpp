#pragma once

#include "IOU/IOU_Layer.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace iou {

/// Packet ids of the USB protocol layer.
inline constexpr std::uint16_t gcPacketIdDataAvailable = 2;   ///< from the device, interrupt pipe: read the bulk pipe
inline constexpr std::uint16_t gcPacketIdStartSession = 5;    ///< to the device
inline constexpr std::uint16_t gcPacketIdSessionStarted = 6;  ///< from the device: the unit id, 32 bits
inline constexpr std::uint16_t gcPacketIdAskMaxPacketSize = 16;  ///< to the device
inline constexpr std::uint16_t gcPacketIdMaxPacketSize = 17;     ///< from the device: bytes, header included, 32 bits

inline constexpr std::size_t gcUsbPacketHeaderSize = 12;

/// A view of one USB packet. It borrows the bytes it was made from.
///
///     offset  width  field (little-endian)
///     0       1      layer
///     1       3      reserved, 0
///     4       2      packet id
///     6       2      reserved, 0
///     8       4      data size
///     12      …      data
struct UsbPacket_t {
    Layer_t layer = Layer_t::UsbProtocol;
    std::uint16_t id = 0;
    std::span<const unsigned char> data;

    /// The 32-bit number that is this packet's whole data, if it is that control packet.
    [[nodiscard]] std::optional<std::uint32_t> ControlValue(std::uint16_t wantedId) const;
};

/// Checks received bytes: a whole header, a known layer, and as much data as the header says. Anything else is traced
/// with a dump and gives nothing. Never throws for what is in the bytes.
[[nodiscard]] std::optional<UsbPacket_t> MakeUsbPacket(std::span<const unsigned char> bytes);

/// Replaces the contents of `bytes` by a packet to send; its storage is kept.
/// @param data  at most 4294967295 bytes
void WriteUsbPacket(Layer_t layer, std::uint16_t id, std::span<const unsigned char> data,
                    std::vector<unsigned char>& bytes);

}  // namespace iou
