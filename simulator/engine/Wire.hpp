#pragma once

#include "simulator/engine/Types.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace simulator {

inline constexpr std::uint8_t kUsbLayer = 0;
inline constexpr std::uint8_t kApplicationLayer = 20;
inline constexpr std::size_t kHeaderSize = 12;

/// Packet ids as the device's firmware knows them. The names are the device's own; the host has its own table, so that
/// a mistake in one of them shows as a disagreement.
enum PacketId : std::uint16_t {
    kDataAvailable = 2,   // USB layer
    kStartSession = 5,    // USB layer
    kSessionStarted = 6,  // USB layer
    kAskLargest = 16,     // USB layer
    kLargest = 17,        // USB layer
    kCommand = 10,
    kTransferComplete = 12,
    kTime = 14,
    kDataRequest = 28,
    kUnitId = 38,
    kTimeFollows = 47,
    kHoldInBootLoader = 113,
    kProtocolList = 253,
    kExtendedProductData = 248,
    kProductRequest = 254,
    kProductData = 255,
    kUnitName = 525,
    kUnitNameRequest = 526,
    kRegionSizeRequest = 980,
    kRegionSize = 981,
    kResumeBoot = 1500,
    kDisconnectTimeout = 1523,
};

/// What packet 10 may ask for.
enum CommandNumber : std::uint16_t {
    kGetTime = 5,
    kGetUnitId = 14,
    kClearStore = 0x0027,
    kReboot = 0x00AE,
    kKeepAlive = 684,
    kGetDisconnectTimeout = 685,
};

/// One packet of the device's USB protocol, header taken apart. On the wire, little-endian:
///
/// | Offset | Bytes | Field                                     |
/// |--------|-------|-------------------------------------------|
/// | 0      | 1     | layer: 0 USB protocol, 20 application     |
/// | 1      | 3     | 0                                         |
/// | 4      | 2     | packet id                                 |
/// | 6      | 2     | 0                                         |
/// | 8      | 4     | number of data bytes that follow          |
/// | 12     | n     | data                                      |
struct UsbPacket {
    std::uint8_t layer = kApplicationLayer;
    std::uint16_t id = 0;
    Bytes data;

    bool operator==(const UsbPacket&) const = default;
};

Bytes encodePacket(const UsbPacket& packet);

/// Takes a whole packet apart.
/// @param reason  what is wrong with the bytes, when nothing is returned
std::optional<UsbPacket> decodePacket(std::span<const unsigned char> bytes, std::string& reason);

/// Builds a packet's data field by field, little-endian.
class Writer {
  public:
    Writer& u8(std::uint8_t value) { return number(value, 1); }
    Writer& u16(std::uint16_t value) { return number(value, 2); }
    Writer& u32(std::uint32_t value) { return number(value, 4); }
    Writer& u64(std::uint64_t value) { return number(value, 8); }
    Writer& text(const std::string& value);  ///< its bytes and one 0

    Bytes take() { return std::move(mBytes); }

  private:
    Writer& number(std::uint64_t value, int width);

    Bytes mBytes;
};

/// The unsigned 16-bit number at an offset; nothing when the data ends before.
std::optional<std::uint16_t> readU16(std::span<const unsigned char> data, std::size_t offset = 0);

/// The same of 32 bits.
std::optional<std::uint32_t> readU32(std::span<const unsigned char> data, std::size_t offset = 0);

/// "AE 00 01", for records and test failures.
std::string hexText(std::span<const unsigned char> bytes);

}  // namespace simulator
