#include "platform/linux/usb/UsbAttach.hpp"

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

}  // namespace

std::optional<UsbAttach> UsbAttach::at(AsioRunLoops& loops, std::string path) {
    const std::uint64_t entryId = entryIdAt(path);
    if (entryId == 0) return std::nullopt;
    return UsbAttach{&loops, std::move(path), entryId};
}

bool UsbAttach::isPresent() const {
    return entryIdAt(path) == entryId;
}

}  // namespace platform
