#pragma once

#include <string>
#include <vector>

namespace platform {

/// What this runs on, for the log: a line each for the system by its name, the kernel and the USB library.
/// @param osReleases  os-release files; the first that is there is read
/// Never throws on what it finds. Any thread.
std::vector<std::string> describeSystem(const std::vector<std::string>& osReleases = {"/etc/os-release",
                                                                                      "/usr/lib/os-release"});

}  // namespace platform
