#include "simulator/engine/BusDevice.hpp"

namespace simulator {

std::optional<Bytes> BusDevice::controlAnswer(const Setup& setup) const {
    const Bytes all = descriptors();
    if (setup[0] != kFromDevice || setup[1] != kGetDescriptor || setup[2] != 0) return std::nullopt;
    if (setup[3] == kDeviceDescriptor) return Bytes(all.begin(), all.begin() + kDeviceDescriptorSize);
    if (setup[3] == kConfigurationDescriptor) return Bytes(all.begin() + kDeviceDescriptorSize, all.end());
    return std::nullopt;
}

}  // namespace simulator
