#pragma once

#include <string>
#include <vector>

/// The tool's log level and log folder. Class operations; any thread.
class TrovikLogs {
  public:
    TrovikLogs() = delete;

    /// Takes the log level from the user's setting "logLevel", where there is one.
    static void initLogLevel();

    /// The log folder: "Trovik/ResetTool" below the user's application-support folder; empty where the user has none.
    /// The first call in a process finds it, makes it if need be and closes it to other users; whether the latter two
    /// succeed is not told.
    static const std::string& logsDirectory();

    /// Paths of the log files in the order of the folder; empty when it can't be read to its end.
    static std::vector<std::string> unsortedLogsWithPrefix(const std::string& prefix);

    /// The same, the newest day first.
    static std::vector<std::string> sortedLogsWithPrefix(const std::string& prefix);

    /// True when the name begins with the prefix, its extension is "txt" and no folder or link, but a file, has it in
    /// the log folder. An empty prefix has no log files.
    static bool isLogFile(const std::string& fileName, const std::string& prefix);
};
