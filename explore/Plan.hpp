#pragma once

#include "cli/Outcome.hpp"
#include "cli/Scenario.hpp"
#include "simulator/engine/Fault.hpp"
#include "simulator/engine/Types.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace explore {

/// What makes a world other than the plainest one. Any of them can be left out.
struct Event {
    enum class What {
        Shuffle,       ///< ready flows go on in an order thrown with the dice
        Tells,         ///< what the bus tells of arrivals and departures: `tells`
        Station,       ///< the companion programs take `after` to quit
        StuckStation,  ///< they never quit, and have to be killed
        // The events from OtherRun to Swap are about one device.
        OtherRun,  ///< another run works on it
        Fault,     ///< it commits a fault
        // The events from Plug to PowerCut come at a moment of their own.
        Plug,
        Unplug,
        Swap,  ///< two devices change places, cables out
        // The events from ClockStep on are about no device, and those from Cancel on may keep each from its reset.
        ClockStep,  ///< the time of day is set to one that is later `by` so much, or earlier
        FullDisk,   ///< nothing can be written from now on
        Cancel,     ///< a signal, of which the second ends the process; with the window, the person quits
        Kill,       ///< the process is gone
        PowerCut,   ///< the process is gone, and so is what the disk was not told to keep
        BusFault,   ///< the bus commits a fault
    };

    What what = What::Shuffle;
    std::size_t device = 0;
    std::size_t other = 0;
    std::optional<twin::Stage> stage = {};  ///< `after` counts from its first beginning, else from the start
    simulator::Duration after{0};
    std::optional<unsigned> turn = {};  ///< instead of a moment: between two turns
    simulator::Duration by{0};
    twin::BusTells tells = twin::BusTells::All;
    simulator::Fault fault = {};

    [[nodiscard]] std::string text() const;
    [[nodiscard]] const char* name() const;
    [[nodiscard]] bool isOfDevice() const { return what >= What::OtherRun && what <= What::Swap; }
    [[nodiscard]] bool isTimed() const { return what >= What::Plug && what <= What::PowerCut; }
    [[nodiscard]] bool concerns(std::size_t port) const;  ///< it may keep this device from its reset
};

/// All that a seed chooses but for the order of turns: a list that can be shortened and carried out again.
struct Plan {
    /// The last so many devices are of a model that nobody looks for. They begin unplugged.
    static constexpr std::size_t kForeign = 2;
    static constexpr std::uint16_t kForeignProduct = 4;
    [[nodiscard]] static bool isForeign(const simulator::Profile& one) { return one.productId == kForeignProduct; }

    std::uint64_t seed = 0;
    std::vector<std::string> arguments;   ///< of the command; "window" for the window
    simulator::Duration pressedAfter{0};  ///< Reset Now, in the window
    std::vector<twin::ScenarioDevice> devices;
    bool hasPlainUnits = true;  ///< each device has a unit id of its own, by which all tell it apart
    std::vector<Event> events;

    [[nodiscard]] static Plan of(std::uint64_t seed);
    /// The same with those events alone.
    [[nodiscard]] Plan only(const std::vector<std::size_t>& kept) const;
    [[nodiscard]] bool says(const std::string& argument) const { return std::ranges::count(arguments, argument) > 0; }
    [[nodiscard]] bool isWindow() const { return arguments.front() == "window"; }
    [[nodiscard]] bool hasOneDevice() const { return devices.size() == 1 + kForeign; }  ///< besides the foreign ones
    [[nodiscard]] bool has(Event::What what) const { return std::ranges::count(events, what, &Event::what) > 0; }
    /// The first event of a kind, else one that changes nothing.
    [[nodiscard]] Event first(Event::What what) const;
    [[nodiscard]] std::string text() const;
};

}  // namespace explore
