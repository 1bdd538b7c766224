#include "app/Util/Logging/SystemLog.hpp"

#include "app/Util/Logging/DDLog.hpp"

#include <cstdio>

namespace {

/// What the platform has to say is trouble, also to a person who wants to see nothing else in the log.
void report(const std::string& line) {
    DDLogError("%s", line.c_str());
}

}  // namespace

SystemLog& SystemLog::shared() {
    // Never destroyed: a thread may still have something to say while the process exits.
    static auto& one = *new SystemLog;
    return one;
}

void SystemLog::write(const std::string& line) {
    const std::string text = line.substr(0, line.find_last_not_of('\n') + 1);
    if (DDLog::isDelivering()) {
        std::fprintf(stderr, "%s\n", text.c_str());
        return;
    }
    {
        const std::lock_guard guard(mLock);
        if (!mHasLoggers) {
            std::fprintf(stderr, "%s\n", text.c_str());  // should the launch not get that far
            return mEarlyLines.push_back(text);
        }
    }
    report(text);
}

void SystemLog::loggersAreAdded() {
    std::vector<std::string> lines;
    {
        const std::lock_guard guard(mLock);
        mHasLoggers = true;
        lines.swap(mEarlyLines);
    }
    for (const std::string& line : lines) report(line);
}
