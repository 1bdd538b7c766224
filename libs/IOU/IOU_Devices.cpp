#include "IOU/IOU_Devices.hpp"

#include "platform/Platform.hpp"
#include "platform/VendorId.hpp"

#include <algorithm>
#include <optional>
#include <utility>

namespace iou {
namespace {

constexpr char gcFile[] = "libs/IOU/IOU_Devices";

std::optional<AttachedDevice_t> Read(platform::IOService& entry) {
    AttachedDevice_t device;
    if (entry.IORegistryEntryGetPath(platform::kIOServicePlane, device.path) != platform::kIOReturnSuccess) return {};
    if (entry.IORegistryEntryGetRegistryEntryID(device.id) != platform::kIOReturnSuccess) return {};
    return device;
}

std::vector<AttachedDevice_t> ReadAll(platform::IOIterator& iterator) {
    std::vector<AttachedDevice_t> devices;
    while (const auto entry = iterator.IOIteratorNext()) {
        if (auto device = Read(*entry)) devices.push_back(*std::move(device));
    }
    return devices;
}

}  // namespace

platform::MatchingDictionary DeviceMatching() {
    auto matching = platform::IOServiceMatching(platform::kIOUSBDeviceClassName);
    matching.properties = {{"idVendor", platform::kTrovikVendorId},
                           {"idProduct", platform::kTrovikProductId},
                           {"bcdDevice", platform::kTrovikReleaseNumber}};
    return matching;
}

std::vector<AttachedDevice_t> AttachedDevices() {
    std::unique_ptr<platform::IOIterator> iterator;
    if (platform::kIOMasterPortDefault().IOServiceGetMatchingServices(DeviceMatching(), iterator) !=
        platform::kIOReturnSuccess)
        throw Exception_t(gcFile, __LINE__, L"The device registry can't be asked");
    return ReadAll(*iterator);
}

struct AttachNotice_t::State {
    static void Matched(void* refCon, platform::IOIterator& iterator) {
        static_cast<State*>(refCon)->Tell(ReadAll(iterator));
    }
    void Tell(const std::vector<AttachedDevice_t>& devices) const { std::ranges::for_each(devices, told); }

    std::function<void(const AttachedDevice_t&)> told;
    std::shared_ptr<platform::CFRunLoop> loop;
    std::unique_ptr<platform::IONotificationPort> port;
    std::shared_ptr<platform::CFRunLoopSource> source;
    std::unique_ptr<platform::IOIterator> iterator;
};

AttachNotice_t::AttachNotice_t(std::function<void(const AttachedDevice_t&)> told) : mState(std::make_shared<State>()) {
    auto& registry = platform::kIOMasterPortDefault();
    mState->told = std::move(told);
    mState->loop = platform::CFRunLoopGetCurrent();
    mState->port = registry.IONotificationPortCreate();
    mState->source = mState->port->IONotificationPortGetRunLoopSource();
    mState->loop->CFRunLoopAddSource(mState->source, platform::kCFRunLoopDefaultMode);
    if (registry.IOServiceAddMatchingNotification(*mState->port, platform::kIOServiceMatched, DeviceMatching(),
                                                  &State::Matched, mState.get(),
                                                  mState->iterator) != platform::kIOReturnSuccess) {
        mState->loop->CFRunLoopRemoveSource(mState->source);
        throw Exception_t(gcFile, __LINE__, L"The device registry tells of no attach");
    }
    // Taking the entries is what arms the notification. They are told of by the loop, before what comes later.
    mState->loop->CFRunLoopPerformBlock(platform::kCFRunLoopDefaultMode,
                                        [weak = std::weak_ptr(mState), present = ReadAll(*mState->iterator)] {
                                            if (const auto state = weak.lock()) state->Tell(present);
                                        });
}

AttachNotice_t::~AttachNotice_t() {
    mState->loop->CFRunLoopRemoveSource(mState->source);
}

}  // namespace iou
