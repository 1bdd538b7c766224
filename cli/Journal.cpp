#include "cli/Journal.hpp"

#include "app/TrovikMode/DeviceLock.hpp"
#include "platform/common/FileDescriptor.hpp"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace twin {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPrefix = "held-";

void syncFolder(const std::string& folder) {
    const platform::FileDescriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (descriptor.get() >= 0) ::fsync(descriptor.get());
}

}  // namespace

std::string Journal::pathOf(const Entry& entry) const {
    const std::string key =
        entry.unit ? "unit-" + std::to_string(entry.unit) : "port-" + DeviceLock::fileNameOf(entry.port);
    return mFolder + "/" + std::string(kPrefix) + key;
}

bool Journal::held(const Entry& entry) const {
    if (mFolder.empty()) return false;
    std::error_code ignored;
    fs::create_directories(mFolder, ignored);
    const std::string path = pathOf(entry), text = entry.port + "\n" + std::to_string(entry.unit) + "\n";
    const platform::FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const auto size = static_cast<ssize_t>(text.size());
    // Written over what may be there, which says almost the same: emptied first, it would be lost where this fails.
    if (file.get() < 0 || ::write(file.get(), text.data(), text.size()) != size || ::ftruncate(file.get(), size) < 0 ||
        ::fsync(file.get()) < 0)
        return false;
    // A folder that has just been made, be it for another device, is only found again once those above have its name.
    for (fs::path above = mFolder;; above = above.parent_path()) {
        syncFolder(above.empty() ? "." : above.string());
        if (!above.has_relative_path()) break;
    }
    return true;
}

void Journal::released(const Entry& entry) const {
    if (mFolder.empty()) return;
    if (::unlink(pathOf(entry).c_str()) == 0) syncFolder(mFolder);
}

bool Journal::has(const Entry& entry) const {
    std::error_code ignored;
    return !mFolder.empty() && fs::exists(pathOf(entry), ignored);
}

std::vector<Journal::Entry> Journal::entries() const {
    std::vector<Entry> entries;
    std::error_code error;
    if (mFolder.empty()) return entries;
    for (fs::directory_iterator file(mFolder, error), end; !error && file != end; file.increment(error)) {
        if (!file->path().filename().string().starts_with(kPrefix)) continue;
        std::ifstream stream(file->path());
        Entry entry;
        if (std::getline(stream, entry.port) && stream >> entry.unit) entries.push_back(entry);
    }
    std::ranges::sort(entries, {}, &Entry::port);
    return entries;
}

std::string Journal::usualFolder() {
    const auto variable = [](const char* name) {
        const char* const value = std::getenv(name);
        return value ? std::string(value) : std::string();
    };
    if (const std::string state = variable("XDG_STATE_HOME"); !state.empty()) return state + "/trovik-reset";
    if (const std::string home = variable("HOME"); !home.empty()) return home + "/.local/state/trovik-reset";
    if (const std::string runtime = variable("XDG_RUNTIME_DIR"); !runtime.empty()) return runtime + "/trovik-reset";
    return {};
}

}  // namespace twin
