#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/DDLogFormatter.hpp"
#include "app/Util/Logging/impl/DDLogCore.hpp"
#include "platform/common/GlobalQueue.hpp"
#include "tests/app/Util/Logging/LoggingSupport.hpp"
#include "tests/support/LogRecorder.hpp"

#include <array>
#include <atomic>
#include <barrier>
#include <stdexcept>
#include <thread>

namespace {

/// Keeps what it is given and has a function look at it, on the logger's queue. Read it after a synchronous call or a
/// flush.
struct RecordingLogger : DDAbstractLogger {
    using Function = std::function<void(const DDLogMessage&)>;
    explicit RecordingLogger(bool takesThem, Function function = {})
        : DDAbstractLogger("recorder"), batches(takesThem), then(std::move(function)) {}
    bool takesBatches() const noexcept override { return batches; }
    bool readsThreadNames() const noexcept override { return false; }
    void logMessage(const DDLogMessage& message) override {
        messages.push_back(message);
        if (then) then(message);
    }
    void didAddLogger() override { events.push_back("added"); }
    void willRemoveLogger() override { events.push_back("removed after " + std::to_string(messages.size())); }
    void flush() override { events.push_back("flushed after " + std::to_string(messages.size())); }
    Texts texts() const {
        Texts all;
        for (const auto& message : messages) all.push_back(message.logMsg);
        return all;
    }
    std::vector<DDLogMessage> messages;
    Texts events;
    const bool batches;
    const Function then;
};

void add(DDLogCore& core, std::shared_ptr<DDAbstractLogger> logger, std::uint32_t level = DDLogLevelAll) {
    core.loggingQueue().dispatch_async([&core, logger, level] { core.lt_addLogger(logger, level); });
}

void post(DDLogCore& core, const std::string& text, bool asynchronously = true, std::uint32_t flag = 4) {
    EXPECT_TRUE(core.queueLogMessage(messageWithText(text, flag), asynchronously));
}

/// The loggers take the messages one by one, or in batches.
class DDLogDelivery : public testing::TestWithParam<bool> {
  protected:
    static auto logger(RecordingLogger::Function function = {}) {
        return std::make_shared<RecordingLogger>(GetParam(), std::move(function));
    }
};

TEST_P(DDLogDelivery, EveryLoggerGetsTheMessagesOfAllThreadsInOneOrderBeforeASynchronousCallReturns) {
    constexpr std::size_t kThreads = 4;
    const int perThread = GetParam() ? 5000 : 500;
    std::array<std::array<std::atomic<int>, kThreads>, 2> seen{};
    std::atomic<int> missing{0};
    const auto counting = [&](std::size_t index) {
        return logger([&seen, index](const auto& message) {
            ++seen.at(index).at(static_cast<std::size_t>(message.logMsg[0] - '0'));
        });
    };
    const auto first = counting(0), second = counting(1);
    {
        DDLogCore core(2);
        add(core, first);
        add(core, second);
        std::vector<std::thread> threads;
        for (std::size_t t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] {
                for (int i = 1; i <= perThread; ++i) {
                    post(core, std::to_string(t) + " " + std::to_string(i), i % 10 != 0);
                    if (i % 10 == 0 && (seen[0][t] != i || seen[1][t] != i)) ++missing;
                }
            });
        for (auto& thread : threads) thread.join();
    }
    EXPECT_EQ(missing, 0);
    ASSERT_EQ(first->messages.size(), kThreads * static_cast<std::size_t>(perThread));
    EXPECT_EQ(first->texts(), second->texts());
    std::array<int, kThreads> last{};
    for (const std::string& text : first->texts())
        ASSERT_EQ(std::stoi(text.substr(2)), ++last.at(static_cast<std::size_t>(text[0] - '0'))) << text;
}

