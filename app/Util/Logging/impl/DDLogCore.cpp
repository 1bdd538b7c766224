#include "app/Util/Logging/impl/DDLogCore.hpp"

#include "app/Util/Logging/DDLog.hpp"
#include "platform/Platform.hpp"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <future>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::size_t kInitialLoggers = 4;

// From here on the loggers of a batch are worth a thread each; below it the hop costs more than the work.
constexpr std::size_t kParallelBatch = 64;

pid_t gOwnProcess = 0;

void flushAtExit() {
    // A forked child that exits has none of the threads, and none of the messages are its own.
    if (::getpid() == gOwnProcess) DDLog::applicationWillTerminate();
}

/// Writing to a closed pipe or beyond a file-size limit is to be an error of the write, not the end of the process.
void ignoreWhereDefault(int signal) {
    struct sigaction action {};
    if (::sigaction(signal, nullptr, &action) == 0 && !(action.sa_flags & SA_SIGINFO) && action.sa_handler == SIG_DFL)
        ::signal(signal, SIG_IGN);
}

/// Blocks on the loggers' queues that are waited for together, whatever goes wrong with submitting one of them: they
/// read what the waiting thread owns.
class Group {
  public:
    explicit Group(const DDLogQueue& loggingQueue) : mLoggingQueue(loggingQueue) {}
    ~Group() {
        for (const auto& member : mMembers) member.wait();
    }
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;

    void dispatch_async(platform::DispatchQueue& queue, std::function<void()> block) {
        // The promise goes with the block, and so ends the wait also where that is dropped.
        const auto done = std::make_shared<std::promise<void>>();
        mMembers.push_back(done->get_future());
        const auto member = [this, block = std::move(block), done] {
            mLoggingQueue.performWithin(block);
            done->set_value();
        };
        try {
            queue.dispatch_async(member);
        } catch (const std::system_error&) {
            queue.dispatch_sync(member);  // no thread for it: on this one
        }
    }

  private:
    const DDLogQueue& mLoggingQueue;
    std::vector<std::future<void>> mMembers;
};

bool admits(const DDLoggerNode& node, const DDLogMessage& message) {
    return message.logFlag <= node.logLevel;
}

/// Hands over those of the messages that the logger's level admits, on the logger's queue.
void deliverToNode(const DDLoggerNode& node, std::span<const DDLogMessage* const> messages) {
    const auto admitted = [&](const DDLogMessage* message) { return admits(node, *message); };
    if (std::ranges::all_of(messages, admitted)) return node.logger->logMessages(messages);
    std::vector<const DDLogMessage*> some;
    std::ranges::copy_if(messages, std::back_inserter(some), admitted);
    node.logger->logMessages(some);
}

}  // namespace

DDLogCore& DDLogCore::shared() {
    static DDLogCore& core = [&]() -> DDLogCore& {
        auto* made = new DDLogCore(std::max(1U, std::thread::hardware_concurrency()));
        ignoreWhereDefault(SIGPIPE);
        ignoreWhereDefault(SIGXFSZ);
        gOwnProcess = ::getpid();
        std::atexit(flushAtExit);
        return *made;
    }();
    return core;
}

DDLogCore::DDLogCore(unsigned numProcessors) : mNumProcessors(numProcessors), mLoggingQueue("cocoa.modogriomu", *this) {
    mLoggers.reserve(kInitialLoggers);
}

DDLogCore::~DDLogCore() {
    mLoggingQueue.dispatch_sync([this] { lt_removeAllLoggers(); });
}

std::size_t DDLogCore::batchLimit() const {
    return std::ranges::all_of(mLoggers, [](const auto& node) { return node.logger->takesBatches(); })
               ? DDLogQueue::kMaxBatch
               : 1;
}

void DDLogCore::lt_addLogger(std::shared_ptr<DDAbstractLogger> logger, std::uint32_t level) {
    DDLoggerNode node;
    node.loggerQueue = logger->loggerQueue();
    if (!node.loggerQueue) node.loggerQueue = std::make_shared<platform::SerialQueue>(logger->loggerName());
    node.logLevel = level;
    const auto welcome = [this, logger] { mLoggingQueue.performWithin([&] { logger->didAddLogger(); }); };
    try {
        node.loggerQueue->dispatch_async(welcome);
    } catch (const std::system_error& error) {
        platform::NSLog("TRV-506 The logger %s gets no thread and works on those of its callers: %s\n",
                        logger->loggerName().c_str(), error.what());
        node.loggerQueue->dispatch_sync(welcome);
    }
    node.logger = std::move(logger);
    mLoggers.push_back(std::move(node));
}

/// Waits for it: once the logging queue has come past a removal, the logger no longer works.
void DDLogCore::farewell(const DDLoggerNode& node) {
    node.loggerQueue->dispatch_sync(
        [this, logger = node.logger] { mLoggingQueue.performWithin([&] { logger->willRemoveLogger(); }); });
}

void DDLogCore::lt_removeLogger(const DDAbstractLogger* logger) {
    const auto found = std::ranges::find_if(mLoggers, [&](const auto& node) { return node.logger.get() == logger; });
    if (found == mLoggers.end()) return;
    farewell(*found);
    mLoggers.erase(found);
}

void DDLogCore::lt_removeAllLoggers() {
    for (const DDLoggerNode& node : mLoggers) farewell(node);
    mLoggers.clear();
}

void DDLogCore::flushLog() {
    if (mLoggingQueue.isCurrent()) return mLoggingQueue.dispatch_async([this] { lt_flush(); });
    mLoggingQueue.dispatch_sync([this] { lt_flush(); });
}

void DDLogCore::lt_flush() {
    Group group(mLoggingQueue);
    for (const DDLoggerNode& node : mLoggers)
        group.dispatch_async(*node.loggerQueue, [&node] { node.logger->flush(); });
}

/// One message, or a batch when all loggers take batches. A logger that takes only single messages always gets a thread
/// of its own beside the others, which may be waiting for it; one that takes batches shares this thread when the batch
/// is small.
void DDLogCore::deliver(std::span<const DDLogMessage* const> messages) {
    mReceivers.clear();
    for (const DDLoggerNode& node : mLoggers)
        if (std::ranges::any_of(messages, [&](const auto* message) { return admits(node, *message); }))
            mReceivers.push_back(&node);
    if (mReceivers.empty()) return;

    const bool parallel = mNumProcessors >= 2 && (batchLimit() == 1 || messages.size() >= kParallelBatch);
    const std::size_t here = parallel ? 1 : mReceivers.size();
    Group group(mLoggingQueue);
    for (std::size_t i = here; i < mReceivers.size(); ++i)
        group.dispatch_async(*mReceivers[i]->loggerQueue,
                             [node = mReceivers[i], messages] { deliverToNode(*node, messages); });
    for (const DDLoggerNode* node : std::span(mReceivers).first(here)) {
        // Two words in each block: such a std::function needs no heap.
        const auto delivery = [node, &messages] { deliverToNode(*node, messages); };
        node->loggerQueue->dispatch_sync([this, &delivery] { mLoggingQueue.performWithin(delivery); });
    }
}
