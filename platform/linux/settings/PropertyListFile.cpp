#include "platform/linux/settings/PropertyListFile.hpp"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace platform {
namespace {

constexpr mode_t kPrivate = S_IRUSR | S_IWUSR;

/// True when the path still names the open file: a writer before us may have renamed or removed it while we waited.
bool names(const std::string& path, int descriptor) {
    struct stat byPath {};
    struct stat byDescriptor {};
    return stat(path.c_str(), &byPath) == 0 && fstat(descriptor, &byDescriptor) == 0 &&
           byPath.st_dev == byDescriptor.st_dev && byPath.st_ino == byDescriptor.st_ino;
}

}  // namespace

PropertyListFile readPropertyListFile(const std::string& path) {
    using State = PropertyListFile::State;
    const FileDescriptor file(
        uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
    if (!file) return {errno == ENOENT || errno == ENOTDIR ? State::Absent : State::Unreadable, {}};
    struct stat status {};
    if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {State::Unreadable, {}};
    std::string bytes;
    char buffer[16384];
    while (bytes.size() <= kLargestPropertyList) {
        const ssize_t count = uninterrupted([&] { return read(file.get(), buffer, sizeof buffer); });
        if (count < 0) return {State::Unreadable, {}};
        if (count == 0) break;
        bytes.append(buffer, static_cast<std::size_t>(count));
    }
    auto list = parsePropertyList(bytes);
    if (!list || !list->dictionary()) return {State::Damaged, {}};
    return {State::Read, std::get<PropertyList::Dictionary>(std::move(list->value))};
}

FileReplacement::FileReplacement(const std::string& path, Of of) {
    std::error_code error;
    const auto target = std::filesystem::canonical(path, error);
    mPath = of == Of::Link || error ? path : target.string();
    const auto slash = mPath.rfind('/');
    mFolder = slash == std::string::npos ? "." : mPath.substr(0, slash + 1);
    mTemporary = mFolder + "/." + mPath.substr(slash + 1) + ".new";
    constexpr int kFlags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    for (;;) {
        mDescriptor = FileDescriptor(uninterrupted([&] { return open(mTemporary.c_str(), kFlags, kPrivate); }));
        if (!mDescriptor) return;
        const bool isLocked = uninterrupted([&] { return flock(mDescriptor.get(), LOCK_EX); }) == 0;
        const bool isOurs = names(mTemporary, mDescriptor.get());
        if (isLocked && isOurs) return;
        if (!isLocked && isOurs) unlink(mTemporary.c_str());
        mDescriptor.reset();
        if (!isLocked) return;  // this file system has no locks
    }
}

FileReplacement::~FileReplacement() {
    if (!mDescriptor) return;
    // Removed before the lock goes, or it would be the next writer's file that is removed.
    if (names(mTemporary, mDescriptor.get())) unlink(mTemporary.c_str());
}

bool FileReplacement::write(std::string_view bytes) {
    struct stat old {};
    if (stat(mPath.c_str(), &old) == 0 && fchmod(mDescriptor.get(), old.st_mode & 07777) != 0) return false;
    if (ftruncate(mDescriptor.get(), 0) != 0) return false;
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count = uninterrupted([&] {
            return pwrite(mDescriptor.get(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        });
        if (count <= 0) return false;
        done += static_cast<std::size_t>(count);
    }
    return fsync(mDescriptor.get()) == 0;
}

bool FileReplacement::commit(std::string_view bytes) {
    if (!mDescriptor || !write(bytes)) return false;
    if (rename(mTemporary.c_str(), mPath.c_str()) != 0) return false;
    // The new name has to reach the disk too. Some file systems can't sync a folder; the contents are there all the
    // same.
    const FileDescriptor folder(open(mFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder) fsync(folder.get());
    return true;
}

std::string FileReplacement::setAside() {
    if (!mDescriptor) return {};
    constexpr int kMostKept = 1000;
    for (int i = 1; i <= kMostKept; ++i) {
        std::string aside = mPath + ".damaged-" + std::to_string(i);
        if (renameat2(AT_FDCWD, mPath.c_str(), AT_FDCWD, aside.c_str(), RENAME_NOREPLACE) == 0) return aside;
        if (errno == EEXIST) continue;
        // Not every file system can refuse to replace; a hard link can't replace anything either.
        if (errno != EINVAL || link(mPath.c_str(), aside.c_str()) != 0) {
            if (errno == EEXIST) continue;
            return {};
        }
        unlink(mPath.c_str());
        return aside;
    }
    return {};
}

}  // namespace platform
