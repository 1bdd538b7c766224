#pragma once

#include "app/Util/Logging/DDAbstractLogger.hpp"
#include "app/Util/Logging/DDLogMessage.hpp"
#include "platform/Platform.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <time.h>
#include <vector>

using Texts = std::vector<std::string>;

/// A time zone for the life of this object.
class TimeZone {
  public:
    explicit TimeZone(const char* name) {
        ::setenv("TZ", name, 1);
        ::tzset();
    }
    ~TimeZone() {
        ::unsetenv("TZ");
        ::tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;
};

inline DDLogMessage messageWithText(std::string text, std::uint32_t flag = 4) {
    DDLogMessage message;
    message.logFlag = flag;
    message.logMsg = std::move(text);
    message.timestamp = platform::wallClock().now();
    message.machThreadID = 7171;
    return message;
}

/// Has a logger write messages together, where the core would have it write.
inline void deliver(DDAbstractLogger& logger, const Texts& texts) {
    std::vector<DDLogMessage> messages;
    std::vector<const DDLogMessage*> batch;
    for (const auto& text : texts) messages.push_back(messageWithText(text));
    for (const auto& message : messages) batch.push_back(&message);
    logger.loggerQueue()->dispatch_sync([&] { logger.logMessages(batch); });
}

/// The same for one.
inline void deliver(DDAbstractLogger& logger, const char* text) {
    logger.loggerQueue()->dispatch_sync([&] { logger.logMessage(messageWithText(text)); });
}
