// Talks to all attached devices at once, each on a thread of its own: a link belongs to the thread that made it.
#include "GLO/GLO_String.hpp"
#include "IOA/IOA_Channel.hpp"
#include "IOU/IOU_Devices.hpp"
#include "IOU/IOU_UsbLink.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "platform/linux/LinuxPlatform.hpp"

#include <cstdio>
#include <future>
#include <latch>
#include <string>
#include <vector>

int main() {
    const platform::LinuxPlatform platform;
    const auto devices = iou::AttachedDevices();
    std::latch allOpen(static_cast<std::ptrdiff_t>(devices.size()));
    std::vector<std::future<std::string>> names;
    for (const auto& device : devices) {
        names.push_back(std::async(std::launch::async, [&allOpen, device] {
            thr::CancelRequestedFunctor_t cancel;
            iou::UsbLink_t link(cancel, device.path);
            allOpen.arrive_and_wait();  // to show that all links are there at the same time
            const ioa::Channel_t channel(link);
            return glo::string(channel.Product().DisplayName(), glo::gcUtf8Encoding);
        }));
    }
    for (auto& name : names) std::printf("%s on a thread of its own\n", name.get().c_str());
}
