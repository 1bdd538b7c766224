#include "explore/Plan.hpp"

#include "explore/Dice.hpp"

#include <algorithm>
#include <array>
#include <iterator>

namespace explore {
namespace {

using simulator::BusOperation;
using simulator::Duration;
using simulator::Fault;
using simulator::FaultKind;
using std::chrono::milliseconds;
using What = Event::What;

constexpr std::array kProfiles = {&simulator::Profile::handheld, &simulator::Profile::wearable,
                                  &simulator::Profile::withoutProtocols, &simulator::Profile::instant};
constexpr std::array kResults = {platform::kIOReturnError, platform::kIOReturnNoDevice, platform::kIOReturnNotPermitted,
                                 platform::kIOReturnExclusiveAccess, platform::kIOReturnTimeout};
/// Packets of the host and of the device that a fault can strike at: of the session, of identification and of a reset.
constexpr std::array<std::uint16_t, 13> kIds = {5, 6, 16, 17, 254, 255, 253, 248, 28, 10, 113, 113, 1500};
constexpr auto kLastKind = static_cast<unsigned>(FaultKind::Unplug);
constexpr auto kLastOperation = static_cast<unsigned>(BusOperation::WritePipeAsync);

/// Writes one world's plan.
class Author {
  public:
    explicit Author(std::uint64_t seed) : mDice(seed) { mPlan.seed = seed; }

    Plan write() {
        const unsigned count = mDice.oneIn(2) ? 1 : mDice.between(2, 8);
        for (unsigned port = 0; port < count; ++port) mPlan.devices.push_back(device(port));
        if (mDice.oneIn(12)) mixUnits();
        chooseCommand();
        if (mDice.oneIn(6)) {
            mPlan.program = Plan::Program::Window;
            mPlan.arguments = {"window"};
            mPlan.pressedAfter = milliseconds(mDice.oneIn(2) ? 0 : mDice.below(3000));
        }
        add({What::Shuffle}, 8, 7);
        add({.what = What::Tells, .number = mDice.between(1, 3)}, 6);
        add({.what = What::Station, .after = milliseconds(mDice.between(1, 9000))}, 4);
        add({What::OtherRun, mDice.below(count)}, 25);
        add({What::BrokenJournal}, 25);
        for (unsigned left = mDice.below(4); left > 0; --left) misfortune();
        add(timed({What::Cancel}), 6);
        add(timed({What::Kill}), 6);
        return std::move(mPlan);
    }

  private:
    void add(Event event, unsigned many, unsigned times = 1) {
        if (mDice.below(many) < times) mPlan.events.push_back(std::move(event));
    }

    PlannedDevice device(unsigned port) {
        PlannedDevice planned{kProfiles[mDice.below(kProfiles.size())]()};
        auto& profile = planned.profile;
        profile.unitId = 1000 + port;
        profile.unitName = "device " + std::to_string(port);
        if (mDice.oneIn(2)) profile.answerDelay = milliseconds(mDice.oneIn(2) ? mDice.below(5) : mDice.below(300));
        if (mDice.oneIn(2)) profile.rebootTime = milliseconds(mDice.below(6000));
        if (mDice.oneIn(2)) profile.bootTime = milliseconds(mDice.below(4000));
        if (mDice.oneIn(4)) profile.leaveDelay = milliseconds(mDice.below(1000));
        planned.isPlugged = !mDice.oneIn(12);
        planned.isHeld = mDice.oneIn(12);
        return planned;
    }

    void mixUnits() {
        mPlan.hasPlainUnits = false;
        for (auto& planned : mPlan.devices) planned.profile.unitId = mDice.oneIn(2) ? 0 : 1000;
    }

