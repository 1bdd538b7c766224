#pragma once

#include "app/Util/Logging/DDLogFileManager.hpp"

#include <string>
#include <vector>

/// One log file a day in the tool's log folder: "<prefix>_<yyyy.MM.dd>.txt", in local time. Made once for a file logger
/// and shared with it.
class VundLogFileManager final : public DDLogFileManager {
  public:
    explicit VundLogFileManager(std::string filePrefix);

    std::string logsDirectory() const override;
    bool isLogFile(const std::string& fileName) const override;
    std::vector<std::string> unsortedLogFilePaths() const override;
    std::vector<std::string> unsortedLogFileNames() const override;
    std::vector<DDLogFileInfo> unsortedLogFileInfos() const override;
    std::vector<std::string> sortedLogFilePaths() const override;
    std::vector<std::string> sortedLogFileNames() const override;
    std::vector<DDLogFileInfo> sortedLogFileInfos() const override;

    /// The day's file, empty, with today's local midnight as its creation date. A second one on the same day starts
    /// the day's file afresh, which users know it to do.
    std::string createNewLogFile() override;
    void deleteOldLogFiles() const { removeFilesBeyondMaximum(sortedLogFilePaths()); }

  private:
    const std::string mLogFilePrefix;
};
