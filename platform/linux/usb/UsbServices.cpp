#include "platform/linux/usb/UsbServices.hpp"

#include "platform/IOUSB.hpp"
#include "platform/linux/usb/LibusbDevice.hpp"

#include <fstream>
#include <sys/stat.h>

namespace platform {
namespace {

constexpr std::size_t kMaxPathLength = 511;  // the platform's limit on a registry path

std::uint64_t numberIn(const std::string& file) {
    std::ifstream stream(file);
    std::uint64_t number = 0;
    stream >> number;
    return number;
}

/// 0 when nothing is there. Bits 16 and up: inode; below: bus and device number. An inode of sysfs has its generation
/// in the upper half, which does not get near 2^16 while a system is up.
std::uint64_t entryIdAt(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) < 0) return 0;
    const std::uint64_t bus = numberIn(path + "/busnum");
    const std::uint64_t device = numberIn(path + "/devnum");
    if (device == 0) return 0;
    return (std::uint64_t{status.st_ino} << 16) ^ ((bus & 0x1FF) << 7) ^ (device & 0x7F);
}

/// The way to a device's access object.
class UsbDevicePlugIn final : public IOCFPlugInInterface {
  public:
    UsbDevicePlugIn(std::string path, std::uint64_t entryId) : mPath(std::move(path)), mEntryId(entryId) {}
    IOReturn QueryInterface(std::unique_ptr<IOUSBDeviceInterface>& device) override {
        device = std::make_unique<LibusbDevice>(mPath, mEntryId);
        return kIOReturnSuccess;
    }
    IOReturn QueryInterface(std::unique_ptr<IOUSBInterfaceInterface>&) override { return kIOReturnUnsupported; }

  private:
    const std::string mPath;
    const std::uint64_t mEntryId;
};

}  // namespace

std::unique_ptr<UsbDeviceService> UsbDeviceService::atPath(std::string sysfsPath) {
    const std::uint64_t entryId = entryIdAt(sysfsPath);
    if (entryId == 0) return nullptr;
    return std::unique_ptr<UsbDeviceService>(new UsbDeviceService(std::move(sysfsPath), entryId));
}

bool UsbDeviceService::isThere() const {
    return entryIdAt(mPath) == mEntryId;
}

IOReturn UsbDeviceService::IORegistryEntryGetPath(const std::string& plane, std::string& path) {
    if (plane != kIOServicePlane) return kIOReturnNotFound;
    if (mPath.size() > kMaxPathLength) return kIOReturnOverrun;
    if (!isThere()) return kIOReturnNoDevice;
    path = mPath;
    return kIOReturnSuccess;
}

IOReturn UsbDeviceService::IORegistryEntryGetRegistryEntryID(std::uint64_t& entryId) {
    entryId = mEntryId;
    return kIOReturnSuccess;
}

IOReturn UsbDeviceService::IOCreatePlugInInterfaceForService(IOUserClientType type,
                                                             std::unique_ptr<IOCFPlugInInterface>& plugIn) {
    if (type != IOUserClientType::kIOUSBDeviceUserClientTypeID) return kIOReturnUnsupported;
    if (!isThere()) return kIOReturnNoDevice;
    plugIn = std::make_unique<UsbDevicePlugIn>(mPath, mEntryId);
    return kIOReturnSuccess;
}

}  // namespace platform
