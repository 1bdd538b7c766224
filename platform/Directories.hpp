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
};

}  // namespace platform
