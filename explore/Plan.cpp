#include "explore/Plan.hpp"

#include "explore/Dice.hpp"
#include "simulator/engine/Wire.hpp"

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>

namespace explore {
namespace {

using simulator::BusOperation;
using simulator::Duration;
using simulator::Fault;
using simulator::FaultKind;
using enum simulator::PacketId;
using std::chrono::milliseconds;
using What = Event::What;

constexpr std::array kProfiles = {&simulator::Profile::handheld, &simulator::Profile::wearable,
                                  &simulator::Profile::withoutProtocols, &simulator::Profile::instant};
constexpr std::array kResults = {platform::kIOReturnError, platform::kIOReturnNoDevice, platform::kIOReturnNotPermitted,
                                 platform::kIOReturnExclusiveAccess, platform::kIOReturnTimeout};
/// Packets of the host and of the device that a fault can strike at: of the session, of identification and of a reset.
/// The hold stands there twice, to be chosen more often.
constexpr std::array<std::uint16_t, 13> kIds = {
    kStartSession,     kSessionStarted,   kAskLargest,          kLargest,     kProductRequest,
    kProductData,      kProtocolList,     kExtendedProductData, kDataRequest, kCommand,
    kHoldInBootLoader, kHoldInBootLoader, kResumeBoot};
constexpr auto kLastKind = static_cast<unsigned>(FaultKind::Unplug);
/// Of each kind of fault but FailOperation, in their order.
constexpr std::array kKinds = {"ignored",        "not taken",   "no answer", "late answer",
                               "wrong answer",   "wrong layer", "garbage",   "garbage before",
                               "foreign frames", "wrong size",  "split",     "padded",
                               "unannounced",    "repeated",    "stall",     "unplug"};
static_assert(kKinds.size() == kLastKind + 1);
/// Those that belong to no one device; all but the first two can also fail for one.
constexpr std::array kOfBus = {BusOperation::IOServiceGetMatchingServices,
                               BusOperation::IOServiceAddMatchingNotification, BusOperation::IORegistryEntryFromPath};
constexpr auto kFirstOperation = static_cast<unsigned>(BusOperation::IORegistryEntryGetPath);
constexpr auto kLastOperation = static_cast<unsigned>(BusOperation::WritePipeAsync);

/// Writes one world's plan.
class Author {
  public:
    explicit Author(std::uint64_t seed) : mDice(seed) { mPlan.seed = seed; }

    Plan write() {
        const unsigned count = mDice.oneIn(2) ? 1 : mDice.between(2, 8);
        for (unsigned port = 0; port < count; ++port) mPlan.devices.push_back(device(port));
        mPlan.hasPlainUnits = !mDice.oneIn(12);
        if (!mPlan.hasPlainUnits) {
            for (auto& planned : mPlan.devices) planned.profile.unitId = mDice.oneIn(2) ? 0 : 1000;
        }
        chooseCommand();
        if (mDice.oneIn(6)) {
            mPlan.arguments = {"window"};
            mPlan.pressedAfter = milliseconds(mDice.oneIn(2) ? 0 : mDice.below(3000));
        }
        add({What::Shuffle}, 8, 7);
        add({.what = What::Tells, .tells = static_cast<twin::BusTells>(mDice.between(1, 3))}, 6);
        add({.what = What::Station, .after = milliseconds(mDice.between(1, 9000))}, 4);
        add({What::StuckStation}, 12);
        add({What::OtherRun, mDice.below(count)}, 25);
        for (unsigned left = mDice.oneIn(6) ? 3 : 0; left > 0; --left) add(clockStep(), 2);
        add(timed({What::FullDisk}), 12);
        add({.what = What::FullDisk, .turn = 0}, 25);
        for (unsigned left = mDice.below(4); left > 0; --left) misfortune();
        add(timed({What::Cancel}), 6);
        if (mPlan.has(What::Cancel)) add(timed({What::Cancel}), 4);
        add(timed({What::Kill}), 8);
        add(timed({What::PowerCut}), 12);
        // The window lives on arrivals, each told once, and does not tell of its stages.
        if (mPlan.isWindow()) {
            std::erase_if(mPlan.events, [](const Event& event) { return event.what == What::Tells; });
            for (Event& event : mPlan.events) event.stage.reset();
        }
        for (const char* const name : {"foreign 1", "foreign 2"}) {
            simulator::Profile profile;
            profile.productId = Plan::kForeignProduct;
            profile.unitName = name;
            mPlan.devices.push_back({.profile = std::move(profile), .plugged = false});
        }
        return std::move(mPlan);
    }

  private:
    void add(Event event, unsigned many, unsigned times = 1) {
        if (mDice.below(many) < times) mPlan.events.push_back(std::move(event));
    }

