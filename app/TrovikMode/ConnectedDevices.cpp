#include "app/TrovikMode/ConnectedDevices.hpp"

#include "GLO/GLO_String.hpp"
#include "IOA/IOA_ProductData.hpp"
#include "app/Support/ErrorCatalogue.hpp"
#include "app/TrovikMode/USBRegistryInfo.hpp"
#include "app/TrovikMode/USBTrovikModeFinderUtils.hpp"
#include "app/TrovikMode/UsbTrovikModeIoLink.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "platform/Dispatch.hpp"
#include "platform/Platform.hpp"
#include "platform/common/Boundary.hpp"
#include "platform/common/OneLine.hpp"

#include <algorithm>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace {

constexpr char kFile[] = "app/TrovikMode/ConnectedDevices";

/// One attach of a device: the path is the port's, the id the attach's.
struct Attach {
    std::uint64_t id;
    ConnectedDevice device;
};

}  // namespace

/// What is known of the devices, from two sides: what is there, and what commands have identified.
class ConnectedDevices::Knowledge : public std::enable_shared_from_this<Knowledge> {
  public:
    explicit Knowledge(std::function<void(const std::vector<ConnectedDevice>&)> observer)
        : mObserver(std::move(observer)) {}

    /// Any thread.
    void setPresent(std::vector<Attach> present) {
        bool haveBecomeSeveral = present.size() > 1;
        {
            const std::lock_guard lock(mMutex);
            haveBecomeSeveral = haveBecomeSeveral && !(mPresent && mPresent->size() > 1);
            // A name is that of one attach: the next device on the port may be another one.
            for (const Attach& before : mPresent.value_or(std::vector<Attach>())) {
                if (std::ranges::find(present, before.id, &Attach::id) == present.end())
                    mIdentified.erase(before.device.path);
            }
            mPresent = std::move(present);
        }
        if (haveBecomeSeveral) DDLogWarn("%s", ErrorCatalogue::logLine(Cause::SeveralDevices).c_str());
        tellSoon();
    }

    /// Any thread.
    void setIdentified(const std::string& path, std::string_view name) {
        if (name.empty()) return;
        {
            const std::lock_guard lock(mMutex);
            mIdentified[path] = platform::oneLine(name);
        }
        tellSoon();
    }

  private:
    void tellSoon() {
        platform::dispatch_get_main_queue().dispatch_async([weak = weak_from_this()] {
            if (const auto self = weak.lock()) self->tell();
        });
    }

    /// Main thread. Several changes may be seen at once, and the later blocks then find nothing new.
    void tell() {
        std::vector<ConnectedDevice> devices;
        {
            const std::lock_guard lock(mMutex);
            if (!mPresent) return;
            for (const auto& [id, device] : *mPresent) {
                devices.push_back(device);
                const auto identified = mIdentified.find(device.path);
                if (identified != mIdentified.end()) devices.back().name = identified->second;
            }
        }
        if (mTold != devices) mObserver(*(mTold = std::move(devices)));
    }

    const std::function<void(const std::vector<ConnectedDevice>&)> mObserver;
    std::optional<std::vector<ConnectedDevice>> mTold;  // main thread

    std::mutex mMutex;                               // the two below
    std::optional<std::vector<Attach>> mPresent;     // nothing before the first look
    std::map<std::string, std::string> mIdentified;  // names, by path
};

ConnectedDevices::ConnectedDevices(std::function<void(const std::vector<ConnectedDevice>&)> observer)
    : mKnowledge(std::make_shared<Knowledge>(std::move(observer))) {
    UsbTrovikModeIoLink::setIdentificationObserver(
        [weak = std::weak_ptr(mKnowledge)](const auto& path, const auto& product) {
            if (const auto knowledge = weak.lock())
                knowledge->setIdentified(path, glo::string(product.DisplayName(), glo::gcUtf8Encoding));
        });
}

