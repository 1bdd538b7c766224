#pragma once

#include <cstdint>

namespace platform {
class IOUSBInterfaceInterface;
}

namespace iou {

class PipeEventsIntf_t;

struct WantedPipe_t {
    std::uint8_t transferType;
    std::uint8_t direction;
};

/// What each way to fail reports as its line.
struct PipeFailureLines_t {
    std::uint16_t endpointCount;
    std::uint16_t properties;
    std::uint16_t noPipe;
};

struct FoundPipe_t {
    std::uint8_t pipeRef;         ///< 1-based
    std::uint16_t maxPacketSize;  ///< bytes
};

/// The interface's first pipe of the wanted type and direction.
/// @param file  the source file that a failure is reported for
/// @throws int  gcDeviceUnusable, after reporting
[[nodiscard]] FoundPipe_t FindPipe(PipeEventsIntf_t& events, platform::IOUSBInterfaceInterface& interface,
                                   WantedPipe_t wanted, const char* file, const PipeFailureLines_t& lines);

}  // namespace iou
