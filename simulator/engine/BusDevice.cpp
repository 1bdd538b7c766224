#include "simulator/engine/BusDevice.hpp"

namespace simulator {

std::optional<Bytes> BusDevice::controlAnswer(const Setup& setup) const {
    constexpr unsigned char kFromDevice = 0x80;  // standard request, to the device
    constexpr unsigned char kGetDescriptor = 6;
    constexpr std::ptrdiff_t kDeviceDescriptorSize = 18;
    const Bytes all = descriptors();
    if (setup[0] != kFromDevice || setup[1] != kGetDescriptor || setup[2] != 0) return std::nullopt;
    if (setup[3] == 1) return Bytes(all.begin(), all.begin() + kDeviceDescriptorSize);
    if (setup[3] == 2) return Bytes(all.begin() + kDeviceDescriptorSize, all.end());
    return std::nullopt;
}

}  // namespace simulator
