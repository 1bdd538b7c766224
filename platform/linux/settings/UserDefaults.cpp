#include "platform/linux/settings/UserDefaults.hpp"

#include "platform/Platform.hpp"
#include "platform/common/PrivateFolder.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "platform/linux/settings/PropertyListFile.hpp"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <strings.h>
#include <utility>
#include <variant>

namespace platform {
namespace {

using Dictionary = PropertyList::Dictionary;
using State = PropertyListFile::State;

/// Reads a file; a damaged one is moved away, or the link to it, for what lies in another folder is the user's.
Dictionary read(const std::string& path) {
    auto file = readPropertyListFile(path);
    std::string aside;
    if (file.state == State::Damaged) {
        FileReplacement replacement(path, FileReplacement::Of::Link);
        file = readPropertyListFile(path);  // under the lock: a repair that came first must be seen
        if (file.state == State::Damaged) {
            aside = replacement.setAside();
            if (aside.empty()) file.state = State::Unreadable;
        }
    }
    // Behind the lock: the system log waits for a console that takes nothing, and nobody else should.
    if (!aside.empty()) NSLog("TRV-503 %s is no property list; it was kept as %s.\n", path.c_str(), aside.c_str());
    if (file.state == State::Unreadable) NSLog("TRV-503 %s can't be read.\n", path.c_str());
    return std::move(file.contents);
}

/// The caller's contents, with what others wrote since `base` in the keys that the caller left alone.
Dictionary merged(const Dictionary& base, const Dictionary& caller, const Dictionary& file) {
    Dictionary result;
    for (const auto& [key, value] : caller) {
        const PropertyList* before = valueIn(base, key);
        const bool isUntouched = before && *before == value;
        if (!isUntouched) {
            result.emplace(key, value);
        } else if (const PropertyList* now = valueIn(file, key)) {
            result.emplace(key, *now);
        }
    }
    for (const auto& [key, value] : file) {
        if (!valueIn(caller, key) && !valueIn(base, key)) result.emplace(key, value);
    }
    return result;
}

struct Truth {
    bool operator()(bool value) const { return value; }
    bool operator()(std::int64_t value) const { return value != 0; }
    bool operator()(double value) const { return value != 0; }
    bool operator()(const std::string& text) const {
        return strcasecmp(text.c_str(), "YES") == 0 || strcasecmp(text.c_str(), "true") == 0;
    }
    template <typename Other>
    bool operator()(const Other&) const {
        return false;
    }
};

struct Integer {
    std::int64_t operator()(bool value) const { return value ? 1 : 0; }
    std::int64_t operator()(std::int64_t value) const { return value; }
    std::int64_t operator()(double value) const {
        // Converting a number that doesn't fit would be undefined.
        constexpr double kLimit = 9223372036854775808.0;  // 2 to the 63rd
        if (std::isnan(value)) return 0;
        if (value >= kLimit) return std::numeric_limits<std::int64_t>::max();
        if (value < -kLimit) return std::numeric_limits<std::int64_t>::min();
        return static_cast<std::int64_t>(value);
    }
    std::int64_t operator()(const std::string& text) const { return std::strtoll(text.c_str(), nullptr, 10); }
    template <typename Other>
    std::int64_t operator()(const Other&) const {
        return 0;
    }
};

}  // namespace

UserDefaults::UserDefaults(std::string domain, std::string folder)
    : mDomain(std::move(domain)), mFolder(std::move(folder)) {
    if (mFolder.empty()) {
        if (const std::string preferences = XdgDirectories().preferencesDirectory(); !preferences.empty()) {
            mFolder = preferences + "/Trovik";
        }
    }
}

std::string UserDefaults::pathOf(const std::string& domain) const {
    // The domain becomes a file name, so it must not lead to another folder.
    if (domain.empty() || mFolder.empty() || domain.find('/') != std::string::npos) return {};
    return mFolder + '/' + domain + ".plist";
}

std::optional<PropertyList> UserDefaults::objectForKey(const std::string& key) const {
    const std::string path = pathOf(mDomain);
    if (path.empty()) return std::nullopt;
    const Dictionary contents = read(path);
    const PropertyList* const value = valueIn(contents, key);
    return value ? std::optional(*value) : std::nullopt;
}

bool UserDefaults::boolForKey(const std::string& key) const {
    const auto object = objectForKey(key);
    return object && std::visit(Truth{}, object->value);
}

std::int64_t UserDefaults::integerForKey(const std::string& key) const {
    const auto object = objectForKey(key);
    return object ? std::visit(Integer{}, object->value) : 0;
}

Dictionary UserDefaults::persistentDomainForName(const std::string& domain) const {
    const std::string path = pathOf(domain);
    if (path.empty()) return {};
    Dictionary contents = read(path);
    const std::lock_guard lock(mMutex);
    return mLastRead[domain] = std::move(contents);
}

bool UserDefaults::setPersistentDomain(const Dictionary& contents, const std::string& domain) {
    const std::string path = pathOf(domain);
    if (path.empty()) return false;
    makePrivateFolders(mFolder);
    read(path);  // a damaged file is moved away before the lock is taken: behind a link that is another one
    const bool isWritten = mergeIntoFile(contents, domain, path);
    if (!isWritten) NSLog("TRV-503 %s can't be written.\n", path.c_str());
    return isWritten;
}

bool UserDefaults::mergeIntoFile(const Dictionary& contents, const std::string& domain, const std::string& path) {
    FileReplacement replacement(path);
    if (!replacement.isLocked()) return false;
    const PropertyListFile file = readPropertyListFile(replacement.path());
    const bool isSound = file.state == State::Read || file.state == State::Absent;
    Dictionary result;
    {
        const std::lock_guard lock(mMutex);
        const auto base = mLastRead.find(domain);
        result = merged(base == mLastRead.end() ? file.contents : base->second, contents, file.contents);
    }
    const std::string bytes = formatPropertyList({result});
    // What can't be read back as it is would count as damage at the next start or come back as something else.
    if (!isSound || parsePropertyList(bytes) != PropertyList{result} || !replacement.commit(bytes)) return false;
    const std::lock_guard lock(mMutex);
    if (const auto base = mLastRead.find(domain); base != mLastRead.end()) base->second = contents;
    return true;
}

}  // namespace platform
