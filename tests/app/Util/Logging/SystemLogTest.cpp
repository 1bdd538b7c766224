#include "app/Util/Logging/SystemLog.hpp"
#include "app/Util/Logging/impl/DDLogCore.hpp"
#include "tests/app/Util/Logging/LoggingSupport.hpp"
#include "tests/support/LogRecorder.hpp"

namespace {

TEST(SystemLog, LinesAreErrorsThatAreWrittenAtOnceAndEarlyOnesWhenTheLoggersAreThere) {
    SystemLog log;
    testing::internal::CaptureStderr();
    log.write("early\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "early\n");
    support::LogRecorder recorder;
    log.loggersAreAdded();
    EXPECT_TRUE(support::WaitsForItsLine(true, [&] { log.write("later\n\n"); }));
    const auto messages = recorder.take();
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].logMsg + ", " + messages[1].logMsg, "early, later");
    EXPECT_EQ(messages[0].logFlag & messages[1].logFlag, DDLogFlagError);
}

TEST(SystemLog, LineFromALoggerOrTheLoggingQueueGoesToStandardErrorAndWaitsForNothing) {
    static SystemLog log;
    log.loggersAreAdded();
    const platform::PlatformScope scope({.log = [](const std::string& line) { log.write(line); }});
    struct Logger final : DDAbstractLogger {
        void logMessage(const DDLogMessage& message) override {
            platform::NSLog("no paper for %s\n", message.logMsg.c_str());
            for (int i = 0; message.logMsg == "three" && i <= 1000; ++i) DDLogError("%600d", i);
            throw 1;
        }
        void source() {
            internalQueue().dispatch_sync([] { performWithinDelivery([] { platform::NSLog("deleted\n"); }); });
        }
    };
    const auto logger = std::make_shared<Logger>();
    DDLog::addLogger(logger);
    testing::internal::CaptureStderr();
    DDLogInfo("one");
    DDLogError("two");
    logger->source();
    DDLogCore::shared().loggingQueue().dispatch_sync([] { platform::NSLog("%2000s on the queue\n", ""); });
    DDLogError("three");
    DDLog::removeLogger(logger);
    DDLog::flushLog();
    const std::string errors = testing::internal::GetCapturedStderr();
    std::size_t at = 0;
    for (const char* line : {"no paper for one\n", "Unknown exception caught at DDLogQueue, ", "no paper for two\n",
                             "Unknown exception caught at DDLogQueue, ", "deleted\n", "on the queue\n",
                             "no paper for three\n", " 1000\n"}) {
        at = errors.find(line, at);
        ASSERT_NE(at, std::string::npos) << line << " is missing in " << errors;
    }
}

}  // namespace
