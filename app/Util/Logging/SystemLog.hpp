#pragma once

#include <mutex>
#include <string>
#include <vector>

/// Where the platform's NSLog goes in the tool. What the platform has to say of a device (above all why it can't be
/// opened) belongs beside the workflow's own lines, where support looks for it; the loggers' own troubles can't be told
/// to themselves and go to standard error. Any thread.
class SystemLog {
  public:
    static SystemLog& shared();

    /// Logs the line as an error; it is written when this returns. A line that comes before loggersAreAdded() waits for
    /// that and goes to standard error meanwhile. From within a delivery a line goes to standard error only: there it
    /// would wait for itself. Blocks as a synchronous log call does.
    void write(const std::string& line);

    /// The launch reads the settings before it adds the loggers: a line about a damaged file waits for them until here.
    void loggersAreAdded();

  private:
    std::mutex mLock;
    bool mHasLoggers = false;              ///< behind mLock
    std::vector<std::string> mEarlyLines;  ///< behind mLock
};