    void chooseCommand() {
        const auto port = mDice.below(static_cast<unsigned>(mPlan.devices.size()));
        const std::string name =
            mDice.oneIn(2) ? "1-" + std::to_string(port + 1) : "unit:" + std::to_string(1000 + port);
        auto& arguments = mPlan.arguments;
        const unsigned choice = mDice.below(10);
        if (choice == 0) {
            arguments = {"check"};
            if (mDice.oneIn(2)) arguments.push_back(name);
            return;
        }
        if (choice == 1) {
            mPlan.devices[port].isHeld = true;
            arguments = {"resume", name};
            return;
        }
        arguments = {"reset", "--yes"};
        if (choice < 4)
            arguments.push_back(name);
        else if (choice == 4)
            arguments.insert(arguments.end(), {"--each", "--count", std::to_string(port + 1)});
        else
            arguments.emplace_back("--all");
        if (mDice.oneIn(3)) arguments.insert(arguments.end(), {"--retries", std::to_string(mDice.below(4))});
        if (mDice.oneIn(4)) arguments.insert(arguments.end(), {"--jobs", std::to_string(mDice.between(1, 3))});
        if (mDice.oneIn(4)) arguments.insert(arguments.end(), {"--wait", std::to_string(mDice.below(12))});
        if (mDice.oneIn(4)) arguments.emplace_back("--keep-station");
    }

    /// At a moment of the run's first seconds, soon after a stage's beginning, or between two turns.
    Event timed(Event event) {
        const unsigned choice = mDice.below(10);
        if (choice < 3) event.turn = mDice.below(300);
        if (choice >= 5) event.stage = static_cast<twin::Stage>(mDice.below(twin::kStages.size()));
        const unsigned range = mDice.oneIn(2) ? 40 : choice < 5 ? 8000 : 2500;
        event.after = milliseconds(mDice.below(range));
        return event;
    }

    void misfortune() {
        const auto count = static_cast<unsigned>(mPlan.devices.size());
        const std::size_t port = mDice.below(count);
        const unsigned choice = mDice.below(10);
        if (choice < 7) return mPlan.events.push_back({.what = What::Fault, .device = port, .fault = fault()});
        if (choice == 7) {
            Event event{.what = What::Fault, .ofBus = true};
            event.fault = operationFails(5);
            event.fault.step.occurrence = mDice.between(1, 6);
            return mPlan.events.push_back(event);
        }
        Event event = timed({.what = choice == 8 ? What::Unplug : What::Swap, .device = port});
        event.other = mDice.below(count + 2);  // the last two ports are empty
        if (event.what == What::Swap && event.other == port) event.other = count;
        mPlan.events.push_back(event);
        event.after += milliseconds(mDice.oneIn(2) ? mDice.below(100) : mDice.below(9000));
        if (event.turn) *event.turn += mDice.below(20);
        const bool swaps = event.what == What::Swap;
        event.what = What::Plug;
        if (!mDice.oneIn(4)) mPlan.events.push_back(event);
        event.device = event.other;
        if (swaps) mPlan.events.push_back(event);
    }

    // Each throw in a statement of its own: in which order arguments are evaluated is the compiler's choice.
    Fault operationFails(unsigned ofFirst) {
        const auto operation = static_cast<BusOperation>(mDice.below(ofFirst));
        const auto result = mDice.of(kResults);
        return Fault::onOperation(operation, result);
    }

    Fault fault() {
        const unsigned choice = mDice.below(10);
        Fault fault = mDice.of(simulator::faultCatalogue());
        if (choice < 3) {
            fault = operationFails(kLastOperation + 1);
        } else if (choice < 6) {
            const auto kind = static_cast<FaultKind>(mDice.below(kLastKind + 1));
            const bool ofHost = kind == FaultKind::Ignore || kind == FaultKind::NotTaken;
            const std::uint16_t id = mDice.of(kIds);
            fault = ofHost || mDice.oneIn(3) ? Fault::onPacket(id, kind) : Fault::onAnswer(id, kind);
            fault.name = "kind " + std::to_string(static_cast<unsigned>(kind)) + " at packet " + std::to_string(id);
            fault.number = mDice.oneIn(3) ? mDice.below(5000) : mDice.below(20);
            fault.bytes.assign(mDice.below(80), 0x5A);
            if (mDice.oneIn(2)) fault.delay = milliseconds(mDice.below(4000));
            if (kind == FaultKind::Unplug && mDice.oneIn(2)) fault.comesBack = milliseconds(mDice.below(5000));
        }
        fault.step.occurrence = mDice.between(1, mDice.oneIn(2) ? 1 : 5);
        if (mDice.oneIn(4)) fault.times = mDice.between(1, 4);
        return fault;
    }

