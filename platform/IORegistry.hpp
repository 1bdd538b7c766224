#pragma once

#include "platform/CFRunLoop.hpp"
#include "platform/IOReturn.hpp"
#include "platform/PropertyList.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace platform {

class IOCFPlugInInterface;

inline constexpr const char* kIOServicePlane = "IOService";               ///< the one plane that there is
inline constexpr const char* kIOServiceMatched = "IOServiceMatched";      ///< notification of arrivals
inline constexpr const char* kIOServiceTerminate = "IOServiceTerminate";  ///< notification of departures
inline constexpr const char* kIOUSBDeviceClassName = "IOUSBDevice";       ///< registry class of USB devices
inline constexpr const char* kUSBProductString = "USB Product Name";      ///< property: what a device calls itself

/// Registry class plus the properties that must all be equal, each a signed 32-bit number.
struct MatchingDictionary {
    std::string className;                           ///< kIOUSBDeviceClassName
    std::map<std::string, std::int32_t> properties;  ///< by name: "idVendor", "idProduct", "bcdDevice"
};

/// A matching dictionary for one registry class, with no property yet.
inline MatchingDictionary IOServiceMatching(std::string className) {
    return {std::move(className), {}};
}

/// What a plug-in is asked for.
enum class IOUserClientType { kIOUSBDeviceUserClientTypeID, kIOUSBInterfaceUserClientTypeID };

/// One entry of the device registry: a device, or an interface of one. Releasing it (destruction) leaves the device as
/// it is. Any thread, one at a time.
class IOService {
  public:
    virtual ~IOService() = default;

    /// The entry's path in the named plane, stable for one port. Fails with kIOReturnNotFound for another plane, and
    /// with kIOReturnNoDevice when the entry has gone.
    virtual IOReturn IORegistryEntryGetPath(const std::string& plane, std::string& path) = 0;

    /// The entry's id: 64 bits, never used twice while the system is up. An entry that has gone keeps it.
    virtual IOReturn IORegistryEntryGetRegistryEntryID(std::uint64_t& entryId) = 0;

    /// The entry's name. That of a device says where it is plugged in, as the system writes it: "1-2.3" is bus 1, port
    /// 3 of the hub at its port 2. An entry that has gone keeps it.
    virtual IOReturn IORegistryEntryGetName(std::string& name) = 0;

    /// What the registry knows of the entry; never opens the device. A device has the properties that it is matched by,
    /// as numbers, and kUSBProductString if it names itself: one line of text. An entry that has gone keeps what is
    /// known of it.
    /// @return nothing when it has no such property
    virtual std::optional<PropertyList> IORegistryEntryCreateCFProperty(const std::string& key) = 0;

    /// The access object of the wanted kind.
    /// @return kIOReturnNoDevice when the entry has gone, kIOReturnUnsupported for a kind that does not fit the entry
    virtual IOReturn IOCreatePlugInInterfaceForService(IOUserClientType type,
                                                       std::unique_ptr<IOCFPlugInInterface>& plugIn) = 0;
};

/// A list of entries, taken one by one.
class IOIterator {
  public:
    virtual ~IOIterator() = default;
    virtual std::unique_ptr<IOService> IOIteratorNext() = 0;  ///< null at the end
};

/// Carries notifications to one run loop.
class IONotificationPort {
  public:
    virtual ~IONotificationPort() = default;  ///< no call-back runs after this; owner thread only

    /// What the receiving thread adds to its run loop. Never null.
    virtual std::shared_ptr<CFRunLoopSource> IONotificationPortGetRunLoopSource() = 0;
};

/// Call-back of a matching notification: the entries that have just matched, or gone, in a list borrowed for the call.
/// Callback on the thread whose run loop has the port's source.
using IOServiceMatchingCallback = void (*)(void* refCon, IOIterator& iterator);

/// The registry of attached devices. Any thread.
class IORegistry {
  public:
    virtual ~IORegistry() = default;

    /// Every present match, in enumeration order.
    virtual IOReturn IOServiceGetMatchingServices(const MatchingDictionary& matching,
                                                  std::unique_ptr<IOIterator>& iterator) = 0;

    /// A port without notifications yet. Never null.
    virtual std::unique_ptr<IONotificationPort> IONotificationPortCreate() = 0;

    /// Arms a notification: from now on the call-back runs, on the loop that the port's source was added to, for each
    /// group of entries that newly match. What is present now comes back in the iterator, which the caller has to take
    /// to its end: some registries do not call back before. Nothing falls between the two and nothing is in both. The
    /// notification lives as long as the port.
    ///
    /// For departures it is the same with the entries that matched and have gone, each told of once; the iterator,
    /// which has to be taken to its end as well, holds none. Between notifications there is no order: when a departure
    /// is told of, the next device may be on the port already. What comes and goes before the loop runs may be told of
    /// by neither.
    /// @param type  kIOServiceMatched or, for departures, kIOServiceTerminate; anything else is refused with
    ///              kIOReturnUnsupported
    virtual IOReturn IOServiceAddMatchingNotification(IONotificationPort& port, const std::string& type,
                                                      const MatchingDictionary& matching,
                                                      IOServiceMatchingCallback callback, void* refCon,
                                                      std::unique_ptr<IOIterator>& iterator) = 0;

    /// The entry at a path as IORegistryEntryGetPath gave it; null when there is none now.
    virtual std::unique_ptr<IOService> IORegistryEntryFromPath(const std::string& path) = 0;
};

}  // namespace platform
