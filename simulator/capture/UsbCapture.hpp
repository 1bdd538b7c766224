#pragma once

#include "simulator/engine/BusDevice.hpp"
#include "simulator/engine/Types.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace simulator {

/// A capture can't be read, written or played; what() is a sentence that says where in the file.
class CaptureError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// One packet of a usbmon capture: the beginning or the end of a USB request.
///
/// | Offset | Bytes | Field of the file, in the byte order of the machine that made it |
/// |--------|-------|-----------------------------------------------------------------|
/// | 0      | 8     | request                                                          |
/// | 8      | 1     | 'S' submitted, 'C' completed, 'E' could not be submitted         |
/// | 9      | 1     | transfer                                                         |
/// | 10     | 1     | endpoint, with the direction in bit 7                            |
/// | 11     | 1     | device                                                           |
/// | 12     | 2     | bus                                                              |
/// | 14     | 1     | 0 where the setup packet is there                                |
/// | 15     | 1     | 0 where data is there                                            |
/// | 16     | 12    | time                                                             |
/// | 28     | 4     | status: 0 or a negative errno                                    |
/// | 32     | 4     | bytes asked for, or done                                         |
/// | 36     | 4     | bytes of data that follow                                        |
/// | 40     | 8     | setup packet                                                     |
/// | 48     | 16    | of link type 220 alone: interval, frame, flags, descriptors      |
struct UsbEvent {
    enum class Transfer : std::uint8_t { Isochronous, Interrupt, Control, Bulk };

    std::size_t packet = 0;  ///< its number in the file, 1 for the first, as Wireshark counts
    Time time{};             ///< since the epoch
    std::uint64_t request = 0;
    char type = 'S';
    Transfer transfer = Transfer::Control;
    std::uint8_t endpoint = 0;
    std::uint8_t device = 0;
    std::uint16_t bus = 0;
    int status = 0;
    std::uint32_t length = 0;
    std::optional<BusDevice::Setup> setup;
    Bytes data;
    Bytes tail;  ///< what link type 220 has on top

    bool isIn() const { return (endpoint & 0x80) != 0; }
};

/// How messages name a packet of a capture.
std::string packetName(std::size_t number);

/// A capture of one or more buses, as Wireshark, tshark and dumpcap write it: pcapng or pcap, link type 189 or 220, in
/// either byte order. Isochronous transfers are left out.
struct UsbCapture {
    int linkType = 0;
    std::vector<UsbEvent> events;

    /// @throws CaptureError  the file is none, is damaged or ends early, or a packet was cut when it was captured
    static UsbCapture read(const std::filesystem::path& file);

    /// Writes a pcap file; what stands there is replaced, once all is written.
    /// @throws CaptureError  it can't be written
    void write(const std::filesystem::path& file) const;
};

}  // namespace simulator
