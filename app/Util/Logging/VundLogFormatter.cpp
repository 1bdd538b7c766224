#include "app/Util/Logging/VundLogFormatter.hpp"

#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/DDLogMessage.hpp"

#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace {

/// "GMT", "GMT+01:00", and with seconds where a zone has them.
std::string localizedGmtOffset(long seconds) {
    if (seconds == 0) return "GMT";
    const long size = std::labs(seconds);
    char text[32];
    int length =
        std::snprintf(text, sizeof text, "GMT%c%02ld:%02ld", seconds < 0 ? '-' : '+', size / 3600, size / 60 % 60);
    if (size % 60)
        length += std::snprintf(text + length, sizeof text - static_cast<std::size_t>(length), ":%02ld", size % 60);
    return std::string(text, static_cast<std::size_t>(length));
}

char levelLetter(std::uint32_t flag) {
    if (flag & DDLogFlagInfo) return 'I';
    if (flag & DDLogFlagWarning) return 'W';
    if (flag & DDLogFlagError) return 'E';
    return 'V';
}

}  // namespace

bool VundLogFormatter::formatLogMessage(const DDLogMessage& message, std::string& text) {
    if (mTime.update(message.timestamp)) {
        char date[64];
        mTimeText.assign(date, std::strftime(date, sizeof date, "%Y-%m-%d %H.%M.%S (", &mTime.fields));
        mTimeText += localizedGmtOffset(mTime.fields.tm_gmtoff) + ")";
    }
    // Everything between the time and the text.
    char middle[32] = " | ";
    char* end = std::to_chars(middle + 3, middle + sizeof middle, static_cast<std::int32_t>(message.machThreadID)).ptr;
    for (const char c : {' ', '|', ' ', levelLetter(message.logFlag), ' ', '|', ' '}) *end++ = c;
    text.append(mTimeText).append(middle, end).append(message.logMsg);
    return true;
}
