#pragma once

#include "platform/Platform.hpp"
#include "simulator/bus/InProcessBus.hpp"
#include "simulator/world/ManualQueue.hpp"
#include "simulator/world/SimulatedClock.hpp"
#include "simulator/world/SimulatedRunLoops.hpp"
#include "simulator/world/SimulatedServices.hpp"

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace simulator {

/// Everything that the library and the application ask of a system, with simulated devices, simulated time and one
/// thread, installed as the process's platform for the life of this object. One world at a time.
///
/// The first device sits on port 0 from the start, its cable not yet in.
class SimulatedWorld {
  public:
    /// @param bundle  the application's resources, borrowed; null for none
    explicit SimulatedWorld(Profile profile = {}, platform::NSBundle* bundle = nullptr);
    ~SimulatedWorld();
    SimulatedWorld(const SimulatedWorld&) = delete;
    SimulatedWorld& operator=(const SimulatedWorld&) = delete;

    void plug(std::size_t port = 0) { bus.plug(port); }
    void unplug(std::size_t port = 0) { bus.unplug(port); }
    std::string path(std::size_t port = 0) const { return bus.registryPath(port); }

    /// The device of a port. There is one thread, so nothing has to be locked; but what the device wants because of a
    /// change made through this is done only at the bus's next call.
    Device& device(std::size_t port = 0);
    void addFault(const Fault& fault, std::size_t port = 0) { device(port).addFault(fault); }

    /// Drains both queues and runs the default mode until nothing is ready or due any more.
    /// @param most  simulated time after which it stops all the same
    void runUntilQuiet(Duration most = std::chrono::minutes(10));

    /// The same for just that much simulated time.
    void runFor(Duration span);

    /// Simulated time since the world was made.
    Duration elapsed() { return clock.now() - mStart; }

    /// Milliseconds that an action took on the simulated clock.
    template <typename Action>
    long long timed(Action action) {
        const Time start = clock.now();
        action();
        return std::chrono::duration_cast<std::chrono::milliseconds>(clock.now() - start).count();
    }

    /// Lines written to the system log so far.
    static std::vector<std::string> log();

    SimulatedClock clock;
    SimulatedRunLoops loops{clock};
    InProcessBus bus{clock};
    ManualQueue mainQueue{clock};
    ManualQueue globalQueue{clock};
    RecordingScriptRunner scripts;
    MemoryDefaults defaults;
    RecordingExceptionHandler exceptions;

  private:
    Time mStart;
    platform::PlatformScope mScope;
};

}  // namespace simulator