    Dice mDice;
    Plan mPlan;
};

std::string number(simulator::Duration span) {
    return std::to_string(span.count() / 1000) + " ms";
}

}  // namespace

Plan Plan::of(std::uint64_t seed) {
    return Author(seed).write();
}

Plan Plan::only(const std::vector<std::size_t>& kept) const {
    Plan plan = *this;
    plan.events.clear();
    for (const std::size_t index : kept) {
        if (index < events.size()) plan.events.push_back(events[index]);
    }
    return plan;
}

bool Plan::has(What what) const {
    return std::ranges::find(events, what, &Event::what) != events.end();
}

bool Event::concerns(std::size_t port) const {
    switch (what) {
        case What::Shuffle:
        case What::Tells:
        case What::BrokenJournal:
            return false;
        case What::Station:
            return after > milliseconds(7000);  // two programs, and a limit of 15 s
        case What::Fault:
            return ofBus || device == port;
        case What::OtherRun:
        case What::Plug:
        case What::Unplug:
            return device == port;
        case What::Swap:
            return device == port || other == port;
        case What::Cancel:
        case What::Kill:
            return true;
    }
    return true;
}

std::string Event::text() const {
    static constexpr std::array kNames = {"the order of turns is thrown",
                                          "the bus tells (1: arrivals only, 2: nothing, 3: twice)",
                                          "the companion programs take their time",
                                          "another run has",
                                          "the journal can't be written",
                                          "a fault of",
                                          "plugs",
                                          "unplugs",
                                          "swaps",
                                          "cancels",
                                          "kills"};
    std::string text = kNames[static_cast<std::size_t>(what)];
    if (what == What::Tells) text += " " + std::to_string(number);
    if (what == What::Fault || what == What::OtherRun || what == What::Plug || what == What::Unplug ||
        what == What::Swap)
        text += ofBus ? " the bus" : " device " + std::to_string(device);
    if (what == What::Swap) text += " with " + std::to_string(other);
    if (what == What::Fault)
        return text + ": " + fault.name + ", time " + std::to_string(fault.step.occurrence) + ", " +
               std::to_string(fault.times) + " times" + (fault.delay ? ", " + explore::number(*fault.delay) : "");
    if (turn) return text + " at turn " + std::to_string(*turn);
    if (stage) text += " once \"" + std::string(twin::info(*stage).name) + "\" has begun,";
    return what < What::Station ? text : text + " after " + explore::number(after);
}

std::string Plan::text() const {
    std::string text = "  ";
    if (program == Program::Window)
        text += "the window, pressed after " + number(pressedAfter);
    else
        for (const auto& argument : arguments) text += argument + " ";
    text += "\n";
    for (const auto& [profile, isPlugged, isHeld] : devices) {
        text += "  " + profile.unitName + ": unit " + std::to_string(profile.unitId) + ", answers after " +
                number(profile.answerDelay) + ", reboots in " + number(profile.leaveDelay) + " + " +
                number(profile.rebootTime) + (profile.bootTime ? ", boots in " + number(*profile.bootTime) : "") +
                (isPlugged ? "" : ", unplugged") + (isHeld ? ", held" : "") + "\n";
    }
    for (std::size_t i = 0; i < events.size(); ++i) text += "  [" + std::to_string(i) + "] " + events[i].text() + "\n";
    return text;
}

}  // namespace explore
