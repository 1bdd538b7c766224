// Reads the name and the clock of the first device.
#include "GLO/GLO_Exception.hpp"
#include "GLO/GLO_String.hpp"
#include "IOA/IOA_Channel.hpp"
#include "IOU/IOU_Devices.hpp"
#include "IOU/IOU_UsbLink.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "platform/linux/LinuxPlatform.hpp"

#include <cstdio>

int main() {
    const platform::LinuxPlatform platform;
    const auto devices = iou::AttachedDevices();
    if (devices.empty()) {
        std::puts("No device is attached");
        return 1;
    }
    try {
        thr::CancelRequestedFunctor_t cancel;
        iou::UsbLink_t link(cancel, devices.front().path);
        ioa::Channel_t channel(link);
        const std::string name = glo::string(channel.GetUnitName(), glo::gcUtf8Encoding);
        const ioa::TimeData_t time = channel.GetTimeData();
        std::printf("%s: %04d-%02d-%02d %02d:%02d:%02d\n", name.c_str(), time.year, time.month, time.day, time.hour,
                    time.minute, time.second);
        return 0;
    } catch (const glo::Timeout_t&) {
        std::puts("The device did not answer in time");
    } catch (const glo::Exception_t& error) {
        std::printf("The device failed: %s\n", error.NarrowMessage().c_str());
    } catch (int) {
        std::puts("The device could not be opened");
    }
    return 1;
}
