#include "FIL/FIL_File.hpp"

#include "GLO/GLO_Exception.hpp"
#include "GLO/GLO_String.hpp"
#include "platform/common/FileDescriptor.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace fil {
namespace {

constexpr mode_t gcNewFileMode = 0666;  // the user's mask takes away what it wants

/// In the order of OpenMode_t.
constexpr int gcOpenFlags[] = {O_RDONLY, O_WRONLY | O_CREAT, O_WRONLY | O_CREAT | O_APPEND,
                               O_RDWR,   O_RDWR | O_CREAT,   O_RDWR | O_CREAT | O_APPEND};
static_assert(std::size(gcOpenFlags) == 6);  // as many as there are modes

bool Empties(OpenMode_t mode) {
    return mode == OpenMode_t::Write || mode == OpenMode_t::ReadWriteCreate;
}

/// The advisory lock that a share mode takes; 0 for none.
int LockOperation(OpenMode_t mode, ShareMode_t share) {
    if (share == ShareMode_t::DenyNone) return 0;
    const bool isShared = share == ShareMode_t::DenyWrite && mode == OpenMode_t::Read;
    return (isShared ? LOCK_SH : LOCK_EX) | LOCK_NB;
}

std::string Narrow(const std::wstring& path) {
    return glo::string(path, glo::gcUtf8Encoding);
}

}  // namespace

void File_t::Open(const std::wstring& path, OpenMode_t mode, ShareMode_t share) {
    Close();
    mPath = path;
    const int flags = gcOpenFlags[static_cast<std::size_t>(mode)] | O_CLOEXEC;
    mDescriptor = platform::uninterrupted([&] { return ::open(Narrow(path).c_str(), flags, gcNewFileMode); });
    if (!IsOpen()) Fail(__LINE__, errno);

    // A file that others hold must not be emptied, so that comes after the lock.
    int error = 0;
    struct stat status {};
    const int lock = LockOperation(mode, share);
    if (::fstat(mDescriptor, &status) != 0)
        error = errno;
    else if (S_ISDIR(status.st_mode))
        error = EISDIR;
    else if (lock != 0 && ::flock(mDescriptor, lock) != 0)
        error = errno;
    else if (Empties(mode) && S_ISREG(status.st_mode) && ::ftruncate(mDescriptor, 0) != 0)
        error = errno;
    if (error != 0) {
        Close();
        Fail(__LINE__, error);
    }
}

void File_t::Close() noexcept {
    if (IsOpen()) ::close(std::exchange(mDescriptor, -1));
}

std::size_t File_t::Read(void* destination, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = platform::uninterrupted(
            [&] { return ::read(mDescriptor, static_cast<char*>(destination) + done, size - done); });
        if (count < 0) Fail(__LINE__, errno);
        if (count == 0) break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

void File_t::Write(const void* source, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = platform::uninterrupted(
            [&] { return ::write(mDescriptor, static_cast<const char*>(source) + done, size - done); });
        if (count < 0) Fail(__LINE__, errno);
        done += static_cast<std::size_t>(count);
    }
}

std::uint64_t File_t::Seek(std::int64_t offset, From_t from) {
    const off_t position = ::lseek(mDescriptor, offset, static_cast<int>(from));
    if (position < 0) Fail(__LINE__, errno);
    return static_cast<std::uint64_t>(position);
}

std::uint64_t File_t::Position() const {
    const off_t position = ::lseek(mDescriptor, 0, SEEK_CUR);
    if (position < 0) Fail(__LINE__, errno);
    return static_cast<std::uint64_t>(position);
}

std::uint64_t File_t::Size() const {
    struct stat status {};
    if (::fstat(mDescriptor, &status) != 0) Fail(__LINE__, errno);
    return static_cast<std::uint64_t>(status.st_size);
}

bool File_t::Exists(const std::wstring& path) {
    return ::access(Narrow(path).c_str(), F_OK) == 0;
}

void File_t::Fail(unsigned short line, int error) const {
    const std::string reason = std::generic_category().message(error) + ". ";
    throw glo::FileError_t("libs/FIL/FIL_File", line, glo::wstring(reason, glo::gcUtf8Encoding), mPath);
}

}  // namespace fil
