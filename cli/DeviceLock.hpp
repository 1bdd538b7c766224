#pragma once

#include "platform/common/FileDescriptor.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace twin {

/// Keeps every other run of this program away from one device: a lock on a file named after the port or the unit id.
/// It goes with the process, however that ends, and is never unlinked, since somebody may be waiting for that very
/// file. Any thread.
class DeviceLock {
  public:
    /// @param folder  where the files are; empty for no locks at all
    /// @return nothing when another run has the device; a lock that holds nothing where no file can be made
    [[nodiscard]] static std::optional<DeviceLock> take(const std::string& folder, std::string_view key);

    /// /run/lock, else the user's runtime folder, else none (empty).
    [[nodiscard]] static std::string usualFolder();

  private:
    explicit DeviceLock(platform::FileDescriptor file) : mFile(std::move(file)) {}

    platform::FileDescriptor mFile;
};

/// A port or unit id as part of a file's name.
[[nodiscard]] std::string fileNameOf(std::string_view key);

}  // namespace twin
