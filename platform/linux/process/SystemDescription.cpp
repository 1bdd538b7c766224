#include "platform/linux/process/SystemDescription.hpp"

#include "platform/common/OneLine.hpp"

#include <libusb.h>

#include <fstream>
#include <string_view>
#include <sys/utsname.h>

namespace platform {
namespace {

/// The value of PRETTY_NAME, which every system's file has. Escapes are left as they are.
std::string systemName(const std::vector<std::string>& files) {
    constexpr std::string_view kKey = "PRETTY_NAME=";
    for (const std::string& file : files) {
        std::ifstream stream(file);
        for (std::string line; std::getline(stream, line);) {
            if (!line.starts_with(kKey)) continue;
            std::string_view name = std::string_view(line).substr(kKey.size());
            if (name.size() > 1 && (name.front() == '"' || name.front() == '\'') && name.back() == name.front())
                name = name.substr(1, name.size() - 2);
            return oneLine(name);
        }
    }
    return "unknown";
}

std::string kernelName() {
    utsname names{};
    if (::uname(&names) < 0) return "unknown";
    return oneLine(std::string(names.sysname) + ' ' + names.release + ' ' + names.machine);
}

std::string libusbVersion() {
    const libusb_version& version = *libusb_get_version();
    return std::to_string(version.major) + '.' + std::to_string(version.minor) + '.' + std::to_string(version.micro) +
           oneLine(version.rc);
}

}  // namespace

std::vector<std::string> describeSystem(const std::vector<std::string>& osReleases) {
    return {"System: " + systemName(osReleases), "Kernel: " + kernelName(), "USB library: libusb " + libusbVersion()};
}

}  // namespace platform
