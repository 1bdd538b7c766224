// Opens a link on the first attached device of a real kernel and sends frames whose USB packets end just before, on and
// just after a boundary of the bulk endpoint's packets. Each write must complete and the next one must still arrive.
#include "IOU/IOU_UsbLink.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "app/TrovikMode/USBTrovikModeFinderUtils.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/usb/UdevRegistry.hpp"

#include <cstdio>
#include <exception>
#include <vector>

int main() {
    platform::AsioRunLoops loops;
    platform::UdevRegistry registry(loops);
    const platform::PlatformScope scope({.runLoops = &loops, .masterPort = &registry});
    constexpr unsigned short kUnknownId = 4000;  // the device takes it and has no answer
    constexpr std::size_t kHeader = 12;
    try {
        const auto devices = USBTrovikModeFinderUtils::connectedPaths();
        if (!devices || devices->empty()) throw std::runtime_error("no device");
        thr::CancelRequestedFunctor_t cancel(nullptr);
        iou::UsbLink_t link(cancel, devices->front().ioPath(), {}, iol::gcDefaultTimeout);
        for (const std::size_t size : std::initializer_list<std::size_t>{511, 512, 513, 1024, 64}) {
            const std::vector<unsigned char> payload(size - kHeader, 0x5A);
            link.SendFrameWithTimeout(iol::Frame_t(kUnknownId, payload.data(), static_cast<unsigned>(payload.size())),
                                      iol::gcDefaultTimeout);
        }
        std::printf("unit %u, largest payload %u\n", link.UnitId(), link.MaxPacketSize());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "link_probe: %s\n", error.what());
    } catch (int) {
        std::fprintf(stderr, "link_probe: the device can't be opened\n");
    }
    return 1;
}
