#pragma once

#include "platform/common/FileDescriptor.hpp"

#include <optional>
#include <string>
#include <string_view>

/// Keeps every other run of this program away from one device: a lock on a file named after the port or the unit id.
/// It goes with the process, however that ends, and is never unlinked, since somebody may be waiting for that very
/// file. Any thread.
class DeviceLock {
  public:
    /// @return nothing when somebody else has the device, be it this process. Where there is no folder, or where the
    ///         file can't be opened, is no regular file or can't be locked, a lock that holds nothing; all but the
    ///         missing folder is logged
    /// Never blocks.
    [[nodiscard]] static std::optional<DeviceLock> take(std::string_view key);

    /// Of the port that a registry path ends with.
    [[nodiscard]] static std::optional<DeviceLock> takePort(std::string_view registryPath) {
        return take(registryPath.substr(registryPath.find_last_of('/') + 1));
    }

    /// /run/lock, else the user's runtime folder, else none (empty).
    [[nodiscard]] static std::string usualFolder();

    /// A port or unit id as part of a file's name.
    [[nodiscard]] static std::string fileNameOf(std::string_view key);

  private:
    explicit DeviceLock(platform::FileDescriptor file) : mFile(std::move(file)) {}
    static DeviceLock withoutLock(const std::string& path, int error);  ///< logs why

    platform::FileDescriptor mFile;
};
