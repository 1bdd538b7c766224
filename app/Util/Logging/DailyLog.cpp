#include "app/Util/Logging/DailyLog.hpp"

#include "app/Util/Logging/DDFileLogger.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "app/Util/Logging/VundLogFileManager.hpp"
#include "app/Util/Logging/VundLogFormatter.hpp"

namespace {

constexpr const char* kLogFilePrefix = "ResetTool";
constexpr unsigned kMaximumNumberOfLogFiles = 7;
constexpr double kRollingFrequency = 86400.0;  ///< seconds: one file a day

}  // namespace

std::shared_ptr<DDFileLogger> makeDailyLog() {
    if (TrovikLogs::logsDirectory().empty()) return nullptr;
    auto manager = std::make_shared<VundLogFileManager>(kLogFilePrefix);
    auto fileLogger = std::make_shared<DDFileLogger>(manager);
    fileLogger->setLogFormatter(std::make_shared<VundLogFormatter>());
    manager->setMaximumNumberOfLogFiles(kMaximumNumberOfLogFiles);
    fileLogger->setRollingFrequency(kRollingFrequency);
    return fileLogger;
}
