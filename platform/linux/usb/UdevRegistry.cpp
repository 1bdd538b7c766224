#include "platform/linux/usb/UdevRegistry.hpp"

#include "platform/Platform.hpp"
#include "platform/common/IOServiceList.hpp"
#include "platform/common/Release.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/usb/UsbAttach.hpp"
#include "platform/linux/usb/UsbServices.hpp"

#include <libudev.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <list>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

namespace platform {
namespace {

using Udev = std::unique_ptr<udev, Release<udev_unref>>;
using Device = std::unique_ptr<udev_device, Release<udev_device_unref>>;
using Enumerate = std::unique_ptr<udev_enumerate, Release<udev_enumerate_unref>>;
using Monitor = std::unique_ptr<udev_monitor, Release<udev_monitor_unref>>;
using Attaches = std::vector<UsbAttach>;

constexpr const char* kSubsystem = "usb";
constexpr const char* kDeviceType = "usb_device";

/// A property of an event; 0 when it has none.
std::uint64_t numberProperty(udev_device* device, const char* name) {
    const char* const text = udev_device_get_property_value(device, name);
    return text ? std::strtoull(text, nullptr, 10) : 0;
}

/// What matches now, in libudev's order, which is that of the paths.
IOReturn enumerate(udev* context, AsioRunLoops& loops, const MatchingDictionary& matching, Attaches& attaches) {
    const Enumerate enumerate(udev_enumerate_new(context));
    if (!enumerate) return kIOReturnNoMemory;
    udev_enumerate_add_match_subsystem(enumerate.get(), kSubsystem);
    if (const auto vendor = matching.properties.find("idVendor"); vendor != matching.properties.end()) {
        // The vendor alone leaves out nearly all other devices without opening them; each further attribute would be
        // one more file to read of every device that matches.
        char text[16];
        std::snprintf(text, sizeof text, "%04x", static_cast<unsigned>(vendor->second));
        udev_enumerate_add_match_sysattr(enumerate.get(), "idVendor", text);
    }
    if (udev_enumerate_scan_devices(enumerate.get()) < 0) return kIOReturnError;
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumerate.get())) {
        auto attach = UsbAttach::at(loops, udev_list_entry_get_name(entry));
        if (attach && attach->matches(matching)) attaches.push_back(*std::move(attach));
    }
    return kIOReturnSuccess;
}

std::unique_ptr<IOIterator> iteratorOver(Attaches attaches) {
    std::vector<std::unique_ptr<IOService>> entries;
    for (auto& attach : attaches) entries.push_back(std::make_unique<UsbDeviceService>(std::move(attach)));
    return std::make_unique<IOServiceList>(std::move(entries));
}

/// One armed notification: its own monitor, and the attaches that it takes to be there. Owner thread only.
class Subscription {
  public:
    enum class Tells { OfArrivals, OfDepartures };

    Subscription(AsioRunLoops& loops, Tells tells, const MatchingDictionary& matching,
                 IOServiceMatchingCallback callback, void* refCon)
        : mLoops(loops), mTells(tells), mMatching(matching), mCallback(callback), mRefCon(refCon) {}

    /// Subscribes first and then looks at what is there: an attach in between is in the list, and its event is known
    /// by its entry id.
    /// @param first  set to what the arming iterator holds
    IOReturn arm(Attaches& first) {
        mUdev.reset(udev_new());
        if (!mUdev) return kIOReturnNoMemory;
        mMonitor.reset(udev_monitor_new_from_netlink(mUdev.get(), "udev"));
        if (!mMonitor || udev_monitor_filter_add_match_subsystem_devtype(mMonitor.get(), kSubsystem, kDeviceType) < 0 ||
            udev_monitor_enable_receiving(mMonitor.get()) < 0) {
            return kIOReturnError;
        }
        const IOReturn result = look();
        first = takeTold();
        return result;
    }

    void watch(AsioRunLoop& loop, std::string_view mode) {
        mWatch = loop.watchReadable(mode, udev_monitor_get_fd(mMonitor.get()), [this] { receive(); });
    }
    void unwatch() { mWatch.reset(); }

  private:
    /// Everything that has come in makes one group.
    void receive() {
        errno = 0;
        for (Device device; device.reset(udev_monitor_receive_device(mMonitor.get())), device; errno = 0) {
            const char* action = udev_device_get_action(device.get());
            const std::string path = udev_device_get_syspath(device.get());
            if (!action) continue;
            if (std::string_view(action) == "remove") takeRemoved(path, device.get());
            if (std::string_view(action) != "add") continue;
            auto attach = UsbAttach::at(mLoops, path);
            if (attach && attach->matches(mMatching)) takeAdded(*std::move(attach));
        }
        if (errno == ENOBUFS) {
            // The socket has overflowed and events are lost: look again at what is there.
            NSLog("Attach events were lost; all devices are looked at again.\n");
            std::erase_if(mKnown, [this](const auto& known) {
                const bool hasGone = !known.second.isPresent();
                if (hasGone) mDeparted.push_back(known.second);
                return hasGone;
            });
            look();
        }
        Attaches told = takeTold();
        if (told.empty()) return;
        const auto iterator = iteratorOver(std::move(told));
        mCallback(mRefCon, *iterator);
    }

    IOReturn look() {
        Attaches present;
        const IOReturn result = enumerate(mUdev.get(), mLoops, mMatching, present);
        for (UsbAttach& attach : present) takeAdded(std::move(attach));
        return result;
    }

