#include "libs/IOU/mac/IOU_PipeFinder.hpp"

#include "libs/IOU/mac/IOU_PipeEvents.hpp"
#include "platform/IOUSB.hpp"

namespace iou {

FoundPipe_t FindPipe(PipeEventsIntf_t& events, platform::IOUSBInterfaceInterface& interface, WantedPipe_t wanted,
                     const char* file, const PipeFailureLines_t& lines) {
    std::uint8_t count = 0;
    events.Require(interface.GetNumEndpoints(count), file, lines.endpointCount);
    for (unsigned pipeRef = 1; pipeRef <= count; ++pipeRef) {
        platform::PipeProperties properties;
        const auto reference = static_cast<std::uint8_t>(pipeRef);
        events.Require(interface.GetPipeProperties(reference, properties), file, lines.properties);
        if (properties.transferType == wanted.transferType && properties.direction == wanted.direction)
            return {reference, properties.maxPacketSize};
    }
    events.Refuse(file, lines.noPipe);
}

}  // namespace iou
