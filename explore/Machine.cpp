#include "explore/Machine.hpp"

#include "platform/common/MachineClock.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <cerrno>
#include <fstream>
#include <system_error>

// The linker gives the system's function this name, and those at the end of this file the system's.
// NOLINTBEGIN(readability-identifier-naming,bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" ssize_t __real_write(int descriptor, const void* bytes, std::size_t size);

namespace explore {
namespace {

namespace fs = std::filesystem;

Machine* gMachine = nullptr;

fs::path pathOf(int descriptor) {
    std::error_code error;
    return fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
}

}  // namespace

Machine::Machine(simulator::Drive& drive, const std::string& folder)
    : mDrive(drive), mFolder(folder), mOffset(platform::kUnixTimeOfAbsoluteZero) {
    fs::create_directories(mFolder);
    gMachine = this;
}

bool Machine::hasRoom(int descriptor) const {
    return !mIsFull || !pathOf(descriptor).native().starts_with(mFolder);
}

void Machine::synced(int descriptor) {
    const fs::path path = pathOf(descriptor);
    if (!path.native().starts_with(mFolder) || path.extension() == ".txt") return;  // logs are nothing to go on with
    if (!fs::is_directory(path)) {
        mContents[path] = support::ReadFile(path);
        return;
    }
    mEntries[path].clear();
    for (const auto& entry : fs::directory_iterator(path)) mEntries[path][entry.path()] = entry.is_directory();
}

void Machine::cutPower() {
    fs::remove_all(mFolder);
    restore(mFolder);
}

void Machine::restore(const fs::path& folder) {
    fs::create_directory(folder);
    for (const auto& [path, isFolder] : mEntries[folder]) {
        if (isFolder) restore(path);
        if (!isFolder) std::ofstream(path) << mContents[path];
    }
}

}  // namespace explore

extern "C" {
ssize_t __wrap_write(int descriptor, const void* bytes, std::size_t size) {
    if (!explore::gMachine || explore::gMachine->hasRoom(descriptor)) return __real_write(descriptor, bytes, size);
    errno = ENOSPC;
    return -1;
}

/// Nothing has to reach a real disk.
int __wrap_fsync(int descriptor) {
    if (explore::gMachine) explore::gMachine->synced(descriptor);
    return 0;
}
}
// NOLINTEND(readability-identifier-naming,bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
