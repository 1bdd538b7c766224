#include "app/SupportLog.hpp"

#include "WIN/WIN_BuildInfo.hpp"
#include "app/TrovikMode/UsbTrovikModeIoLink.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"
#include "platform/common/OneLine.hpp"

#include <QGuiApplication>

#include <cstdlib>
#include <initializer_list>
#include <unistd.h>

namespace {

/// Of these variables the ones that are set, in parentheses: " (LANG=de_DE.UTF-8)".
std::string settings(std::initializer_list<const char*> variables) {
    std::string text;
    for (const char* const variable : variables) {
        const char* const value = std::getenv(variable);
        if (value && *value)
            text += (text.empty() ? " (" : ", ") + std::string(variable) + "=" + platform::oneLine(value);
    }
    return text.empty() ? text : text + ")";
}

std::string toolkit() {
    const std::string running = qVersion();
    return "Qt " + running + (running == QT_VERSION_STR ? "" : ", built for " QT_VERSION_STR);
}

std::string language() {
    const auto languages = platform::mainBundle().preferredLocalizations();
    return languages.empty() ? "none" : platform::oneLine(languages.front());
}

std::string build() {
#ifdef __clang__
    constexpr const char* kCompiler = "Clang " __clang_version__;
#else
    constexpr const char* kCompiler = "GCC " __VERSION__;
#endif
    return platform::mainBundle().infoText("CFBundleShortVersionString") + ", " + kCompiler + ", " + win::BuildDate() +
           " " + win::BuildTime();
}

}  // namespace

void SupportLog::started(const std::vector<std::string>& system) {
    for (const std::string& line : system) DDLogInfo("%s", line.c_str());
    DDLogInfo("Toolkit: %s", toolkit().c_str());
    DDLogInfo("Display server: %s%s", qPrintable(QGuiApplication::platformName()),
              settings({"QT_QPA_PLATFORM", "XDG_SESSION_TYPE", "XDG_CURRENT_DESKTOP"}).c_str());
    DDLogInfo("Language: %s%s", language().c_str(), settings({"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}).c_str());
    DDLogInfo("Build: %s", build().c_str());
    const std::string& logs = TrovikLogs::logsDirectory();
    if (!logs.empty() && ::access(logs.c_str(), W_OK | X_OK) < 0) cause(Cause::LogNotWritable);
}

void SupportLog::cause(Cause cause) {
    DDLogWarn("%s", ErrorCatalogue::logLine(cause).c_str());
}

void SupportLog::identified(UsbTrovikModeIoLink* device) {
    const std::string text = device ? device->takeIdentification() : std::string();
    if (!text.empty()) DDLogInfo("%s", text.c_str());
}

void SupportLog::ending(const std::string& why, bool isResetUnfinished) {
    DDLogInfo("The tool ends: %s", why.c_str());
    if (isResetUnfinished) cause(Cause::StoppedHalfway);
}
