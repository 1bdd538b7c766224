#include "app/Util/Logging/DDLog.hpp"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "app/Util/Logging/DDAbstractLogger.hpp"
#include "app/Util/Logging/impl/DDLogCore.hpp"
#include "app/Util/Logging/impl/DDLogFormat.hpp"
#include "platform/SerialQueue.hpp"

constinit std::atomic<std::uint32_t> ddLogLevel{DDLogFlagError | DDLogFlagWarning | DDLogFlagInfo};

namespace {

constexpr std::uint32_t kNoLevel = 0xFFFFFFFF;

// A process that ends waits this long for an output that takes nothing any more.
constexpr std::chrono::seconds kTerminationPatience(3);

// Longer texts take a detour over the heap.
constexpr std::size_t kUsualText = 512;

struct ClassTable {
    std::mutex lock;
    std::map<std::string, DDRegisteredDynamicLogging*> classes;  ///< behind `lock`

    static ClassTable& shared() {
        static auto& table = *new ClassTable;  // never destroyed, as the core
        return table;
    }
};

/// Null where the core can't be made (its thread can't start). Logging is then reduced to the standard error stream,
/// and the next call tries again.
DDLogCore* coreOrNull() noexcept {
    try {
        return &DDLogCore::shared();
    } catch (...) {
        return nullptr;
    }
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
    DDLogDraft draft{level, flag, context, file, function, line, tag, 0, {}};
    char usual[kUsualText];
    std::string longer;
    std::va_list again, onceMore;
    va_copy(again, arguments);
    va_copy(onceMore, arguments);
    std::size_t plainLength = 0;
    if (ddFormatPlainly(usual, sizeof usual, plainLength, format, arguments)) {
        draft.text = {usual, plainLength};
    } else if (const int length = std::vsnprintf(usual, sizeof usual, format, again); length < 0) {
        draft.text = format;  // an argument that can't be shown; the format itself still tells something
    } else if (static_cast<std::size_t>(length) < sizeof usual) {
        draft.text = {usual, static_cast<std::size_t>(length)};
    } else {
        draft.text = {usual, sizeof usual - 1};
        try {
            longer.resize(static_cast<std::size_t>(length));
            std::vsnprintf(longer.data(), longer.size() + 1, format, onceMore);
            draft.text = longer;
        } catch (const std::exception&) {
            // No memory for all of it: its beginning is better than nothing.
        }
    }
    va_end(onceMore);
    va_end(again);
    if (DDLogCore* const core = coreOrNull()) return core->queueLogMessage(draft, asynchronous);
    std::fprintf(stderr, "%.*s\n", static_cast<int>(draft.text.size()), draft.text.data());
}

void DDLog::addLogger(std::shared_ptr<DDAbstractLogger> logger, std::uint32_t level) {
    DDLogCore* const core = coreOrNull();
    if (!logger || !core) return;
    core->loggingQueue().dispatch_async(
        [core, logger = std::move(logger), level] { core->lt_addLogger(logger, level); });
}

void DDLog::removeLogger(std::shared_ptr<DDAbstractLogger> logger) {
    DDLogCore* const core = coreOrNull();
    if (!logger || !core) return;
    core->loggingQueue().dispatch_async([core, logger = std::move(logger)] { core->lt_removeLogger(logger.get()); });
}

void DDLog::removeAllLoggers() {
    if (DDLogCore* const core = coreOrNull())
        core->loggingQueue().dispatch_async([core] { core->lt_removeAllLoggers(); });
}

bool DDLog::isDelivering() {
    // A logger's queue reports an exception from its block after the block: no longer within the delivery, but on a
    // thread that the next delivery waits for.
    DDLogCore* const core = coreOrNull();
    return !core || core->loggingQueue().isCurrent() || *platform::SerialQueue::currentLabel() != '\0';
}

void DDLog::flushLog() {
    if (DDLogCore* const core = coreOrNull()) core->flushLog();
}

void DDLog::applicationWillTerminate() {
    struct Progress {
        std::mutex lock;
        std::condition_variable changed;
        bool flushed = false;  ///< behind `lock`
    };
    DDLogCore* const core = coreOrNull();
    // A logger that ends the process from within its delivery can't be waited for.
    if (!core || core->loggingQueue().isCurrent()) return;
    const auto progress = std::make_shared<Progress>();
    core->loggingQueue().dispatch_async([core, progress] {
        core->lt_flush();
        const std::lock_guard guard(progress->lock);
        progress->flushed = true;
        progress->changed.notify_all();
    });
    std::unique_lock guard(progress->lock);
    progress->changed.wait_for(guard, kTerminationPatience, [&] { return progress->flushed; });
}

void DDLog::registerClass(const std::string& name, DDRegisteredDynamicLogging* aClass) {
    ClassTable& table = ClassTable::shared();
    const std::lock_guard guard(table.lock);
    if (aClass) table.classes[name] = aClass;
}

void DDLog::unregisterClass(const std::string& name) {
    ClassTable& table = ClassTable::shared();
    const std::lock_guard guard(table.lock);
    table.classes.erase(name);
}

std::vector<std::string> DDLog::registeredClassNames() {
    ClassTable& table = ClassTable::shared();
    const std::lock_guard guard(table.lock);
    std::vector<std::string> names;
    for (const auto& [name, aClass] : table.classes) names.push_back(name);
    return names;
}

std::vector<DDRegisteredDynamicLogging*> DDLog::registeredClasses() {
    ClassTable& table = ClassTable::shared();
    const std::lock_guard guard(table.lock);
    std::vector<DDRegisteredDynamicLogging*> classes;
    for (const auto& [name, aClass] : table.classes) classes.push_back(aClass);
    return classes;
}

std::uint32_t DDLog::logLevelForClass(const DDRegisteredDynamicLogging* aClass) {
    return aClass ? aClass->ddLogLevel() : kNoLevel;
}

void DDLog::setLogLevelForClass(std::uint32_t level, DDRegisteredDynamicLogging* aClass) {
    if (aClass) aClass->ddSetLogLevel(level);
}

namespace {

DDRegisteredDynamicLogging* classWithName(const std::string& name) {
    ClassTable& table = ClassTable::shared();
    const std::lock_guard guard(table.lock);
    const auto found = table.classes.find(name);
    return found == table.classes.end() ? nullptr : found->second;
}

}  // namespace

std::uint32_t DDLog::logLevelForClassWithName(const std::string& name) {
    return logLevelForClass(classWithName(name));
}

void DDLog::setLogLevelForClassWithName(std::uint32_t level, const std::string& name) {
    setLogLevelForClass(level, classWithName(name));
}
