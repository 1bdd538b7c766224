// Waits for devices in an event loop of its own, here a plain poll(). A window toolkit watches the same descriptor:
// with Qt, a QSocketNotifier calls platform::serveRunLoop(). Ends after the number of devices that it is given, or else
// two.
#include "GLO/GLO_String.hpp"
#include "IOA/IOA_Channel.hpp"
#include "IOU/IOU_Devices.hpp"
#include "IOU/IOU_UsbLink.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "platform/linux/LinuxPlatform.hpp"

#include <cstdio>
#include <cstdlib>
#include <poll.h>

int main(int argc, char** argv) {
    const platform::LinuxPlatform platform;
    int wanted = argc > 1 ? std::atoi(argv[1]) : 2;
    const iou::AttachNotice_t notice([&wanted](const iou::AttachedDevice_t& device) {
        thr::CancelRequestedFunctor_t cancel;
        iou::UsbLink_t link(cancel, device.path);  // blocks this loop; a program with a window does this on a worker
        const ioa::Channel_t channel(link);
        std::printf("attached: %s\n", glo::string(channel.Product().DisplayName(), glo::gcUtf8Encoding).c_str());
        --wanted;
    });
    pollfd entry{platform::runLoopDescriptor(), POLLIN, 0};
    while (wanted > 0 && ::poll(&entry, 1, -1) >= 0) platform::serveRunLoop();
}
