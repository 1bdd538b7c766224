#pragma once

#include <string>
#include <sys/stat.h>

namespace platform {

/// Makes a folder for the user alone, in a parent that is there. Says nothing: what can't be made shows when a file in
/// it is opened. Any thread.
inline void makePrivateFolder(const std::string& path) noexcept {
    mkdir(path.c_str(), S_IRWXU);
}

}  // namespace platform
