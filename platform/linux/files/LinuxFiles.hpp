#pragma once

#include "platform/Directories.hpp"
#include "platform/FileAttributes.hpp"
#include "platform/Platform.hpp"

namespace platform {

/// The folders of the base-directory rules. Empty when the user has no home folder. Reads the environment at each call.
class XdgDirectories final : public Directories {
  public:
    std::string applicationSupportDirectory() const override { return userDirectory("XDG_DATA_HOME", "/.local/share"); }
    std::string cachesDirectory() const override { return userDirectory("XDG_CACHE_HOME", "/.cache"); }
    std::string preferencesDirectory() const override { return userDirectory("XDG_CONFIG_HOME", "/.config"); }

  private:
    static std::string userDirectory(const char* variable, const char* belowHome);
};

/// Extended attributes, and what statx says of a file's birth.
class LinuxFileAttributes final : public FileAttributes {
  public:
    int setxattr(const std::string& path, const std::string& name, const std::string& value) override;
    int fsetxattr(int descriptor, const std::string& name, const std::string& value) override;
    int getxattr(const std::string& path, const std::string& name, std::string& value) override;
    int removexattr(const std::string& path, const std::string& name) override;
    std::optional<std::chrono::system_clock::time_point> birthTime(const std::string& path) override;
};

/// Sets what has to do with files (folders, attributes, watches and timers) to Linux's own. These have no state and are
/// never destroyed, so that what was made with them may outlive the PlatformScope. Any thread.
[[nodiscard]] Platform withLinuxFiles(Platform platform = {});

}  // namespace platform
