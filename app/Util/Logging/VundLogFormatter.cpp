#include "app/Util/Logging/VundLogFormatter.hpp"

#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/DDLogMessage.hpp"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

/// "GMT", "GMT+01:00", and with seconds where a zone has them.
std::string localizedGmtOffset(long seconds) {
    if (seconds == 0) return "GMT";
    const long size = std::labs(seconds);
    char text[64];
    std::snprintf(text, sizeof text, "GMT%c%02ld:%02ld:%02ld", seconds < 0 ? '-' : '+', size / 3600, size / 60 % 60,
                  size % 60);
    return std::string(text, size % 60 ? std::strlen(text) : std::strlen("GMT+01:00"));
}

char levelLetter(std::uint32_t flag) {
    if (flag & DDLogFlagInfo) return 'I';
    if (flag & DDLogFlagWarning) return 'W';
    if (flag & DDLogFlagError) return 'E';
    return 'V';
}

}  // namespace

std::string VundLogFormatter::timeText(const std::tm& time) {
    return DDLocalTime::format("%Y-%m-%d %H.%M.%S (", time) + localizedGmtOffset(time.tm_gmtoff) + ")";
}

bool VundLogFormatter::formatLogMessage(const DDLogMessage& message, std::string& text) {
    const auto thread = static_cast<std::int32_t>(message.machThreadID);
    text.append(mTime.text(message.timestamp)).append(" | ").append(std::to_string(thread)).append(" | ");
    text.append(1, levelLetter(message.logFlag)).append(" | ").append(message.logMsg);
    return true;
}
