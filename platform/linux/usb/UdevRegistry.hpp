#pragma once

#include "platform/IORegistry.hpp"

#include <memory>
#include <string>

namespace platform {

class AsioRunLoops;

/// The device registry over libudev: class "IOUSBDevice" stands for the USB devices in sysfs, matched by the numbers
/// "idVendor", "idProduct" and "bcdDevice". Notifications come from udev rather than from the kernel, so that a
/// device's permissions are set when it is reported.
///
/// A registry path is the device's folder in sysfs, which names the port. An entry id is made of the folder's inode
/// number, which sysfs counts up for every folder it makes and never uses again, and of bus and device number: two
/// attaches never share one, and whoever asks about one attach gets the same.
///
/// libudev's objects are not thread-safe: every call and every armed notification has its own. Any thread.
class UdevRegistry final : public IORegistry {
  public:
    /// @param loops  in theirs attaches and completions are delivered; must outlive all that the registry hands out
    explicit UdevRegistry(AsioRunLoops& loops) : mLoops(loops) {}

    IOReturn IOServiceGetMatchingServices(const MatchingDictionary& matching,
                                          std::unique_ptr<IOIterator>& iterator) override;

    std::unique_ptr<IONotificationPort> IONotificationPortCreate() override;

    /// On the thread whose loop the port's source was added to, or will be.
    IOReturn IOServiceAddMatchingNotification(IONotificationPort& port, const std::string& type,
                                              const MatchingDictionary& matching, IOServiceMatchingCallback callback,
                                              void* refCon, std::unique_ptr<IOIterator>& iterator) override;

    std::unique_ptr<IOService> IORegistryEntryFromPath(const std::string& path) override;

  private:
    AsioRunLoops& mLoops;
};

}  // namespace platform
