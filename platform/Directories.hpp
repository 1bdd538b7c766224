#pragma once

#include <string>

namespace platform {

/// The user's folder for an application's own data: $XDG_DATA_HOME, else ~/.local/share. Without a trailing slash; not
/// created; empty when the user has no home folder. Reads the environment at each call. Any thread.
std::string applicationSupportDirectory();

/// The user's folder for what can be made again: $XDG_CACHE_HOME, else ~/.cache. As above.
std::string cachesDirectory();

/// The user's folder for settings: $XDG_CONFIG_HOME, else ~/.config. As above.
std::string preferencesDirectory();

}  // namespace platform