    twin::ScenarioDevice device(unsigned port) {
        twin::ScenarioDevice planned{kProfiles[mDice.below(kProfiles.size())]()};
        auto& profile = planned.profile;
        profile.unitId = 1000 + port;
        profile.unitName = "device " + std::to_string(port);
        if (mDice.oneIn(2)) profile.answerDelay = milliseconds(mDice.oneIn(2) ? mDice.below(5) : mDice.below(300));
        if (mDice.oneIn(2)) profile.rebootTime = milliseconds(mDice.below(6000));
        if (mDice.oneIn(2)) profile.bootTime = milliseconds(mDice.below(4000));
        if (mDice.oneIn(4)) profile.leaveDelay = milliseconds(mDice.below(1000));
        if (mDice.oneIn(3)) profile.bootWindow = milliseconds(mDice.between(4000, 8000));
        // A device that leaves later than at once is not back in the very moment in which it leaves.
        if (profile.leaveDelay > Duration{0})
            profile.rebootTime = std::max<Duration>(profile.rebootTime, milliseconds(1));
        planned.plugged = !mDice.oneIn(12);
        if (mDice.oneIn(12)) planned.state = simulator::BootState::HeldInBootLoader;
        return planned;
    }

    void chooseCommand() {
        const auto port = mDice.below(static_cast<unsigned>(mPlan.devices.size()));
        const std::string name =
            mDice.oneIn(2) ? "1-" + std::to_string(port + 1) : "unit:" + std::to_string(1000 + port);
        const unsigned choice = mDice.below(10);
        if (choice == 0) return say(mDice.oneIn(2) ? Words{"check", name} : Words{"check"});
        if (choice == 1) mPlan.devices[port].state = simulator::BootState::HeldInBootLoader;
        if (choice == 1) return say({"resume", name});
        say({"reset", "--yes"});
        say(choice < 4    ? Words{name}
            : choice == 4 ? Words{"--each", "--count", std::to_string(port + 1)}
                          : Words{"--all"});
        if (mDice.oneIn(3)) say({"--retries", std::to_string(mDice.below(4))});
        if (mDice.oneIn(4)) say({"--jobs", std::to_string(mDice.between(1, 3))});
        if (mDice.oneIn(4)) say({"--wait", std::to_string(mDice.below(12))});
        if (mDice.oneIn(4)) say({"--keep-station"});
    }

    using Words = std::vector<std::string>;
    void say(const Words& words) { mPlan.arguments.insert(mPlan.arguments.end(), words.begin(), words.end()); }

    /// At a moment of the run's first seconds, soon after a stage's beginning, or between two turns.
    Event timed(Event event) {
        const unsigned choice = mDice.below(10);
        if (choice < 3) event.turn = mDice.below(mDice.oneIn(2) ? 50 : 300);
        if (choice >= 5) event.stage = static_cast<twin::Stage>(mDice.below(twin::kStages.size()));
        const unsigned range = mDice.oneIn(3) ? 1 : mDice.oneIn(2) ? 40 : choice < 5 ? 8000 : 2500;
        event.after = milliseconds(mDice.below(range));
        return event;
    }

    /// The time of day is set by seconds or by days.
    Event clockStep() {
        Event event = timed({What::ClockStep});
        const unsigned range = mDice.oneIn(2) ? 60 : 9 * 24 * 3600;
        event.by = std::chrono::seconds(mDice.below(range));
        if (mDice.oneIn(2)) event.by = -event.by;
        return event;
    }

    /// A fault of a device or of the bus, or a cable that comes out and mostly goes in again, there or at another port.
    void misfortune() {
        const auto count = static_cast<unsigned>(mPlan.devices.size());
        const std::size_t port = mDice.below(count);
        const unsigned choice = mDice.below(10);
        if (choice < 6) return mPlan.events.push_back({.what = What::Fault, .device = port, .fault = fault()});
        if (choice == 6) {
            Event event{.what = What::BusFault, .fault = operationFails(mDice.of(kOfBus))};
            event.fault.step.occurrence = mDice.between(1, 6);
            return mPlan.events.push_back(event);
        }
        Event event = timed({.what = choice == 7 ? What::Unplug : What::Swap, .device = port});
        event.other = mDice.below(count + 2);  // the last two ports are empty
        if (event.what == What::Swap && event.other == port) event.other = count;
        if (event.what == What::Swap && mDice.oneIn(2)) event.turn = mDice.below(20);  // where the first openings are
        mPlan.events.push_back(event);
        const unsigned longest = mDice.oneIn(3) ? 1 : mDice.oneIn(2) ? 100 : 9000;
        event.after += milliseconds(mDice.below(longest));
        if (event.turn) *event.turn += mDice.below(mDice.oneIn(2) ? 3 : 20);
        const bool swaps = event.what == What::Swap;
        event.what = What::Plug;
        if (!mDice.oneIn(4)) mPlan.events.push_back(event);
        event.device = event.other;
        if (swaps) mPlan.events.push_back(event);
    }

