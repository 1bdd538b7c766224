// What a device says of itself: attributes and descriptors with anything in them, found and opened through the real
// libudev and libusb on an emulated bus. An input of zeros is a device that is in order.

#include "fuzz/Harness.hpp"
#include "fuzz/Input.hpp"
#include "platform/Platform.hpp"
#include "platform/VendorId.hpp"
#include "platform/common/MachineClock.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/usb/UdevRegistry.hpp"
#include "simulator/umock/UmockUsb.hpp"

#include <cstdio>
#include <fstream>

namespace {

using fuzz::require;
using namespace platform;

struct Bus {
    Bus() {
        usb.addDevice(profile);
        usb.plug();
        path = usb.registryPath();
        std::ifstream(path + "/devnum") >> deviceNumber;
    }
    simulator::Profile profile;
    simulator::UmockUsb usb;
    PlatformScope scope{{.log = [](const std::string&) {}}};
    std::string path;
    std::string deviceNumber;
};

Bus& bus() {
    static Bus one;
    return one;
}

void writeAttributes(fuzz::Input& input, std::uint8_t wrong) {
    char vendor[8];
    std::snprintf(vendor, sizeof vendor, "%04x", static_cast<unsigned>(kTrovikVendorId));
    std::pair<const char*, std::string> attributes[] = {
        {"idVendor", vendor},           {"idProduct", "0003"}, {"bcdDevice", "0001"},
        {"devnum", bus().deviceNumber}, {"busnum", "1"},
    };
    for (auto& [name, text] : attributes) {
        if (wrong & 1) {
            const auto bytes = input.bytes(input.byte() % 32);
            text.assign(bytes.begin(), bytes.end());
        }
        wrong = static_cast<std::uint8_t>(wrong >> 1);
        std::ofstream(bus().path + "/" + name, std::ios::trunc) << text << '\n';
    }
}

simulator::Bytes descriptors(fuzz::Input& input, bool areChanged) {
    auto bytes = simulator::usbDescriptors(bus().profile);
    if (!areChanged) return bytes;
    for (int changes = input.byte() % 8; changes > 0; --changes) bytes[input.byte() % bytes.size()] = input.byte();
    const auto more = input.bytes(input.byte());
    bytes.insert(bytes.begin() + input.byte() % static_cast<int>(bytes.size() + 1), more.begin(), more.end());
    bytes.resize(std::min<std::size_t>(bytes.size(), 255));  // what one read takes
    return bytes;
}

/// Goes the way that the library goes, as far as it leads.
/// @return the number of pipes that were found
unsigned open(IOService& service) {
    std::unique_ptr<IOCFPlugInInterface> plugIn;
    std::unique_ptr<IOUSBDeviceInterface> device;
    if (service.IOCreatePlugInInterfaceForService(IOUserClientType::kIOUSBDeviceUserClientTypeID, plugIn) ||
        plugIn->QueryInterface(device) || device->USBDeviceOpen())
        return 0;
    IOUSBConfigurationDescriptor configuration;
    for (const auto index : {std::uint8_t{3}, std::uint8_t{0}})
        if (device->GetConfigurationDescriptorPtr(index, configuration) == kIOReturnSuccess)
            device->SetConfiguration(configuration.bConfigurationValue);
    std::uint16_t number = 0;
    device->GetDeviceVendor(number);
    device->GetDeviceProduct(number);
    device->GetDeviceReleaseNumber(number);

    unsigned pipes = 0;
    std::unique_ptr<IOIterator> interfaces;
    if (device->CreateInterfaceIterator({}, interfaces)) return 0;
    while (const auto found = interfaces->IOIteratorNext()) {
        std::unique_ptr<IOUSBInterfaceInterface> interface;
        std::uint8_t count = 0;
        if (found->IOCreatePlugInInterfaceForService(IOUserClientType::kIOUSBInterfaceUserClientTypeID, plugIn) ||
            plugIn->QueryInterface(interface) || interface->USBInterfaceOpen() || interface->GetNumEndpoints(count))
            continue;
        for (unsigned pipe = 0; pipe <= count + 1U; ++pipe) {
            PipeProperties properties;
            const bool isThere = interface->GetPipeProperties(static_cast<std::uint8_t>(pipe), properties) == 0;
            require(isThere == (pipe >= 1 && pipe <= count), "a pipe too many or too few");
            require(properties.number <= 15 && properties.maxPacketSize <= 0x7FF, "no pipe can have that");
            interface->AbortPipe(static_cast<std::uint8_t>(pipe));
        }
        pipes += count;
    }
    return pipes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::uint8_t wrong = input.byte();
    writeAttributes(input, wrong & 31);
    bus().usb.setDescriptors(descriptors(input, wrong & 32));
    bus().usb.setDriver(wrong & 64 ? "cdc_acm" : wrong & 128 ? "usbfs" : "");

    MachineClock clock;
    fuzz::Limits(clock).hold(10, std::size_t{1} << 20, "Discovery and opening", [&] {
        AsioRunLoops loops;
        UdevRegistry registry(loops);
        auto matching = IOServiceMatching(kIOUSBDeviceClassName);
        matching.properties = {{"idVendor", kTrovikVendorId}, {"idProduct", 3}, {"bcdDevice", 1}};
        std::unique_ptr<IOIterator> iterator;
        require(registry.IOServiceGetMatchingServices(matching, iterator) == kIOReturnSuccess, "no list");
        unsigned found = 0;
        for (std::string path; const auto entry = iterator->IOIteratorNext(); ++found)
            require(entry->IORegistryEntryGetPath(kIOServicePlane, path) == kIOReturnSuccess && path == bus().path,
                    "another device");
        require(found == 1 || (found == 0 && wrong & 31), "a device that is in order is not found, or twice");
        // What is found may have changed by the time it is opened: this one is opened in any case.
        const auto service = registry.IORegistryEntryFromPath(bus().path);
        const unsigned pipes = service ? open(*service) : 0;
        require(pipes == 3 || wrong & 0xB8, "a device that is in order can't be opened");
    });
    return 0;
}
