#pragma once

#include "platform/common/FileDescriptor.hpp"

#include <cstddef>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>

namespace platform {

/// Makes a folder for the user alone, in a parent that is there. Says nothing: what can't be made shows when a file in
/// it is opened. Any thread.
inline void makePrivateFolder(const std::string& path) noexcept {
    mkdir(path.c_str(), S_IRWXU);
}

/// Makes a folder and its missing parents, for the user alone. Says nothing either. Any thread.
inline void makePrivateFolders(const std::string& path) {
    for (std::size_t end = 0; end != std::string::npos;) {
        end = path.find('/', end + 1);
        makePrivateFolder(path.substr(0, end));
    }
}

/// Closes a folder of the program's own to everybody but its user: an earlier version may have made it for all to read.
/// Says nothing either. Any thread.
inline void closeFolder(const std::string& path) noexcept {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || (status.st_mode & (S_IRWXG | S_IRWXO)) == 0) return;
    chmod(path.c_str(), status.st_mode & S_IRWXU);
}

/// Makes an empty file for the user alone where there is none; one that is there stays as it is. Says nothing either.
/// Any thread.
inline void makePrivateFile(const std::string& path) noexcept {
    const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
}

}  // namespace platform
