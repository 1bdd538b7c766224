#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace platform {

/// What a file system keeps about a file beyond its bytes; a path that ends in a symbolic link means the link. Results
/// are errno values, 0 for success. Any thread.
class FileAttributes {
  public:
    virtual ~FileAttributes() = default;

    /// Makes or replaces an attribute. The descriptor is borrowed.
    /// @return ENOTSUP when the file system keeps none
    /// @{
    virtual int setxattr(const std::string& path, const std::string& name, const std::string& value) = 0;
    virtual int fsetxattr(int descriptor, const std::string& name, const std::string& value) = 0;
    /// @}

    /// Reads an attribute. What `value` holds after a failure is undefined.
    /// @return ENODATA when the file has no attribute of that name, ENOTSUP when the file system keeps none
    virtual int getxattr(const std::string& path, const std::string& name, std::string& value) = 0;

    /// Takes an attribute away.
    /// @return ENODATA as above
    virtual int removexattr(const std::string& path, const std::string& name) = 0;

    /// When the file was made; nothing where the file system does not say.
    virtual std::optional<std::chrono::system_clock::time_point> birthTime(const std::string& path) = 0;
};

}  // namespace platform