    void takeAdded(UsbAttach attach) {
        const auto [known, isNew] = mKnown.try_emplace(attach.path, attach);
        if (!isNew) {
            // udev may announce a device again at any time ("udevadm trigger").
            if (known->second.entryId == attach.entryId) return;
            mDeparted.push_back(std::exchange(known->second, attach));
        }
        mArrived.push_back(std::move(attach));
    }

    /// The list of what is there may be ahead of the events: what is known at the path of a removal may already be the
    /// next attach, and stays then.
    void takeRemoved(const std::string& path, udev_device* event) {
        const auto known = mKnown.find(path);
        if (known == mKnown.end()) return;
        const bool isMeant = known->second.hasNumbers(numberProperty(event, "BUSNUM"), numberProperty(event, "DEVNUM"));
        if (!isMeant && known->second.isPresent()) return;
        mDeparted.push_back(std::move(known->second));
        mKnown.erase(known);
    }

    /// What is to be told of, if anything.
    Attaches takeTold() {
        Attaches arrived = std::exchange(mArrived, {});
        Attaches departed = std::exchange(mDeparted, {});
        return mTells == Tells::OfArrivals ? arrived : departed;
    }

    AsioRunLoops& mLoops;
    const Tells mTells;
    const MatchingDictionary mMatching;
    const IOServiceMatchingCallback mCallback;
    void* const mRefCon;
    Udev mUdev;
    Monitor mMonitor;
    std::map<std::string, UsbAttach> mKnown;  // by registry path; one of each port
    Attaches mArrived, mDeparted;             // since they were last told of
    std::unique_ptr<DescriptorWatch> mWatch;  // last: goes before the monitor whose descriptor it watches
};

/// The source of a port: all its subscriptions, watched in the mode that it serves.
class UdevSource final : public CFRunLoopSource {
  public:
    explicit UdevSource(AsioRunLoops& loops) : mLoops(loops) {}

    void scheduled(const std::shared_ptr<CFRunLoop>& loop, std::string_view mode) override {
        mLoop = mLoops.current(*loop);
        mMode = mode;
        for (auto& subscription : mSubscriptions) subscription.watch(*mLoop, mMode);
    }
    void cancelled() override {
        for (auto& subscription : mSubscriptions) subscription.unwatch();
        mLoop.reset();
    }

    IOReturn add(Subscription::Tells tells, const MatchingDictionary& matching, IOServiceMatchingCallback callback,
                 void* refCon, Attaches& present) {
        Subscription& subscription = mSubscriptions.emplace_back(mLoops, tells, matching, callback, refCon);
        const IOReturn result = subscription.arm(present);
        if (result != kIOReturnSuccess) {
            mSubscriptions.pop_back();
        } else if (mLoop) {
            subscription.watch(*mLoop, mMode);
        }
        return result;
    }
    void close() { mSubscriptions.clear(); }

  private:
    AsioRunLoops& mLoops;
    std::list<Subscription> mSubscriptions;  // a list: a watch refers to its subscription
    std::shared_ptr<AsioRunLoop> mLoop;
    std::string mMode;
};

class UdevNotificationPort final : public IONotificationPort {
  public:
    explicit UdevNotificationPort(AsioRunLoops& loops) : source(std::make_shared<UdevSource>(loops)) {}
    ~UdevNotificationPort() override { source->close(); }
    UdevNotificationPort(const UdevNotificationPort&) = delete;
    UdevNotificationPort& operator=(const UdevNotificationPort&) = delete;

    std::shared_ptr<CFRunLoopSource> IONotificationPortGetRunLoopSource() override { return source; }

    const std::shared_ptr<UdevSource> source;  // shared with the loop
};

}  // namespace

IOReturn UdevRegistry::IOServiceGetMatchingServices(const MatchingDictionary& matching,
                                                    std::unique_ptr<IOIterator>& iterator) {
    const Udev context(udev_new());
    if (!context) return kIOReturnNoMemory;
    Attaches present;
    const IOReturn result = enumerate(context.get(), mLoops, matching, present);
    if (result == kIOReturnSuccess) iterator = iteratorOver(std::move(present));
    return result;
}

std::unique_ptr<IONotificationPort> UdevRegistry::IONotificationPortCreate() {
    return std::make_unique<UdevNotificationPort>(mLoops);
}

IOReturn UdevRegistry::IOServiceAddMatchingNotification(IONotificationPort& port, const std::string& type,
                                                        const MatchingDictionary& matching,
                                                        IOServiceMatchingCallback callback, void* refCon,
                                                        std::unique_ptr<IOIterator>& iterator) {
    const bool tellsOfArrivals = type == kIOServiceMatched;
    if (!tellsOfArrivals && type != kIOServiceTerminate) return kIOReturnUnsupported;
    auto* own = dynamic_cast<UdevNotificationPort*>(&port);
    if (!own) return kIOReturnBadArgument;
    Attaches present;
    const auto tells = tellsOfArrivals ? Subscription::Tells::OfArrivals : Subscription::Tells::OfDepartures;
    const IOReturn result = own->source->add(tells, matching, callback, refCon, present);
    if (result == kIOReturnSuccess) iterator = iteratorOver(std::move(present));
    return result;
}

std::unique_ptr<IOService> UdevRegistry::IORegistryEntryFromPath(const std::string& path) {
    const Udev context(udev_new());
    const Device device(context ? udev_device_new_from_syspath(context.get(), path.c_str()) : nullptr);
    const char* type = device ? udev_device_get_devtype(device.get()) : nullptr;
    if (!type || std::string_view(type) != kDeviceType) return nullptr;
    auto attach = UsbAttach::at(mLoops, path);
    return attach ? std::make_unique<UsbDeviceService>(*std::move(attach)) : nullptr;
}

}  // namespace platform
