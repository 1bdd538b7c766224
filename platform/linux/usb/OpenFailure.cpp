#include "platform/linux/usb/OpenFailure.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {
namespace {

namespace fs = std::filesystem;

std::string firstLine(const fs::path& file) {
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    return line;
}

/// "root", or the number of an account without a name.
std::string userName(uid_t user) {
    char buffer[4096];
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(user, &entry, buffer, sizeof buffer, &found) == 0 && found) return found->pw_name;
    return std::to_string(user);
}

std::string groupName(gid_t id) {
    char buffer[4096];
    group entry{};
    group* found = nullptr;
    if (getgrgid_r(id, &entry, buffer, sizeof buffer, &found) == 0 && found) return found->gr_name;
    return std::to_string(id);
}

std::string ownerAndMode(const std::string& node) {
    struct stat status {};
    if (::stat(node.c_str(), &status) < 0) return "The node is not there.";
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(status.st_mode) & 07777U);
    return "The node belongs to " + userName(status.st_uid) + ":" + groupName(status.st_gid) + ", mode " + mode + ".";
}

bool isNumber(const std::string& text) {
    return !text.empty() && std::ranges::all_of(text, [](unsigned char c) { return std::isdigit(c); });
}

/// Other processes that have the node open, as "name (process 123)". Those of other users stay unseen.
std::vector<std::string> holders(const std::string& node, const std::string& processes) {
    std::vector<std::string> holders;
    std::error_code error;
    for (fs::directory_iterator process(processes, error), end; !error && process != end; process.increment(error)) {
        const std::string id = process->path().filename();
        if (!isNumber(id) || id == std::to_string(::getpid())) continue;
        std::error_code unreadable;
        for (fs::directory_iterator entry(process->path() / "fd", unreadable); !unreadable && entry != end;
             entry.increment(unreadable)) {
            std::error_code gone;
            if (fs::read_symlink(*entry, gone) != node) continue;
            holders.push_back(firstLine(process->path() / "comm") + " (process " + id + ")");
            break;
        }
    }
    return holders;
}

/// Kernel drivers of the device's interfaces, as "name (interface 0)"; "usbfs" stands for a program.
std::vector<std::string> drivers(const std::string& registryPath) {
    std::vector<std::string> drivers;
    std::error_code error;
    for (fs::directory_iterator entry(registryPath, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        if (name.find(':') == std::string::npos) continue;
        std::error_code none;
        const fs::path driver = fs::read_symlink(entry->path() / "driver", none);
        const std::size_t dot = name.rfind('.');
        if (none || driver.filename() == "usbfs" || dot == std::string::npos) continue;
        drivers.push_back(driver.filename().string() + " (interface " + name.substr(dot + 1) + ")");
    }
    return drivers;
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const auto& word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

std::string installedRule(const std::vector<std::string>& folders) {
    for (const auto& folder : folders) {
        const fs::path file = fs::path(folder) / kUdevRuleFile;
        std::error_code error;
        if (fs::exists(file, error)) return file;
    }
    return {};
}

}  // namespace

std::string deviceNodeOfPath(const std::string& registryPath) {
    constexpr std::string_view kKey = "DEVNAME=";
    std::ifstream properties(fs::path(registryPath) / "uevent");
    for (std::string line; std::getline(properties, line);) {
        if (line.starts_with(kKey)) return fs::path("/dev") / line.substr(kKey.size());
    }
    return {};
}

std::string describeOpenFailure(const std::string& registryPath, IOReturn result, const OpenFailurePlaces& places) {
    const std::string node = deviceNodeOfPath(registryPath);
    if (node.empty()) {
        return "The USB device at " + registryPath + " can't be opened: it has gone (unplugged, or on its way back " +
               "from a reboot).";
    }
    std::string text =
        "The USB device " + node + " can't be opened: " + IOReturnText(result) + ". " + ownerAndMode(node);
    const std::string rule = installedRule(places.ruleFolders);
    if (!rule.empty()) {
        text += " The udev rule " + rule + " is installed.";
        if (result == kIOReturnNotPermitted) {
            text += " It lets in whoever sits at this machine's screen, from the device's next attach on.";
        }
    } else {
        text.append(" The udev rule ").append(kUdevRuleFile);
        text +=
            " is not installed: put it into /etc/udev/rules.d, run \"udevadm control --reload\" and attach the device "
            "again.";
    }
    const auto programs = holders(node, places.processes);
    text += programs.empty() ? " No other program of this user holds the device."
                             : " It is held by " + joined(programs) + ".";
    const auto bound = drivers(registryPath);
    if (!bound.empty()) text += " It has the kernel driver " + joined(bound) + ".";
    return text;
}

std::string describeOpenFailure(const std::string& registryPath, IOReturn result) {
    return describeOpenFailure(registryPath, result, {});
}

}  // namespace platform
