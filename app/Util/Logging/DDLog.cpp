#include "app/Util/Logging/DDLog.hpp"

#include "app/Util/Logging/DDAbstractLogger.hpp"
#include "app/Util/Logging/impl/DDLogCore.hpp"
#include "platform/Platform.hpp"
#include "platform/common/QueueFrame.hpp"

#include <chrono>
#include <cstdio>
#include <exception>
#include <future>
#include <map>
#include <mutex>
#include <pthread.h>
#include <unistd.h>
#include <utility>

constinit std::atomic<std::uint32_t> ddLogLevel{DDLogFlagError | DDLogFlagWarning | DDLogFlagInfo};

namespace {

constexpr std::uint32_t kNoLevel = 0xFFFFFFFF;

// A process that ends waits this long for an output that takes nothing any more.
constexpr std::chrono::seconds kTerminationPatience(3);

// Longer texts are formatted a second time, into a string of their size.
constexpr std::size_t kUsualText = 512;

struct ClassTable {
    std::mutex lock;
    std::map<std::string, DDRegisteredDynamicLogging*> classes;  ///< behind `lock`

    static ClassTable& shared() {
        static auto& table = *new ClassTable;  // never destroyed, as the core
        return table;
    }
};

/// What the function makes of the registered classes, behind their lock.
template <typename Function>
auto withClasses(const Function& function) {
    ClassTable& table = ClassTable::shared();
    const std::lock_guard guard(table.lock);
    return function(table.classes);
}

DDRegisteredDynamicLogging* classWithName(const std::string& name) {
    return withClasses([&](const auto& classes) {
        const auto found = classes.find(name);
        return found == classes.end() ? nullptr : found->second;
    });
}

}  // namespace

void DDLog::log(bool asynchronous, std::uint32_t level, std::uint32_t flag, std::int32_t context, const char* file,
                const char* function, std::int32_t line, const void* tag, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    logv(asynchronous, level, flag, context, file, function, line, tag, format, arguments);
    va_end(arguments);
}

void DDLog::logv(bool asynchronous, std::uint32_t level, std::uint32_t flag, std::int32_t context, const char* file,
                 const char* function, std::int32_t line, const void* tag, const char* format, std::va_list arguments) {
    if (!format) return;
    char text[kUsualText];
    text[0] = '\0';
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    bool queued = false;
    DDLogMessage message;
    try {
        if (length < 0) {
            message.logMsg = format;  // an argument that can't be shown; the format itself still tells something
        } else if (static_cast<std::size_t>(length) < sizeof text) {
            message.logMsg.assign(text, static_cast<std::size_t>(length));
        } else {
            message.logMsg.resize(static_cast<std::size_t>(length));
            std::vsnprintf(message.logMsg.data(), message.logMsg.size() + 1, format, again);
        }
        static thread_local const auto thread = static_cast<std::uint32_t>(::gettid());
        message.timestamp = platform::wallClock().now();  // of the call, however long that waits for room
        message.logLevel = level;
        message.logFlag = flag;
        message.logContext = context;
        message.file = DDLogMessage::sourceText(file, false);
        message.function = DDLogMessage::sourceText(function, false);
        message.lineNumber = line;
        message.machThreadID = thread;
        message.queueLabel = platform::QueueFrame::currentLabel();
        DDLogCore& core = DDLogCore::shared();
        char name[16];
        if (core.wantsThreadNames() && ::pthread_getname_np(::pthread_self(), name, sizeof name) == 0)
            message.threadName = name;
        message.tag = tag;
        queued = core.queueLogMessage(std::move(message), asynchronous);
    } catch (const std::exception&) {
        // No memory: the beginning on standard error is better than nothing.
    }
    va_end(again);
    // What is not taken has not been moved from.
    // NOLINTNEXTLINE(bugprone-use-after-move)
    if (!queued) std::fprintf(stderr, "%s\n", message.logMsg.empty() ? text : message.logMsg.c_str());
}

void DDLog::addLogger(std::shared_ptr<DDAbstractLogger> logger, std::uint32_t level) {
    if (!logger) return;
    DDLogCore& core = DDLogCore::shared();
    if (logger->readsThreadNames()) core.setWantsThreadNames();
    core.loggingQueue().dispatch_async(
        [&core, logger = std::move(logger), level] { core.lt_addLogger(logger, level); });
}

void DDLog::removeLogger(std::shared_ptr<DDAbstractLogger> logger) {
    if (!logger) return;
    DDLogCore& core = DDLogCore::shared();
    core.loggingQueue().dispatch_async([&core, logger = std::move(logger)] { core.lt_removeLogger(logger.get()); });
}

void DDLog::removeAllLoggers() {
    DDLogCore& core = DDLogCore::shared();
    core.loggingQueue().dispatch_async([&core] { core.lt_removeAllLoggers(); });
}

bool DDLog::isDelivering() {
    return DDLogCore::shared().loggingQueue().isCurrent();
}

void DDLog::flushLog() {
    DDLogCore::shared().flushLog();
}

void DDLog::applicationWillTerminate() {
    DDLogCore& core = DDLogCore::shared();
    // A logger that ends the process from within its delivery can't be waited for.
    if (core.loggingQueue().isCurrent()) return;
    const auto flushed = std::make_shared<std::promise<void>>();
    const std::future<void> flush = flushed->get_future();
    core.loggingQueue().dispatch_async([&core, flushed] {
        core.lt_flush();
        flushed->set_value();
    });
    flush.wait_for(kTerminationPatience);
}

void DDLog::registerClass(const std::string& name, DDRegisteredDynamicLogging* aClass) {
    if (aClass) withClasses([&](auto& classes) { classes[name] = aClass; });
}

void DDLog::unregisterClass(const std::string& name) {
    withClasses([&](auto& classes) { classes.erase(name); });
}

std::vector<std::string> DDLog::registeredClassNames() {
    std::vector<std::string> names;
    withClasses([&](const auto& classes) {
        for (const auto& each : classes) names.push_back(each.first);
    });
    return names;
}

std::vector<DDRegisteredDynamicLogging*> DDLog::registeredClasses() {
    std::vector<DDRegisteredDynamicLogging*> all;
    withClasses([&](const auto& classes) {
        for (const auto& each : classes) all.push_back(each.second);
    });
    return all;
}

std::uint32_t DDLog::logLevelForClass(const DDRegisteredDynamicLogging* aClass) {
    return aClass ? aClass->ddLogLevel() : kNoLevel;
}

void DDLog::setLogLevelForClass(std::uint32_t level, DDRegisteredDynamicLogging* aClass) {
    if (aClass) aClass->ddSetLogLevel(level);
}

std::uint32_t DDLog::logLevelForClassWithName(const std::string& name) {
    return logLevelForClass(classWithName(name));
}

void DDLog::setLogLevelForClassWithName(std::uint32_t level, const std::string& name) {
    setLogLevelForClass(level, classWithName(name));
}
