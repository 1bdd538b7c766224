#include "platform/linux/usb/UsbAttach.hpp"

#include "platform/IORegistry.hpp"
#include "platform/common/OneLine.hpp"

#include <fstream>
#include <sys/stat.h>
#include <utility>

namespace platform {
namespace {

std::uint64_t numberIn(const std::string& file) {
    std::ifstream stream(file);
    std::uint64_t number = 0;
    stream >> number;
    return number;
}

/// What the kernel has read from the device when it was attached.
PropertyList::Dictionary propertiesAt(const std::string& path) {
    PropertyList::Dictionary properties;
    for (const char* const name : {"idVendor", "idProduct", "bcdDevice"}) {
        std::ifstream stream(path + '/' + name);
        std::int64_t number = 0;
        if (stream >> std::hex >> number) properties[name] = {number};
    }
    std::ifstream stream(path + "/product");
    std::string product;
    // The device may have put anything into it.
    if (std::getline(stream, product)) properties[kUSBProductString] = {oneLine(product)};
    return properties;
}

/// The lower 16 bits of an entry id.
std::uint64_t numbersOf(std::uint64_t bus, std::uint64_t device) {
    return ((bus & 0x1FF) << 7) ^ (device & 0x7F);
}

/// 0 when nothing is there. Bits 16 and up: inode; below: bus and device number. An inode of sysfs has its generation
/// in the upper half, which does not get near 2^16 while a system is up.
std::uint64_t entryIdAt(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) < 0) return 0;
    const std::uint64_t bus = numberIn(path + "/busnum");
    const std::uint64_t device = numberIn(path + "/devnum");
    if (device == 0) return 0;
    return (std::uint64_t{status.st_ino} << 16) ^ numbersOf(bus, device);
}

}  // namespace

std::optional<UsbAttach> UsbAttach::at(AsioRunLoops& loops, std::string path) {
    const std::uint64_t entryId = entryIdAt(path);
    if (entryId == 0) return std::nullopt;
    auto properties = propertiesAt(path);
    return UsbAttach{&loops, std::move(path), entryId, std::move(properties)};
}

bool UsbAttach::isPresent() const {
    return entryIdAt(path) == entryId;
}

bool UsbAttach::hasNumbers(std::uint64_t bus, std::uint64_t device) const {
    return (entryId & 0xFFFF) == numbersOf(bus, device);
}

}  // namespace platform
