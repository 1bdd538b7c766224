#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class DDAbstractLogger;

/// The flag of one message. A level is a set of flags.
inline constexpr std::uint32_t DDLogFlagError = 1;
inline constexpr std::uint32_t DDLogFlagWarning = 2;
inline constexpr std::uint32_t DDLogFlagInfo = 4;
inline constexpr std::uint32_t DDLogFlagDebug = 8;
inline constexpr std::uint32_t DDLogFlagVerbose = 16;
inline constexpr std::uint32_t DDLogLevelAll = 31;

/// Which flags the application logs. Set once at launch, then only read; every DDLogXxx call tests it first.
extern std::atomic<std::uint32_t> ddLogLevel;

/// A class whose own level can be read and set while the program runs. Registered with DDLog::registerClass, which does
/// not own it. Both operations: any thread.
class DDRegisteredDynamicLogging {
  public:
    virtual ~DDRegisteredDynamicLogging() = default;
    virtual std::uint32_t ddLogLevel() const = 0;
    virtual void ddSetLogLevel(std::uint32_t level) = 0;
};

/// The logging core: takes log calls from any thread and hands each message, in one order, to every registered logger
/// whose level admits it. At most 1000 messages wait for delivery; a caller beyond that blocks, nothing is dropped.
/// Class operations only; the state behind them is made at first use and lives until the process has ended, so that
/// a log call in a static object's destructor is still safe. Everything is flushed at a normal exit.
/// Any thread. A logger may log from within its own delivery: such a message is queued, never waited for; a flood of
/// them beyond the bound goes to standard error.
class DDLog {
  public:
    DDLog() = delete;

    /// Formats the text on this thread and queues one message.
    /// @param asynchronous  false waits until every logger has had the message
    /// @param level         the caller's mask, carried along with the message
    /// @param flag          the one flag of this message
    /// @param file          source file, not copied: a literal, as is `function`
    /// @param tag           chooses a colour profile; null for none. Not owned
    /// @param format        printf style; null logs nothing
    /// Never throws. Blocks while 1000 messages wait.
    static void log(bool asynchronous, std::uint32_t level, std::uint32_t flag, std::int32_t context, const char* file,
                    const char* function, std::int32_t line, const void* tag, const char* format, ...)
        __attribute__((format(printf, 9, 10)));

    /// The same with an argument list.
    static void logv(bool asynchronous, std::uint32_t level, std::uint32_t flag, std::int32_t context, const char* file,
                     const char* function, std::int32_t line, const void* tag, const char* format,
                     std::va_list arguments) __attribute__((format(printf, 9, 0)));

    /// True while this thread delivers to the loggers or runs one: what is said there can't be logged without waiting
    /// for itself. Any thread.
    static bool isDelivering();

    /// Adds a logger after the messages that were logged before this call. A message reaches it when the message's flag
    /// is numerically not above the level. Null is ignored. A logger whose queue gets no thread from the system is
    /// named in the system log and works on the threads of those who log. Never blocks.
    static void addLogger(std::shared_ptr<DDAbstractLogger> logger, std::uint32_t level = DDLogLevelAll);

    /// Tells the logger on its own queue that it goes, then lets go of it. Never blocks.
    static void removeLogger(std::shared_ptr<DDAbstractLogger> logger);
    static void removeAllLoggers();

    /// Returns when every logger has written what was logged before this call. Blocks. A logger that asks for it from
    /// within a delivery gets the flush after that delivery, and no wait.
    static void flushLog();

    /// Flushes, but gives up after a few seconds where an output no longer takes anything: the process is to end.
    static void applicationWillTerminate();

    /// @name Levels of single classes. The tool registers none.
    /// @{
    static void registerClass(const std::string& name, DDRegisteredDynamicLogging* aClass);
    static void unregisterClass(const std::string& name);
    static std::vector<std::string> registeredClassNames();
    static std::vector<DDRegisteredDynamicLogging*> registeredClasses();
    static std::uint32_t logLevelForClass(const DDRegisteredDynamicLogging* aClass);  ///< -1 for null
    static std::uint32_t logLevelForClassWithName(const std::string& name);           ///< -1 where none is registered
    static void setLogLevelForClass(std::uint32_t level, DDRegisteredDynamicLogging* aClass);
    static void setLogLevelForClassWithName(std::uint32_t level, const std::string& name);
    /// @}
};

/// The application's log calls, printf style. A level that is off costs a load and a branch, and evaluates no argument.
/// Error lines return only after they are written, so that they are there when the process ends right after.
#define DD_LOG_MAYBE(asynchronous, flag, ...)                                                                \
    do {                                                                                                     \
        const std::uint32_t ddLevel_ = ddLogLevel.load(std::memory_order_relaxed);                           \
        if (ddLevel_ & (flag))                                                                               \
            DDLog::log(asynchronous, ddLevel_, flag, 0, __FILE__, __func__, __LINE__, nullptr, __VA_ARGS__); \
    } while (0)

#define DDLogError(...) DD_LOG_MAYBE(false, DDLogFlagError, __VA_ARGS__)
#define DDLogWarn(...) DD_LOG_MAYBE(true, DDLogFlagWarning, __VA_ARGS__)
#define DDLogInfo(...) DD_LOG_MAYBE(true, DDLogFlagInfo, __VA_ARGS__)
#define DDLogDebug(...) DD_LOG_MAYBE(true, DDLogFlagDebug, __VA_ARGS__)
#define DDLogVerbose(...) DD_LOG_MAYBE(true, DDLogFlagVerbose, __VA_ARGS__)
