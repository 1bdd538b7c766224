#pragma once

#include <string>

namespace platform {

/// The user's folders. Without a trailing slash; not created; empty where the user has none. Any thread.
class Directories {
  public:
    virtual ~Directories() = default;

    /// For an application's own data.
    virtual std::string applicationSupportDirectory() const = 0;

    /// For what can be made again.
    virtual std::string cachesDirectory() const = 0;

    /// For settings.
    virtual std::string preferencesDirectory() const = 0;

    /// Makes a folder for the user alone, in a parent that is there. Says nothing: what can't be made shows when a file
    /// in it is opened.
    virtual void createDirectoryAtPath(const std::string& path) const noexcept = 0;
};

}  // namespace platform
