// Sends a command as bare bytes and awaits its reply: 526 asks for the unit's name, 525 brings it.
#include "IOA/IOA_Channel.hpp"
#include "IOA/IOA_RawPackets.hpp"
#include "IOU/IOU_Devices.hpp"
#include "IOU/IOU_UsbLink.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "platform/linux/LinuxPlatform.hpp"

#include <cstdio>

int main() {
    const platform::LinuxPlatform platform;
    thr::CancelRequestedFunctor_t cancel;
    for (const auto& device : iou::AttachedDevices()) {
        iou::UsbLink_t link(cancel, device.path);
        ioa::Channel_t channel(link);
        channel.SendIopCommand(526, {});
        ioa::RawPacket_t reply(525);
        channel.GetPacket(reply);
        std::printf("%d:", reply.Id());
        for (const unsigned char byte : reply.data) std::printf(" %02x", byte);
        std::puts("");
    }
}
