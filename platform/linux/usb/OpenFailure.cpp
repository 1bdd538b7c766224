#include "platform/linux/usb/OpenFailure.hpp"

#include "platform/common/OneLine.hpp"
#include "platform/linux/usb/AccessList.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace platform {
namespace {

namespace fs = std::filesystem;

std::string firstLine(const fs::path& file) {
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    return line;
}

/// Owner and mode; empty where there is no node.
std::string ownerAndMode(const std::string& node) {
    struct stat status {};
    if (::stat(node.c_str(), &status) < 0) return {};
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(status.st_mode) & 07777U);
    return userName(status.st_uid) + ":" + groupName(status.st_gid) + ", mode " + mode;
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
            holders.push_back(oneLine(firstLine(process->path() / "comm")) + " (process " + id + ")");
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

/// Whether a file's last change of contents or permissions is behind the other's.
bool changedAfter(const std::string& file, const std::string& other) {
    struct stat one {};
    struct stat two {};
    if (::stat(file.c_str(), &one) < 0 || ::stat(other.c_str(), &two) < 0) return false;
    return std::pair(one.st_ctim.tv_sec, one.st_ctim.tv_nsec) > std::pair(two.st_ctim.tv_sec, two.st_ctim.tv_nsec);
}

OpenFailure deniedAccess(const std::string& node, const OpenFailurePlaces& places) {
    const std::string rule = installedUdevRule(places.ruleFolders);
    OpenFailure failure;
    failure.seen = permissionsText(node, places) + " The udev rule ";
    failure.seen.append(rule.empty() ? kUdevRuleFile : rule)
        .append(rule.empty() ? " is not installed." : " is installed.");
    if (places.mayAccess(node, R_OK | W_OK)) {
        failure.cause = OpenFailureCause::DeniedBeyondPermissions;
    } else if (rule.empty()) {
        failure.cause = OpenFailureCause::RuleNotInstalled;
    } else {
        // udev sets a node's permissions when the device attaches, and when it is told to look at all of them again.
        failure.cause =
            changedAfter(rule, node) ? OpenFailureCause::NotAttachedSinceRule : OpenFailureCause::UserNotInAccessList;
    }
    return failure;
}

OpenFailure heldDevice(const std::string& node, const std::string& registryPath, const OpenFailurePlaces& places) {
    const auto programs = holders(node, places.processes);
    const auto bound = drivers(registryPath);
    OpenFailure failure;
    failure.seen = programs.empty() ? "No other program of this user holds the device."
                                    : "It is held by " + joined(programs) + ".";
    if (!bound.empty()) failure.seen += " It has the kernel driver " + joined(bound) + ".";
    // A program of another user can't be seen; a driver can.
    failure.cause =
        programs.empty() && !bound.empty() ? OpenFailureCause::HeldByDriver : OpenFailureCause::HeldByProgram;
    return failure;
}

OpenFailure diagnose(const std::string& node, const std::string& registryPath, IOReturn result,
                     const OpenFailurePlaces& places) {
    switch (result) {
        case kIOReturnNotPermitted:
            return deniedAccess(node, places);
        case kIOReturnExclusiveAccess:
            return heldDevice(node, registryPath, places);
        case kIOReturnNoDevice:
            return {OpenFailureCause::Gone, {}};
        case kIOReturnIOError:
        case kIOReturnTimeout:
        case kIOReturnOverrun:
        case kIOReturnAborted:
        case kIOUSBPipeStalled:
            return {OpenFailureCause::IOFailure, {}};
        default:
            return {};
    }
}

}  // namespace

bool mayAccess(const std::string& file, int mode) {
    return ::access(file.c_str(), mode) == 0;
}

std::string installedUdevRule(const std::vector<std::string>& folders) {
    for (const auto& folder : folders) {
        const fs::path file = fs::path(folder) / kUdevRuleFile;
        std::error_code error;
        if (fs::exists(file, error)) return file;
    }
    return {};
}

std::string permissionsText(const std::string& node, const OpenFailurePlaces& places) {
    const std::string ownership = ownerAndMode(node);
    if (ownership.empty()) return "The node " + node + " is not there.";
    const auto list = readAccessList(node);
    const bool mayRead = places.mayAccess(node, R_OK);
    const bool mayWrite = places.mayAccess(node, W_OK);
    return "It belongs to " + ownership +
           (list ? ", with the access list " + accessListText(*list) : ", without an access list") +
           ". access(2) lets the user " + userName(::getuid()) + (mayRead ? " read" : " not read") +
           (mayRead == mayWrite ? " and" : ", but") + (mayWrite ? " write" : " not write") + " it.";
}

std::string deviceNodeOfPath(const std::string& registryPath) {
    constexpr std::string_view kKey = "DEVNAME=";
    std::ifstream properties(fs::path(registryPath) / "uevent");
    for (std::string line; std::getline(properties, line);) {
        if (line.starts_with(kKey)) return fs::path("/dev") / line.substr(kKey.size());
    }
    return {};
}

OpenFailure diagnoseOpenFailure(const std::string& registryPath, IOReturn result, const OpenFailurePlaces& places) {
    const std::string node = deviceNodeOfPath(registryPath);
    std::error_code error;
    if (node.empty() || !fs::exists(node, error))
        return {OpenFailureCause::Gone, "There is no device at " + oneLine(registryPath) + " now."};
    OpenFailure failure = diagnose(node, registryPath, result, places);
    failure.seen =
        "Opening " + node + " gave: " + IOReturnText(result) + "." + (failure.seen.empty() ? "" : " " + failure.seen);
    return failure;
}

}  // namespace platform
