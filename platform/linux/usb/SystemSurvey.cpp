#include "platform/linux/usb/SystemSurvey.hpp"

#include "platform/VendorId.hpp"
#include "platform/common/OneLine.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "platform/linux/usb/AccessList.hpp"

#include <libusb.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace platform {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestRule = 64u << 10;  ///< bytes
constexpr uid_t kFirstPerson = 1000;             ///< accounts below are the system's

/// The beginning of a file; empty where it can't be read.
std::string textOf(const fs::path& file, std::size_t most = 4096) {
    std::ifstream stream(file, std::ios::binary);
    std::string text(most, '\0');
    stream.read(text.data(), static_cast<std::streamsize>(most));
    text.resize(static_cast<std::size_t>(stream.gcount()));
    return text;
}

std::string firstLine(const fs::path& file) {
    const std::string text = textOf(file);
    return text.substr(0, text.find('\n'));
}

std::string attribute(const fs::path& device, const char* name) {
    return oneLine(firstLine(device / name));
}

/// Bus and ports in their order: "1-2.10" is behind "1-2.9".
std::vector<unsigned> placeOf(const std::string& name) {
    std::vector<unsigned> numbers;
    for (const char* at = name.data(); at < name.data() + name.size();) {
        unsigned number = 0;
        const auto [end, error] = std::from_chars(at, name.data() + name.size(), number);
        if (error == std::errc{}) numbers.push_back(number);
        at = end + 1;
    }
    return numbers;
}

/// A line of what is there: "class 08 06 50" of several attributes, or nothing.
void append(std::string& line, const char* label, const std::string& value) {
    if (!value.empty()) line.append(", ").append(label).append(value);
}

class Survey {
  public:
    explicit Survey(const SurveyPlaces& places) : mPlaces(places) {}

    SystemSurvey make() {
        makeVersions();
        makeIdentity();
        makeRule();
        makeDevices();
        return std::move(mResult);
    }

  private:
    void makeVersions() {
        std::ifstream release(mPlaces.release);
        for (std::string line; std::getline(release, line);) {
            if (line.starts_with("ID=")) {
                mSystemId = line.substr(3);
                std::erase(mSystemId, '"');
            }
            if (line.starts_with("PRETTY_NAME=")) mResult.versions += "System: " + oneLine(line.substr(12)) + "\n";
        }
        utsname system{};
        if (::uname(&system) == 0) {
            mResult.versions += std::string("Kernel: ") + system.sysname + " " + system.release + " " + system.version +
                                " " + system.machine + "\n";
            addHost(system.nodename);
        }
        const libusb_version* const libusb = libusb_get_version();
        mResult.versions += "libusb: " + std::to_string(libusb->major) + "." + std::to_string(libusb->minor) + "." +
                            std::to_string(libusb->micro) + "\n";
    }

    void addHost(const std::string& name) {
        for (const std::string& host : {name, name.substr(0, name.find('.'))}) {
            // A name that nobody chose ("localhost", or the system's own, as "debian") gives nobody away; to mask it
            // would mask the system's name in the versions as well.
            const bool isGeneric = host.empty() || host == "(none)" || host == "localhost" || host == mSystemId;
            if (!isGeneric && std::ranges::find(mResult.hosts, host) == mResult.hosts.end())
                mResult.hosts.push_back(host);
        }
    }

