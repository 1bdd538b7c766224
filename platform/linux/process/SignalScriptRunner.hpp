#pragma once

#include "platform/ScriptRunner.hpp"

#include <chrono>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

namespace platform {

/// Asks programs to quit with SIGTERM, through descriptors that stand for the processes, so that neither a process id
/// that has been given away meanwhile nor another user's process is ever hit. Any thread.
class SignalScriptRunner final : public ScriptRunner {
  public:
    /// @param patience  how long the processes get to end
    explicit SignalScriptRunner(std::chrono::milliseconds patience = std::chrono::seconds(3)) : mPatience(patience) {}

    /// One wait for all processes of the name, which ends with the last of them.
    bool executeAndReturnError(const std::string& source, const std::stop_token& stop) override;
    int system(const std::string& command) override;

  private:
    const std::chrono::milliseconds mPatience;
};

/// NAME of `tell application "NAME" to quit`; nothing when the script says anything else. Within the quotes, a
/// backslash takes away the meaning of the quote or backslash after it.
[[nodiscard]] std::optional<std::string> applicationToQuit(std::string_view source);

}  // namespace platform