ConnectedDevices::~ConnectedDevices() {
    UsbTrovikModeIoLink::setIdentificationObserver({});
    if (!mThread.joinable()) return;
    if (const auto loop = mLoop.get())
        loop->CFRunLoopPerformBlock(platform::kCFRunLoopDefaultMode, [loop] { loop->CFRunLoopStop(); });
    mThread.join();
}

void ConnectedDevices::start() {
    std::promise<std::shared_ptr<platform::CFRunLoop>> promise;
    mLoop = promise.get_future();
    try {
        mThread = std::thread([this, promise = std::move(promise)]() mutable {
            std::shared_ptr<platform::CFRunLoop> loop;
            platform::runGuarded([&] { loop = platform::CFRunLoopGetCurrent(); }, kFile, __LINE__);
            promise.set_value(loop);
            const auto body = [&] {
                watch();
                loop->CFRunLoopRun();
            };
            if (loop) platform::runGuarded(body, kFile, __LINE__);
            mPort.reset();  // it is this thread's
        });
    } catch (const std::system_error&) {
        // As the contract says.
    }
}

void ConnectedDevices::watch() {
    platform::IORegistry& registry = platform::kIOMasterPortDefault();
    mPort = registry.IONotificationPortCreate();
    platform::CFRunLoopGetCurrent()->CFRunLoopAddSource(mPort->IONotificationPortGetRunLoopSource(),
                                                        platform::kCFRunLoopDefaultMode);
    const std::pair<const char*, platform::IOServiceMatchingCallback> notifications[] = {
        {platform::kIOServiceMatched, arrived}, {platform::kIOServiceTerminate, departed}};
    for (const auto& [type, callback] : notifications) {
        std::unique_ptr<platform::IOIterator> iterator;
        if (registry.IOServiceAddMatchingNotification(*mPort, type, USBTrovikModeFinderUtils::createTMDeviceMatcher(),
                                                      callback, this, iterator) != platform::kIOReturnSuccess)
            return mPort.reset();  // half of it would tell of devices that are not there, or not of those that are
        while (iterator->IOIteratorNext()) {
            // Taking the entries arms the notification.
        }
    }
    look({});
}

void ConnectedDevices::arrived(void* refCon, platform::IOIterator&) {
    platform::runGuarded([refCon] { static_cast<ConnectedDevices*>(refCon)->look({}); }, kFile, __LINE__);
}

void ConnectedDevices::departed(void* refCon, platform::IOIterator& iterator) {
    const auto body = [&] {
        std::set<std::uint64_t> ids;
        while (const auto entry = iterator.IOIteratorNext()) {
            std::uint64_t id = 0;
            if (entry->IORegistryEntryGetRegistryEntryID(id) == platform::kIOReturnSuccess) ids.insert(id);
            std::string port;
            entry->IORegistryEntryGetName(port);
            DDLogInfo("Device at port %s was detached", platform::oneLine(port).c_str());
        }
        static_cast<ConnectedDevices*>(refCon)->look(ids);
    };
    platform::runGuarded(body, kFile, __LINE__);
}

/// What has just departed may still be on the system's list for a moment, and no further event would come.
void ConnectedDevices::look(const std::set<std::uint64_t>& departedIds) {
    std::unique_ptr<platform::IOIterator> iterator;
    if (platform::kIOMasterPortDefault().IOServiceGetMatchingServices(USBTrovikModeFinderUtils::createTMDeviceMatcher(),
                                                                      iterator) != platform::kIOReturnSuccess)
        return;
    std::vector<Attach> present;
    while (const auto entry = iterator->IOIteratorNext()) {
        USBRegistryInfo info;
        if (!USBTrovikModeFinderUtils::readEntry(*entry, info)) continue;  // it has left meanwhile
        if (departedIds.contains(info.ioId())) continue;
        ConnectedDevice device{info.ioPath(), {}, {}};
        entry->IORegistryEntryGetName(device.port);
        const auto product = entry->IORegistryEntryCreateCFProperty(platform::kUSBProductString);
        if (product && product->string()) device.name = *product->string();
        present.push_back({info.ioId(), std::move(device)});
    }
    mKnowledge->setPresent(std::move(present));
}