TEST_P(DDLogDelivery, AThousandMessagesWaitAndTheNextCallerToo) {
    constexpr int kMessages = 5000;
    std::atomic<int> returned{0}, beyond{0};
    int delivered = 0;
    {
        DDLogCore core(2);
        add(core, logger([&](const auto&) {
                // The first delivery lasts until the bound is reached, which it is with the 1000th call's return.
                for (int seen; delivered == 0 && (seen = returned) < 1000;) returned.wait(seen);
                if (returned > 1000 + delivered) ++beyond;
                ++delivered;
            }));
        std::thread caller([&] {
            for (int i = 0; i < kMessages; ++i) {
                post(core, "x");
                ++returned;
                returned.notify_all();
            }
        });
        caller.join();
    }
    EXPECT_EQ(beyond, 0);
    EXPECT_EQ(delivered, kMessages);
}

TEST_P(DDLogDelivery, LoggerThatThrowsOrLogsAndFlushesStopsNobody) {
    for (const unsigned processors : {1U, 2U}) {
        const auto before = logger(), behind = logger();
        {
            DDLogCore core(processors);
            add(core, before);
            // In the middle: with two processors only the first of a delivery works on the delivering thread.
            add(core, logger([&](const DDLogMessage& message) {
                    if (message.logMsg == "throw") throw std::runtime_error("no paper");
                    if (message.logMsg != "echo") return;
                    EXPECT_TRUE(core.loggingQueue().isCurrent());
                    post(core, "synchronous from within", false);
                    core.flushLog();
                }));
            add(core, behind);
            post(core, "throw", false);
            post(core, "echo", false);
        }
        for (const auto& witness : {before, behind}) {
            EXPECT_EQ(witness->texts(), (Texts{"throw", "echo", "synchronous from within"}));
            EXPECT_EQ(witness->events.size(), 3U) << "added, flushed, removed";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(OneByOneAndBatched, DDLogDelivery, testing::Bool(),
                         [](const auto& tested) { return tested.param ? "Batched" : "OneByOne"; });

TEST(DDLogCore, LevelOfALoggerIsComparedAsANumber) {
    for (const std::uint32_t level : {0U, 1U, 2U, 3U, 4U, 5U, 8U, 16U, 31U}) {
        DDLogCore core(2);
        const auto logger = std::make_shared<RecordingLogger>(true);
        add(core, logger, level);
        Texts admitted;
        for (const std::uint32_t flag : {1U, 2U, 4U, 8U, 16U}) {
            post(core, std::to_string(flag), true, flag);
            if (flag <= level) admitted.push_back(std::to_string(flag));
        }
        core.flushLog();
        EXPECT_EQ(logger->texts(), admitted) << level;
    }
}

TEST(DDLogCore, LoggersWorkAtTheSameTimeWithTwoProcessorsAndInTurnWithOne) {
    std::barrier meeting(2);
    {
        DDLogCore core(2);
        for (int i = 0; i < 2; ++i)
            add(core, std::make_shared<RecordingLogger>(false, [&](auto&) { meeting.arrive_and_wait(); }));
        post(core, "synchronous", false);
        post(core, "asynchronous");
    }
    std::string order;
    {
        DDLogCore core(1);
        for (const char name : {'a', 'b', 'c'})
            add(core, std::make_shared<RecordingLogger>(false, [&order, name](auto&) { order += name; }));
        post(core, "synchronous", false);
        post(core, "asynchronous");
    }
    EXPECT_EQ(order, "abcabc");
}

TEST(DDLogCore, LoggersComeAndGoInOrderWithTheMessages) {
    const auto logger = std::make_shared<RecordingLogger>(false);
    {
        DDLogCore core(2);
        post(core, "before");
        add(core, logger);
        post(core, "first");
        post(core, "second");
        core.flushLog();
        core.loggingQueue().dispatch_async([&] { core.lt_removeLogger(logger.get()); });
        post(core, "after");
    }
    EXPECT_EQ(logger->texts(), (Texts{"first", "second"}));
    EXPECT_EQ(logger->events, (Texts{"added", "flushed after 2", "removed after 2"}));
}

TEST(DDLog, MessageCarriesItsPlaceItsThreadAndItsQueue) {
    const auto logger = std::make_shared<RecordingLogger>(false, [](const DDLogMessage& message) {
        if (message.queueLabel == "a caller's queue") DDLogError("from the logger");
    });
    const auto log = [] { DDLogError("call"); };
    struct ReaderOfNames : DDLogFormatter {
        bool formatLogMessage(const DDLogMessage&, std::string&) override { return true; }
    };
    DDLog::addLogger(nullptr);
    DDLog::addLogger(logger);
    logger->setLogFormatter(std::make_shared<ReaderOfNames>());
    const auto before = std::chrono::system_clock::now();
    const int line = __LINE__ + 1;
    DDLogError("%s failed: %d", std::string(600, 'x').c_str(), 42);
    const auto after = std::chrono::system_clock::now();
    DDLog::log(false, 7, 1, 3, "a/b.c", nullptr, 1, nullptr, nullptr);  // without a format: nothing
    DDLogCore::shared().loggingQueue().dispatch_sync(log);
    platform::SerialQueue("a caller's queue").dispatch_sync(log);
    DDLog::flushLog();
    platform::GlobalQueue().dispatch_async(log);  // its end waits for the block
    std::thread([&] {
        for (const char* name : {"first", "second"}) {
            ::pthread_setname_np(::pthread_self(), name);
            log();
        }
    }).join();
    DDLog::removeLogger(logger);
    DDLog::flushLog();
    Texts labels;
    for (const auto& message : logger->messages) labels.push_back(message.queueLabel);
    EXPECT_EQ(labels, (Texts{"main", "cocoa.modogriomu", "a caller's queue", "recorder", "global", "", ""}));
    EXPECT_EQ(logger->messages.at(5).threadName + logger->messages.at(6).threadName, "firstsecond");
    const DDLogMessage& message = logger->messages.at(0);
    EXPECT_EQ(message.logMsg, std::string(600, 'x') + " failed: 42");
    EXPECT_EQ(message.fileName() + " " + message.methodName(), "DDLogCoreTest TestBody");
    EXPECT_EQ(message.lineNumber, line);
    EXPECT_EQ(message.logLevel, 7U);
    EXPECT_EQ(message.logContext, 0);
    EXPECT_EQ(message.threadID(), std::to_string(::gettid()));
    EXPECT_TRUE(message.timestamp >= before && message.timestamp <= after);
}

TEST(DDLog, MessageHasTheTimeOfItsCallHoweverLongThatWaitsForRoom) {
    struct : platform::WallClock {
        Date now() override {
            if (++reads == 1001) beyondTheBound.release();
            return {};
        }
        std::atomic<int> reads{0};
        std::binary_semaphore beyondTheBound{0};
    } clock;
    const platform::PlatformScope scope({.wallClock = &clock});
    const auto logger = std::make_shared<RecordingLogger>(false, [&, first = true](const auto&) mutable {
        if (!std::exchange(first, false)) return;
        EXPECT_TRUE(clock.beyondTheBound.try_acquire_for(std::chrono::seconds(10)));
    });
    DDLog::addLogger(logger);
    for (int i = 0; i < 1001; ++i) DDLogInfo("x");
    DDLog::removeLogger(logger);
    DDLog::flushLog();
}

TEST(DDLog, OnlyErrorLinesWaitAndALevelThatIsOffEvaluatesNothing) {
    static int evaluated;
    const std::pair<std::uint32_t, void (*)()> cases[] = {{DDLogFlagError, [] { DDLogError("%d", ++evaluated); }},
                                                          {DDLogFlagWarning, [] { DDLogWarn("%d", ++evaluated); }},
                                                          {DDLogFlagInfo, [] { DDLogInfo("%d", ++evaluated); }},
                                                          {DDLogFlagDebug, [] { DDLogDebug("%d", ++evaluated); }},
                                                          {DDLogFlagVerbose, [] { DDLogVerbose("%d", ++evaluated); }}};
    EXPECT_EQ(ddLogLevel, 7U) << "the default";
    support::LogRecorder recorder;
    for (const auto& [flag, log] : cases) {
        SCOPED_TRACE(flag);
        evaluated = 0;
        ddLogLevel = DDLogLevelAll & ~flag;
        log();
        EXPECT_EQ(evaluated, 0);
        ddLogLevel = DDLogLevelAll;
        EXPECT_EQ(support::WaitsForItsLine(flag == DDLogFlagError, log), flag == DDLogFlagError);
        const auto lines = recorder.take();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].logFlag, flag);
    }
    ddLogLevel = 7;
}

}  // namespace
