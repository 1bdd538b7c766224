#pragma once

#include <stop_token>
#include <string>

namespace platform {

/// Runs short scripts and shell commands on behalf of the user. Any thread; both operations block.
class ScriptRunner {
  public:
    virtual ~ScriptRunner() = default;

    /// Compiles and runs a script of the form `tell application "NAME" to quit`: every process of that exact name that
    /// belongs to this user is asked to end, and gets up to 3 seconds for it.
    /// @param stop  once it is requested the call returns at once, even while it waits; processes that have got the
    ///              signal by then still end
    /// @return false when the script failed: it could not be understood, or such a process is still there
    virtual bool executeAndReturnError(const std::string& source, const std::stop_token& stop) = 0;

    /// Runs a shell command.
    /// @return its exit status, -1 when no shell could be started
    virtual int system(const std::string& command) = 0;
};

}  // namespace platform
