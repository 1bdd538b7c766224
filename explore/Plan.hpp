#pragma once

#include "cli/Outcome.hpp"
#include "cli/Scenario.hpp"
#include "simulator/engine/Fault.hpp"
#include "simulator/engine/Profile.hpp"
#include "simulator/engine/Types.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace explore {

/// What makes a world other than the plainest one. Any of them can be left out.
struct Event {
    enum class What {
        Shuffle,        ///< ready flows go on in an order thrown with the dice
        Tells,          ///< what the bus tells of arrivals and departures: `number` as twin::BusTells
        Station,        ///< the companion programs take `after` to quit
        OtherRun,       ///< another run works on the device
        BrokenJournal,  ///< the journal can't be written
        Fault,          ///< the device, or with `ofBus` the bus, commits a fault
        Plug,
        Unplug,
        Swap,    ///< two devices change places, cables out
        Cancel,  ///< the first signal
        Kill,    ///< the process is gone
    };

    What what = What::Shuffle;
    std::size_t device = 0;
    std::size_t other = 0;
    std::optional<twin::Stage> stage = {};  ///< `after` counts from its first beginning, else from the start
    simulator::Duration after{0};
    std::optional<unsigned> turn = {};  ///< instead of a moment: between two turns
    unsigned number = 0;
    bool ofBus = false;
    simulator::Fault fault = {};

    [[nodiscard]] std::string text() const;
    [[nodiscard]] bool concerns(std::size_t port) const;  ///< it may keep this device from its reset
};

struct PlannedDevice {
    simulator::Profile profile;
    bool isPlugged = true;
    bool isHeld = false;  ///< from the start
};

/// All that a seed chooses but for the order of turns: a list that can be shortened and carried out again.
struct Plan {
    enum class Program { Command, Window };

    std::uint64_t seed = 0;
    Program program = Program::Command;
    std::vector<std::string> arguments;   ///< of the command
    simulator::Duration pressedAfter{0};  ///< Reset Now, in the window
    std::vector<PlannedDevice> devices;
    bool hasPlainUnits = true;  ///< no two devices are taken for one another
    std::vector<Event> events;

    [[nodiscard]] static Plan of(std::uint64_t seed);
    /// The same with those events alone.
    [[nodiscard]] Plan only(const std::vector<std::size_t>& kept) const;
    [[nodiscard]] bool has(Event::What what) const;
    [[nodiscard]] std::string text() const;
};

}  // namespace explore
