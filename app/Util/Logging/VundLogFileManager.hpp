#pragma once

#include "app/Util/Logging/DDLogFileManager.hpp"

#include <string>

/// One log file a day in the tool's log folder: "<prefix>_<yyyy.MM.dd>.txt", in local time. Made once for a file logger
/// and shared with it.
class VundLogFileManager final : public DDLogFileManager {
  public:
    explicit VundLogFileManager(std::string filePrefix);

    std::string logsDirectory() const override;
    bool isLogFile(const std::string& fileName) const override;

    /// The day's file, empty, with today's local midnight as its creation date. A second one on the same day starts
    /// the day's file afresh, which users know it to do.
    std::string createNewLogFile() override;
    void deleteOldLogFiles() const { removeFilesBeyondMaximum(sortedLogFilePaths()); }

  private:
    /// By the name, and so by the day.
    bool isNewer(const DDLogFileInfo& a, const DDLogFileInfo& b) const override { return a.fileName() > b.fileName(); }

    const std::string mLogFilePrefix;
};
