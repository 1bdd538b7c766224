#pragma once

#include "cli/Scenario.hpp"
#include "platform/ScriptRunner.hpp"
#include "platform/WallClock.hpp"
#include "simulator/engine/Types.hpp"

#include <atomic>
#include <filesystem>
#include <map>
#include <stop_token>
#include <string>

namespace explore {

/// The computer around the programs: a time of day that can be set while simulated time goes on, a disk that can be
/// full, and what a power cut leaves on it. The programs' calls of write and fsync end here (see CMakeLists.txt), which
/// is how journal and log files are written; what goes by pwrite or a stream of the standard library does not. One at a
/// time.
class Machine final : public platform::WallClock {
  public:
    /// @param drive   must outlive it
    /// @param folder  the disk, for journal and log files but not for locks; made when it is not there
    Machine(simulator::Drive& drive, const std::string& folder);

    Date now() override { return Date(mDrive.now() + mOffset.load()); }
    void setTimeOfDay(simulator::Duration later) { mOffset = mOffset.load() + later; }  ///< negative for earlier
    void setFull(bool isFull) { mIsFull = isFull; }
    bool isFull() const { return mIsFull; }

    /// At a call of write. Any thread.
    bool hasRoom(int descriptor) const;
    /// At a call of fsync, by the flow that has the baton.
    void synced(int descriptor);

    /// Only what had reached the disk is left: of a file what it was, of a folder the names that were in it.
    void cutPower();

  private:
    using Path = std::filesystem::path;

    void restore(const Path& folder);

    simulator::Drive& mDrive;
    const std::string mFolder;
    std::atomic<bool> mIsFull = false;
    std::atomic<simulator::Duration> mOffset;       ///< of the time of day
    std::map<Path, std::string> mContents;          ///< of files that were synchronised
    std::map<Path, std::map<Path, bool>> mEntries;  ///< of folders: paths, and whether they are folders
};

/// The companion programs, of which each takes a while to quit. Stuck ones don't quit in their three seconds, and then
/// have to be killed. Called by whoever has the baton.
class Station final : public platform::ScriptRunner {
  public:
    Station(simulator::Duration takes, bool isStuck) : mScripts(takes), mIsStuck(isStuck) {}
    bool executeAndReturnError(const std::string& source, const std::stop_token& stop) override {
        const bool hasQuit = mScripts.executeAndReturnError(source, stop) && !mIsStuck;
        mIsLeft = !hasQuit && !stop.stop_requested();
        return hasQuit;
    }
    int system(const std::string&) override { return mIsLeft = false; }
    [[nodiscard]] bool isLeft() const { return mIsLeft; }  ///< it did not quit, and nobody has killed it

  private:
    twin::ScenarioScripts mScripts;
    const bool mIsStuck;
    bool mIsLeft = false;
};

}  // namespace explore