    void makeIdentity() {
        for (const char* const variable : {"USER", "LOGNAME"}) {
            if (const char* const name = std::getenv(variable); name && *name) addUser(name);
        }
        if (const char* const home = std::getenv("HOME")) addHome(home);
        passwd entry{};
        passwd* found = nullptr;
        std::vector<char> buffer(16384);
        if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found) {
            addUser(found->pw_name);
            const std::string_view full(found->pw_gecos ? found->pw_gecos : "");
            addUser(std::string(full.substr(0, full.find(','))));
            addHome(found->pw_dir);
        }
    }

    /// The administrator's account is nobody's name.
    void addUser(const std::string& name) {
        if (!name.empty() && name != "root" && std::ranges::find(mResult.users, name) == mResult.users.end())
            mResult.users.push_back(name);
    }

    /// Also as the system resolves it: /home may be a link.
    void addHome(const fs::path& home) {
        std::error_code error;
        const fs::path resolved = fs::canonical(home, error);
        for (const fs::path& path : {home, resolved}) {
            if (path.has_relative_path() && path.is_absolute() && path != "/root") mResult.homes.push_back(path);
        }
    }

    void makeRule() {
        std::string& text = mResult.access;
        std::error_code error;
        text += fs::exists(fs::path(mPlaces.udev) / "control", error) ? "udev runs.\n" : "udev does not run.\n";
        const std::string taken = installedUdevRule(mPlaces.failure.ruleFolders);
        if (taken.empty()) text.append("The rule ").append(kUdevRuleFile).append(" is not installed.\n");
        for (const std::string& folder : mPlaces.failure.ruleFolders) {
            const fs::path file = fs::path(folder) / kUdevRuleFile;
            struct stat status {};
            if (::lstat(file.c_str(), &status) != 0) continue;
            char mode[8];
            std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(status.st_mode) & 07777U);
            text += "Rule " + file.string() + (file == taken ? ", the one that udev takes" : ", not taken");
            if (S_ISLNK(status.st_mode)) text += ", a link to " + oneLine(fs::read_symlink(file, error).string());
            text += std::string(", mode ") + mode + ":\n";
            const std::string rule = fs::is_regular_file(file, error) ? textOf(file, kLongestRule) : std::string();
            text += rule.empty() || rule.ends_with('\n') ? rule : rule + '\n';
        }
    }

    void makeDevices() {
        std::map<std::vector<unsigned>, fs::path> devices;
        std::error_code error;
        for (fs::directory_iterator entry(mPlaces.devices, error), end; !error && entry != end;
             entry.increment(error)) {
            const std::string name = entry->path().filename();
            if (name.find(':') == std::string::npos) devices.emplace(placeOf(name), entry->path());
        }
        if (devices.empty()) mResult.devices += "No USB device can be seen.\n";
        for (const auto& [place, path] : devices) addDevice(path, place.size() - 1);
    }

    void addDevice(const fs::path& device, std::size_t depth) {
        const std::string vendor = attribute(device, "idVendor");
        std::string line = std::string(2 * depth, ' ') + device.filename().string() + ": " + vendor + ":" +
                           attribute(device, "idProduct");
        append(line, "release ", attribute(device, "bcdDevice"));
        append(line, "maker ", attribute(device, "manufacturer"));
        append(line, "product ", attribute(device, "product"));
        // A root hub's is the address of its controller.
        const bool isRootHub = device.filename().string().starts_with("usb");
        if (const std::string serial = isRootHub ? std::string() : firstLine(device / "serial"); !serial.empty()) {
            mResult.serialNumbers.push_back(oneLine(serial));
            append(line, "serial number ", mResult.serialNumbers.back());
        }
        append(line, "speed ", attribute(device, "speed"));
        append(line, "configuration ", attribute(device, "bConfigurationValue"));
        append(line, "state ", attribute(device, "power/runtime_status"));
        mResult.devices += line + "\n";
        addInterfaces(device, depth + 1);

        unsigned number = 0;
        const auto [end, error] = std::from_chars(vendor.data(), vendor.data() + vendor.size(), number, 16);
        if (error == std::errc{} && number == kTrovikVendorId) addAccess(device);
    }

    void addInterfaces(const fs::path& device, std::size_t depth) {
        std::map<std::string, std::string> lines;
        std::error_code error;
        for (fs::directory_iterator entry(device, error), end; !error && entry != end; entry.increment(error)) {
            const fs::path interface = entry->path();
            if (interface.filename().string().find(':') == std::string::npos) continue;
            std::string line = std::string(2 * depth, ' ') + interface.filename().string() + ": interface";
            for (const char* const name : {"bInterfaceClass", "bInterfaceSubClass", "bInterfaceProtocol"})
                line += " " + attribute(interface, name);
            append(line, "endpoints ", attribute(interface, "bNumEndpoints"));
            std::error_code none;
            append(line, "driver ", fs::read_symlink(interface / "driver", none).filename().string());
            lines.emplace(interface.filename(), line);
        }
        for (const auto& [name, line] : lines) mResult.devices += line + "\n";
    }

    void addAccess(const fs::path& device) {
        char node[16];
        const auto number = [&](const char* name) {
            return std::strtoul(firstLine(device / name).c_str(), nullptr, 10);
        };
        std::snprintf(node, sizeof node, "%03lu/%03lu", number("busnum") % 1000, number("devnum") % 1000);
        const fs::path path = fs::path(mPlaces.nodes) / node;
        mResult.access +=
            device.filename().string() + ": " + path.string() + ". " + permissionsText(path, mPlaces.failure) + "\n";
        const std::string numbers = firstLine(device / "dev");  // "189:4"
        std::ifstream properties(fs::path(mPlaces.udev) / "data" / ("c" + numbers));
        std::string tags;
        for (std::string line; std::getline(properties, line);) {
            if (line.starts_with("G:")) tags += " " + oneLine(line.substr(2));
        }
        mResult.access += "udev's tags of this device:" + (tags.empty() ? " none" : tags) + "\n";

        struct stat status {};
        if (::stat(path.c_str(), &status) == 0 && status.st_uid >= kFirstPerson) addUser(userName(status.st_uid));
        const std::string list = accessListText(readAccessList(path).value_or(std::string()));
        constexpr std::string_view kUser = "user:";
        for (std::size_t at = list.find(kUser); at != std::string::npos; at = list.find(kUser, at)) {
            at += kUser.size();
            addUser(list.substr(at, list.find(':', at) - at));
        }
    }

    const SurveyPlaces& mPlaces;
    SystemSurvey mResult;
    std::string mSystemId;  ///< such as "debian", by os-release
};

}  // namespace

SystemSurvey surveyOf(const SurveyPlaces& places) {
    return Survey(places).make();
}

}  // namespace platform
