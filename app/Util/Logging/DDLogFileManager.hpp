#pragma once

#include "app/Util/Logging/DDLogFileInfo.hpp"

#include <string>
#include <vector>

/// Names, lists, makes and removes the log files of one file logger. Called on the logger's queue only; settings are
/// made before the logger is added. No failure is reported: a file or folder that is not there simply yields nothing.
class DDLogFileManager {
  public:
    virtual ~DDLogFileManager() = default;

    virtual std::string logsDirectory() const = 0;
    virtual bool isLogFile(const std::string& fileName) const = 0;
    /// @name The log files as the folder lists them, and the newest first. Empty when it can't be read to its end
    /// @{
    std::vector<std::string> unsortedLogFilePaths() const;
    std::vector<std::string> unsortedLogFileNames() const;
    std::vector<DDLogFileInfo> unsortedLogFileInfos() const;
    std::vector<std::string> sortedLogFilePaths() const;
    std::vector<std::string> sortedLogFileNames() const;
    std::vector<DDLogFileInfo> sortedLogFileInfos() const;
    /// @}

    /// Makes an empty file, removes what is too old by that, and answers the new file's path even when it could not be
    /// made.
    virtual std::string createNewLogFile() = 0;

    unsigned maximumNumberOfLogFiles() const { return mMaximumNumberOfLogFiles; }  ///< 0 keeps all
    void setMaximumNumberOfLogFiles(unsigned maximum) { mMaximumNumberOfLogFiles = maximum; }

    /// @name Notifications; a manager may ignore them
    /// @{
    virtual void didArchiveLogFile(const std::string&) {}
    virtual void didRollAndArchiveLogFile(const std::string&) {}
    /// @}

  protected:
    /// The order of the sorted lists: true when `a` comes before `b`.
    virtual bool isNewer(const DDLogFileInfo& a, const DDLogFileInfo& b) const = 0;

    /// Puts an empty file with that creation date into the place of whatever has the name.
    static void replaceWithEmptyFile(const std::string& path, DDLogFileInfo::Date creationDate);

    /// Removes the files after the first `maximumNumberOfLogFiles` of the list.
    void removeFilesBeyondMaximum(const std::vector<std::string>& sortedPaths) const;

  private:
    unsigned mMaximumNumberOfLogFiles = 0;
};
