#include "app/TrovikMode/USBTrovikModeFinderUtils.hpp"

#include "IOU/IOU_Devices.hpp"
#include "platform/CFRunLoop.hpp"
#include "platform/Platform.hpp"

#include <memory>
#include <mutex>
#include <utility>

namespace {

constexpr std::size_t kLongestPath = 511;  ///< of a registry path, in bytes

/// What keeps a notification armed.
struct Observation {
    std::unique_ptr<platform::IONotificationPort> port;
    std::shared_ptr<platform::CFRunLoopSource> source;
    std::unique_ptr<platform::IOIterator> iterator;
};

/// Notifications stay armed until the process has ended. Nothing releases them at exit either: by then the thread that
/// they belong to may still be running, or be gone.
void keepForEver(Observation observation) {
    static std::mutex mutex;
    static auto* const kept = new std::vector<Observation>;
    const std::lock_guard lock(mutex);
    kept->push_back(std::move(observation));
}

}  // namespace

platform::MatchingDictionary USBTrovikModeFinderUtils::createTMDeviceMatcher() {
    return iou::DeviceMatching();
}

std::optional<std::vector<USBRegistryInfo>> USBTrovikModeFinderUtils::connectedPaths() {
    std::unique_ptr<platform::IOIterator> iterator;
    if (platform::kIOMasterPortDefault().IOServiceGetMatchingServices(createTMDeviceMatcher(), iterator) !=
        platform::kIOReturnSuccess)
        return std::nullopt;

    std::vector<USBRegistryInfo> devices;
    while (const auto entry = iterator->IOIteratorNext()) {
        USBRegistryInfo info;
        if (readEntry(*entry, info)) devices.push_back(std::move(info));
    }
    return devices;
}

bool USBTrovikModeFinderUtils::readEntry(platform::IOService& entry, USBRegistryInfo& info) {
    std::string path;
    if (entry.IORegistryEntryGetPath(platform::kIOServicePlane, path) != platform::kIOReturnSuccess) return false;
    if (path.size() > kLongestPath) return false;
    info.setIoPath(std::move(path));
    std::uint64_t entryId = 0;
    if (entry.IORegistryEntryGetRegistryEntryID(entryId) != platform::kIOReturnSuccess) return false;
    info.setIoId(entryId);
    return true;
}

bool USBTrovikModeFinderUtils::tmDeviceConnected() {
    return connectedPaths().has_value();
}

bool USBTrovikModeFinderUtils::observeTMDevicesForType(const char* type, platform::IOServiceMatchingCallback callback,
                                                       void* refCon) {
    auto& registry = platform::kIOMasterPortDefault();
    Observation observation;
    observation.port = registry.IONotificationPortCreate();
    observation.source = observation.port->IONotificationPortGetRunLoopSource();
    platform::CFRunLoopGetCurrent()->CFRunLoopAddSource(observation.source, platform::kCFRunLoopDefaultMode);
    const bool isArmed =
        registry.IOServiceAddMatchingNotification(*observation.port, type, createTMDeviceMatcher(), callback, refCon,
                                                  observation.iterator) == platform::kIOReturnSuccess;
    if (isArmed) {
        while (observation.iterator->IOIteratorNext()) {
            // Present already: taking the entry is what arms the notification; only connectedPaths() tells of it.
        }
    }
    keepForEver(std::move(observation));
    return isArmed;
}
