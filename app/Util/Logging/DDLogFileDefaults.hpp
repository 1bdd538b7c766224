#pragma once

#include "app/Util/Logging/DDLogFileManager.hpp"
#include "app/Util/Logging/DDLogFormatter.hpp"

#include <string>

/// The manager of a file logger that was given none: "log-<yyyyMMdd-HHmmss-SSS>.txt" in a folder, at most 5 files. The
/// tool has its own.
class DDLogFileManagerDefault : public DDLogFileManager {
  public:
    /// @param logsDirectory  made if need be; empty takes "Logs" below the user's folder for what can be made again
    explicit DDLogFileManagerDefault(std::string logsDirectory = {});

    std::string logsDirectory() const override { return mLogsDirectory; }
    bool isLogFile(const std::string& fileName) const override;
    std::string createNewLogFile() override;

  private:
    bool isNewer(const DDLogFileInfo& a, const DDLogFileInfo& b) const override {
        return DDLogFileInfo::reverseCompareByCreationDate(a, b);
    }

    std::string mLogsDirectory;
};

/// "2026/11/15 18:25:03:120  Device rebooted"
class DDLogFileFormatterDefault final : public DDLogFormatter {
  public:
    bool formatLogMessage(const DDLogMessage& message, std::string& text) override;
    bool readsThreadNames() const noexcept override { return false; }
};
