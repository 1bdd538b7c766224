#include "app/Util/Logging/impl/DDLogCore.hpp"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <latch>
#include <thread>
#include <utility>

#include "app/Util/Logging/DDLog.hpp"

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

struct Countdown {
    std::latch& latch;
    ~Countdown() { latch.count_down(); }
};

bool admits(const DDLoggerNode& node, const DDLogMessage& message) {
    return message.logFlag <= node.logLevel;
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
    return mOnlyBatchLoggers ? DDLogQueue::kMaxBatch : 1;
}

void DDLogCore::lt_addLogger(std::shared_ptr<DDAbstractLogger> logger, std::uint32_t level) {
    DDLoggerNode node;
    node.loggerQueue = logger->loggerQueue();
    if (!node.loggerQueue) node.loggerQueue = std::make_shared<platform::SerialQueue>(logger->loggerName());
    node.logLevel = level;
    node.batchLogger = dynamic_cast<DDBatchLogger*>(logger.get());
    mOnlyBatchLoggers = mOnlyBatchLoggers && node.batchLogger;
    node.loggerQueue->dispatch_async([this, logger] {
        const DDLogQueue::Within within(mLoggingQueue);
        logger->didAddLogger();
    });
    node.logger = std::move(logger);
    mLoggers.push_back(std::move(node));
}

/// Waits for it: once the logging queue has come past a removal, the logger no longer works.
void DDLogCore::farewell(const DDLoggerNode& node) {
    node.loggerQueue->dispatch_sync([this, logger = node.logger] {
        const DDLogQueue::Within within(mLoggingQueue);
        logger->willRemoveLogger();
    });
}

void DDLogCore::lt_removeLogger(const DDAbstractLogger* logger) {
    const auto found =
        std::find_if(mLoggers.begin(), mLoggers.end(), [&](const auto& node) { return node.logger.get() == logger; });
    if (found == mLoggers.end()) return;
    farewell(*found);
    mLoggers.erase(found);
    mOnlyBatchLoggers =
        std::all_of(mLoggers.begin(), mLoggers.end(), [](const auto& node) { return node.batchLogger != nullptr; });
}

void DDLogCore::lt_removeAllLoggers() {
    for (const DDLoggerNode& node : mLoggers) farewell(node);
    mLoggers.clear();
    mOnlyBatchLoggers = true;
}

void DDLogCore::flushLog() {
    if (mLoggingQueue.isCurrent()) return mLoggingQueue.dispatch_async([this] { lt_flush(); });
    mLoggingQueue.dispatch_sync([this] { lt_flush(); });
}

void DDLogCore::lt_flush() {
    const auto done = std::make_shared<std::latch>(static_cast<std::ptrdiff_t>(mLoggers.size()));
    for (const DDLoggerNode& node : mLoggers) {
        node.loggerQueue->dispatch_async([this, logger = node.logger, done] {
            const Countdown countdown{*done};
            const DDLogQueue::Within within(mLoggingQueue);
            logger->flush();
        });
    }
    done->wait();
}

void DDLogCore::deliverToNode(const DDLoggerNode& node, std::span<const DDLogMessage* const> messages) {
    const DDLogQueue::Within within(mLoggingQueue);
    if (node.batchLogger) return node.batchLogger->logMessages(messages);
    for (const DDLogMessage* message : messages) node.logger->logMessage(*message);
}

void DDLogCore::deliverOnItsQueue(const DDLoggerNode& node, std::span<const DDLogMessage* const> messages) {
    const auto delivery = [&] { deliverToNode(node, messages); };
    node.loggerQueue->dispatch_sync([&delivery] { delivery(); });  // one reference: the function needs no heap
}

/// One message, or a batch when all loggers take batches. A logger that takes only single messages always gets a thread
/// of its own beside the others, which may be waiting for it; one that takes batches shares this thread when the batch
/// is small.
void DDLogCore::deliver(std::span<const DDLogMessage* const> messages) {
    // The nodes' levels differ rarely; those that admit all share the given list.
    mReceivers.clear();
    for (const DDLoggerNode& node : mLoggers) {
        const auto admitted = [&](const DDLogMessage* message) { return admits(node, *message); };
        if (std::all_of(messages.begin(), messages.end(), admitted)) {
            mReceivers.push_back(&node);
        } else if (std::any_of(messages.begin(), messages.end(), admitted)) {
            mAdmitted.clear();
            std::copy_if(messages.begin(), messages.end(), std::back_inserter(mAdmitted), admitted);
            deliverOnItsQueue(node, mAdmitted);
        }
    }
    if (mReceivers.empty()) return;

    const bool parallel = mNumProcessors >= 2 && (!mOnlyBatchLoggers || messages.size() >= kParallelBatch);
    const std::size_t here = parallel ? 1 : mReceivers.size();
    // Waits for all that were started, whatever goes wrong with starting another: they read the messages.
    struct Group {
        std::vector<std::shared_ptr<std::latch>> members;
        ~Group() {
            for (const auto& member : members) member->wait();
        }
    } group;
    if (here < mReceivers.size()) group.members.reserve(mReceivers.size() - here);
    for (std::size_t i = here; i < mReceivers.size(); ++i) {
        const auto member = std::make_shared<std::latch>(1);
        mReceivers[i]->loggerQueue->dispatch_async([this, node = mReceivers[i], messages, member] {
            const Countdown countdown{*member};
            deliverToNode(*node, messages);
        });
        group.members.push_back(member);
    }
    for (std::size_t i = 0; i < here; ++i) deliverOnItsQueue(*mReceivers[i], messages);
}
