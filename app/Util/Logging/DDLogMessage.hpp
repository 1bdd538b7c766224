#pragma once

#include "platform/WallClock.hpp"

#include <cstdint>
#include <memory>
#include <string>

/// Whether a message keeps its own copy of the file and function texts; otherwise they are literals of the program.
inline constexpr std::uint32_t DDLogMessageCopyFile = 1;
inline constexpr std::uint32_t DDLogMessageCopyFunction = 2;

/// One log call. A logger is handed a message for the time of the call and does not change it; it may copy it and keep
/// the copy.
struct DDLogMessage {
    using Date = platform::WallClock::Date;

    /// A source text as the options say: copied, or a literal that costs nothing to share.
    static std::shared_ptr<const char> sourceText(const char* text, bool copy);

    std::string fileName() const;  ///< the file's last component, without its extension
    std::string methodName() const { return function ? function.get() : ""; }
    std::string threadID() const { return std::to_string(machThreadID); }

    std::uint32_t logLevel = 0;  ///< the caller's mask
    std::uint32_t logFlag = 0;   ///< the one flag of this message
    std::int32_t logContext = 0;
    std::string logMsg;
    Date timestamp;                        ///< of the call
    std::shared_ptr<const char> file;      ///< may be null
    std::shared_ptr<const char> function;  ///< may be null
    std::int32_t lineNumber = 0;
    std::uint32_t machThreadID = 0;  ///< the kernel's number of the calling thread
    std::string queueLabel;          ///< of the queue whose block made the call, "main" elsewhere on the main thread
    std::string threadName;          ///< at the time of the call; see DDAbstractLogger::readsThreadNames()
    const void* tag = nullptr;       ///< not owned
    std::uint32_t options = 0;
};