    // Each throw in a statement of its own: in which order arguments are evaluated is the compiler's choice.
    Fault operationFails(BusOperation operation) {
        const auto result = mDice.of(kResults);
        Fault fault = Fault::onOperation(operation, result);
        fault.name.insert(std::string_view("operation").size(), " " + std::to_string(static_cast<unsigned>(operation)));
        return fault;
    }

    /// In the boot loader, or wherever it is by then: for good, or until its cable is in again.
    Fault fallsSilent() {
        const bool isUnplug = mDice.oneIn(2);
        Fault fault;
        fault.name = isUnplug ? "cable out" : "silent";
        fault.kind = isUnplug ? FaultKind::Unplug : FaultKind::Ignore;
        fault.step.at = simulator::FaultStep::At::HostPacket;
        if (!mDice.oneIn(3)) fault.step.state = simulator::BootState::HeldInBootLoader;
        fault.step.occurrence = mDice.between(1, 12);
        fault.comesBack = milliseconds(mDice.below(mDice.oneIn(2) ? 5000 : 60'000));
        return fault.committed(isUnplug ? 1 : 1000);
    }

    Fault fault() {
        const unsigned choice = mDice.below(10);
        Fault fault = mDice.of(simulator::faultCatalogue());
        if (choice < 3) {
            fault = operationFails(static_cast<BusOperation>(mDice.between(kFirstOperation, kLastOperation)));
        } else if (choice == 6) {
            return fallsSilent();
        } else if (choice < 6) {
            const auto kind = static_cast<FaultKind>(mDice.below(kLastKind + 1));
            const bool ofHost = kind == FaultKind::Ignore || kind == FaultKind::NotTaken;
            const std::uint16_t id = mDice.of(kIds);
            fault = ofHost || mDice.oneIn(3) ? Fault::onPacket(id, kind) : Fault::onAnswer(id, kind);
            fault.name = std::string(kKinds.at(static_cast<unsigned>(kind))) + " at packet " + std::to_string(id);
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

/// Of each kind of event, in their order.
constexpr std::array kTexts = {
    "shuffled turns",  "the bus tells", "station quits", "station is stuck", "other run has", "fault of", "plug",
    "unplug",          "swap",          "clock step",    "full disk",        "cancel",        "kill",     "power cut",
    "fault of the bus"};
static_assert(kTexts.size() == static_cast<std::size_t>(What::BusFault) + 1);

std::string inMilliseconds(Duration span) {
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

Event Plan::first(What what) const {
    const auto found = std::ranges::find(events, what, &Event::what);
    return found == events.end() ? Event{.what = what} : *found;
}

bool Event::concerns(std::size_t port) const {
    if (what == What::Station) return after > milliseconds(7000);  // two programs, and a limit of 15 s
    const bool isIts = device == port || (what == What::Swap && other == port);
    return what >= What::Cancel || (isOfDevice() && isIts);
}

const char* Event::name() const {
    return kTexts.at(static_cast<std::size_t>(what));
}

std::string Event::text() const {
    std::ostringstream text;
    text << name();
    if (isOfDevice()) text << " device " << device;
    if (what == What::Tells) text << " " << static_cast<int>(tells);
    if (what == What::ClockStep) text << " by " << inMilliseconds(by);
    if (what == What::Swap) text << " with " << other;
    if (!fault.name.empty())
        text << ": " << fault.name << ", time " << fault.step.occurrence << ", " << fault.times << " times"
             << (fault.delay ? ", " + inMilliseconds(*fault.delay) : "");
    if (turn) text << " at turn " << *turn;
    if (stage) text << " in \"" << twin::info(*stage).name << "\"";
    if (!turn && (isTimed() || what == What::Station)) text << " after " << inMilliseconds(after);
    return text.str();
}

std::string Plan::text() const {
    std::ostringstream text;
    for (const auto& argument : arguments) text << "  " << argument;
    if (isWindow()) text << ", pressed after " << inMilliseconds(pressedAfter);
    for (const auto& [profile, faults, isPlugged, state] : devices) {
        text << "\n  " << profile.unitName << ": unit " << profile.unitId << ", answers after "
             << inMilliseconds(profile.answerDelay) << ", reboots in " << inMilliseconds(profile.leaveDelay) << " + "
             << inMilliseconds(profile.rebootTime) << ", boots in "
             << inMilliseconds(profile.bootTime.value_or(Duration{0})) << ", " << simulator::bootStateName(state)
             << (isPlugged ? "" : ", unplugged");
    }
    for (std::size_t i = 0; i < events.size(); ++i) text << "\n  [" << i << "] " << events[i].text();
    text << "\n";
    return text.str();
}

}  // namespace explore
