#include "platform/linux/usb/UsbAttach.hpp"

#include "platform/IORegistry.hpp"
#include "platform/common/OneLine.hpp"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sys/stat.h>
#include <utility>

namespace platform {
namespace {

/// What the kernel has read from a device as it was attached, and the numbers that it gave it. All of it stands in one
/// file: a program that looks at many devices opens one for each, and does not mix two attaches.
struct Numbers {
    unsigned bus = 0, device = 0;
    PropertyList::Dictionary identity;
};

Numbers numbersAt(const std::string& path) {
    Numbers numbers;
    std::ifstream stream(path + "/uevent");
    for (std::string line; std::getline(stream, line);) {
        unsigned vendor = 0, product = 0, release = 0;
        std::sscanf(line.c_str(), "BUSNUM=%u", &numbers.bus);
        std::sscanf(line.c_str(), "DEVNUM=%u", &numbers.device);
        if (std::sscanf(line.c_str(), "PRODUCT=%x/%x/%x", &vendor, &product, &release) != 3) continue;
        numbers.identity = {{"idVendor", {std::int64_t{vendor}}},
                            {"idProduct", {std::int64_t{product}}},
                            {"bcdDevice", {std::int64_t{release}}}};
    }
    return numbers;
}

/// The lower 16 bits of an entry id.
std::uint64_t numbersOf(std::uint64_t bus, std::uint64_t device) {
    return ((bus & 0x1FF) << 7) ^ (device & 0x7F);
}

/// 0 when nothing is there. Bits 16 and up: inode; below: bus and device number. An inode of sysfs has its generation
/// in the upper half, which does not get near 2^16 while a system is up.
std::uint64_t entryIdAt(const std::string& path, const Numbers& numbers) {
    struct stat status {};
    if (numbers.device == 0 || ::stat(path.c_str(), &status) < 0) return 0;
    return (std::uint64_t{status.st_ino} << 16) ^ numbersOf(numbers.bus, numbers.device);
}

}  // namespace

std::optional<UsbAttach> UsbAttach::at(AsioRunLoops& loops, std::string path) {
    const Numbers numbers = numbersAt(path);
    const std::uint64_t entryId = entryIdAt(path, numbers);
    if (entryId == 0) return std::nullopt;
    auto properties = numbers.identity;
    std::ifstream stream(path + "/product");
    std::string product;
    // The device may have put anything into it.
    if (std::getline(stream, product)) properties[kUSBProductString] = {oneLine(product)};
    return UsbAttach{&loops, std::move(path), entryId, std::move(properties)};
}

bool UsbAttach::matches(const MatchingDictionary& matching) const {
    return matching.className == kIOUSBDeviceClassName &&
           std::ranges::all_of(matching.properties, [this](const auto& property) {
               const PropertyList* const value = valueIn(properties, property.first);
               return value && *value == PropertyList{std::int64_t{property.second}};
           });
}

bool UsbAttach::isPresent() const {
    return entryIdAt(path, numbersAt(path)) == entryId;
}

bool UsbAttach::hasNumbers(std::uint64_t bus, std::uint64_t device) const {
    return (entryId & 0xFFFF) == numbersOf(bus, device);
}

}  // namespace platform
