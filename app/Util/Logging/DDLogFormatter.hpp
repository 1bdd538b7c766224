#pragma once

#include <string>

struct DDLogMessage;

/// Turns a message into the text that a logger writes. Called on the logger's queue only, so it may keep state.
class DDLogFormatter {
  public:
    virtual ~DDLogFormatter() = default;

    /// Appends the text, without a line end; what stands in the string already is left alone.
    /// @return false for a message that is not to be written
    [[nodiscard]] virtual bool formatLogMessage(const DDLogMessage& message, std::string& text) = 0;

    /// Whether it looks at the message's threadName, see DDAbstractLogger::readsThreadNames(). Any thread.
    virtual bool readsThreadNames() const noexcept { return true; }
};
