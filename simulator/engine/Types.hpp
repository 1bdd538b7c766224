#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace simulator {

using Bytes = std::vector<unsigned char>;

/// A span of simulated or real time.
using Duration = std::chrono::microseconds;

/// A moment, counted from whatever origin the drive has chosen. Whole microseconds, so that 2999, 3000 and 3001 ms
/// after a moment are three different moments with nothing rounded away.
using Time = std::chrono::microseconds;

/// Brings a due moment forward to another one, where there is one and it is earlier.
inline void bringForward(std::optional<Time>& due, const std::optional<Time>& candidate) {
    if (candidate && (!due || *candidate < *due)) due = candidate;
}

/// The three pipes of the device, as the host sees their directions.
enum class Pipe { InterruptIn, BulkIn, BulkOut };

const char* pipeName(Pipe pipe);

/// What the device is doing.
enum class BootState {
    Running,           ///< its ordinary firmware
    Rebooting,         ///< asked to reboot; leaves the bus and comes back
    Starting,          ///< back on the bus after a reboot; its boot loader still listens for "hold"
    HeldInBootLoader,  ///< waits in the boot loader; only here may its store be cleared
};

/// The state in words, for people.
const char* bootStateName(BootState state);

/// Work that becomes due at some moment; a drive calls it then.
class TimedWork {
  public:
    virtual ~TimedWork() = default;

    /// The next moment at which run() has something to do; nothing when only an outside event can change that.
    virtual std::optional<Time> nextDue() = 0;

    /// Does what is due at or before now. Any thread, one at a time per drive.
    virtual void run(Time now) = 0;
};

/// Tells a bus the time and calls it back when something is due: real time with a thread of its own, or simulated time.
class Drive {
  public:
    virtual ~Drive() = default;

    virtual Time now() = 0;  ///< any thread

    /// The work's next due moment may have come nearer. Called without any lock held. Never blocks. Any thread.
    virtual void dueChanged() = 0;
};

}  // namespace simulator
