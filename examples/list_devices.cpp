// Lists the attached devices and says what they are.
#include "GLO/GLO_Exception.hpp"
#include "GLO/GLO_String.hpp"
#include "IOA/IOA_Channel.hpp"
#include "IOU/IOU_Devices.hpp"
#include "IOU/IOU_UsbLink.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "platform/linux/LinuxPlatform.hpp"

#include <cstdio>
#include <string>

namespace {

void list(const iou::AttachedDevice_t& device) {
    thr::CancelRequestedFunctor_t cancel;
    iou::UsbLink_t link(cancel, device.path);
    const ioa::Channel_t channel(link);
    const ioa::ProductData_t& product = channel.Product();
    std::printf("%s, version %.2f, unit %u\n", glo::string(product.DisplayName(), glo::gcUtf8Encoding).c_str(),
                product.softwareVersion / 100.0, link.UnitId());
}

}  // namespace

int main() {
    platform::LinuxPlatformOptions options;
    options.log = [](const std::string& line) { std::fputs(line.c_str(), stderr); };  // why a device can't be opened
    const platform::LinuxPlatform platform(options);
    int status = 0;
    for (const auto& device : iou::AttachedDevices()) {
        try {
            list(device);
        } catch (const glo::Exception_t& error) {
            std::fprintf(stderr, "%s: %s, line %d\n", device.path.c_str(), error.File().c_str(), error.Line());
            status = 1;
        } catch (int) {  // could not be opened
            status = 1;
        }
    }
    return status;
}
