#include "libs/IOU/mac/IOU_PipeFinder.hpp"

#include "libs/IOU/mac/IOU_Session.hpp"
#include "platform/IOUSB.hpp"

namespace iou {

FoundPipe_t FindPipe(Session_t& session, platform::IOUSBInterfaceInterface& interface, WantedPipe_t wanted,
                     const char* file, const PipeFailureLines_t& lines) {
    const auto require = [&](platform::IOReturn result, std::uint16_t line) {
        if (result == platform::kIOReturnSuccess) return;
        session.ReportErrorWithCode(result, file, line);
        throw gcDeviceUnusable;
    };

    std::uint8_t count = 0;
    require(interface.GetNumEndpoints(count), lines.endpointCount);
    for (unsigned pipeRef = 1; pipeRef <= count; ++pipeRef) {
        platform::PipeProperties properties;
        const auto reference = static_cast<std::uint8_t>(pipeRef);
        require(interface.GetPipeProperties(reference, properties), lines.properties);
        if (properties.transferType == wanted.transferType && properties.direction == wanted.direction)
            return {reference, properties.maxPacketSize};
    }
    session.ReportError(file, lines.noPipe);
    throw gcDeviceUnusable;
}

}  // namespace iou
