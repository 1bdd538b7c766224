// The scenarios, in the order in which the documentation lists them.
#include "cli/Scenario.hpp"
#include "simulator/engine/Wire.hpp"

#include <array>
#include <map>
#include <utility>

namespace twin {
namespace {

using simulator::BootState;
using simulator::BusOperation;
using simulator::Duration;
using simulator::Fault;
using simulator::FaultKind;
using simulator::Profile;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Arguments = std::vector<std::string>;

/// A device that leaves the bus for both of its starts.
Profile offTheBus(Profile profile, Duration rebootTime = seconds(1)) {
    profile.rebootTime = rebootTime;
    profile.bootTime = rebootTime;
    return profile;
}

Profile device(std::uint32_t unit = 3812345678, Duration rebootTime = seconds(1)) {
    Profile profile = offTheBus(Profile::handheld(), rebootTime);
    profile.unitId = unit;
    return profile;
}

/// The device once more, as it comes back under another port: in its boot loader, its cable not yet in.
ScenarioDevice elsewhere() {
    return {device(), {}, false, BootState::Starting};
}

Fault openFails(platform::IOReturn result, unsigned times, unsigned occurrence = 1) {
    return Fault::onOperation(BusOperation::USBDeviceOpen, result, occurrence).committed(times);
}

const Arguments kReset = {"reset", "--yes"};

/// One device and what goes wrong with it.
Scenario one(std::string name, std::string text, std::vector<Fault> faults, Profile profile = device()) {
    return {std::move(name), std::move(text), kReset, {{std::move(profile), std::move(faults)}}};
}

/// How a scenario ends where it is not a reset.
Scenario ends(Scenario scenario, Status status, std::string cause, std::optional<Stage> stage = {},
              bool cleared = false) {
    scenario.status = status;
    scenario.cause = std::move(cause);
    scenario.stage = stage;
    scenario.cleared.assign(scenario.devices.size(), false);
    if (cleared) scenario.cleared.front() = true;
    return scenario;
}

/// A stage failed, and the next attempt did it.
Scenario recovers(Scenario scenario, std::string cause, Stage stage) {
    return ends(std::move(scenario), Status::Done, std::move(cause), stage, true);
}

Scenario with(Scenario scenario, const Arguments& more) {
    scenario.arguments.insert(scenario.arguments.end(), more.begin(), more.end());
    return scenario;
}

Scenario cancelled(std::string name, Stage stage, Duration after, std::optional<Stage> failed, bool cleared = false,
                   std::vector<Fault> faults = {}) {
    std::string text = "Cancelled during \"" + std::string(info(stage).name) + "\".";
    Scenario scenario =
        ends(one(std::move(name), std::move(text), std::move(faults)), Status::Cancelled, {}, failed, cleared);
    scenario.cues = {{stage, after, Cue::What::Cancel, 0}};
    return scenario;
}

std::vector<Scenario> resets() {
    using enum FaultKind;
    std::vector<Scenario> table;
    table.push_back(one("reset", "One device, and nothing goes wrong.", {}));
    Profile stays = device();
    stays.bootTime.reset();
    table.push_back(one("boots-attached", "The device boots without leaving the bus.", {}, stays));
    table.push_back(one("back-at-once", "The device is back 0 ms after it left.", {}, device(1, Duration{0})));
    table.push_back(
        one("back-after-50-ms", "The device is back 50 ms after it left.", {}, device(1, milliseconds(50))));
    table.push_back(
        with(one("back-at-the-limit", "The device is back one second before the limit.", {}, device(1, seconds(3))),
             {"--limit", "back=4", "--limit", "back-again=4"}));
    const std::pair<const char*, std::pair<const char*, BusTells>> tellings[] = {
        {"departures-lost", {"The bus tells of no departure.", BusTells::ArrivalsOnly}},
        {"events-lost", {"The bus tells of no arrival and of no departure.", BusTells::Nothing}},
        {"events-twice", {"The bus tells of each arrival and each departure twice.", BusTells::AllTwice}},
    };
    for (const auto& [name, telling] : tellings) {
        table.push_back(one(name, telling.first, {}));
        table.back().tells = telling.second;
    }
    table.push_back(one("opens-late", "The device can't be opened for the first 1.5 s after its reboot.",
                        {openFails(platform::kIOReturnNotPermitted, 2, 2)}));
    table.push_back(
        ends(one("leaves-late", "Told to start, the device only falls silent; it leaves some seconds later, for 20 s.",
                 {Fault::onPacket(simulator::kProductRequest, Ignore).inState(BootState::Running).atOccurrence(2),
                  Fault::onPacket(simulator::kProductRequest, Unplug)
                      .inState(BootState::Running)
                      .atOccurrence(3)
                      .comingBackAfter(seconds(20))}),
             Status::Done, "TRV-301", Stage::IdentifiedAgain, true));
    table.push_back(
        ends(one("leaves-late-unseen",
                 "Told to start, the device falls silent, and leaves for 20 s while nobody has it open.",
                 {Fault::onPacket(simulator::kProductRequest, Ignore).inState(BootState::Running).atOccurrence(2),
                  Fault::onPacket(simulator::kStartSession, Unplug)
                      .onLayer(0)
                      .inState(BootState::Running)
                      .atOccurrence(3)
                      .comingBackAfter(seconds(20))}),
             Status::Done, "TRV-301", Stage::IdentifiedAgain, true));
    Scenario moved{"another-port", "The device comes back under another port.", kReset, {{device()}, elsewhere()}};
    moved.devices[0].faults = {Fault::onCommand(simulator::kReboot, Unplug)};
    moved.cues = {{Stage::Back, seconds(1), Cue::What::Plug, 1}};
    moved.cleared = {false, true};
    table.push_back(moved);
    Scenario early{"arrival-first",
                   "The arrival, under another port, is seen before the departure.",
                   kReset,
                   {{device()}, elsewhere()}};
    early.devices[0].faults = {Fault::onCommand(simulator::kReboot, Unplug).withDelay(seconds(3))};
    early.cues = {{Stage::Gone, seconds(1), Cue::What::Plug, 1}};
    early.cleared = {false, true};
    table.push_back(early);
    Profile slow = device();
    slow.answerDelay = milliseconds(50);
    Scenario twice =
        one("arrival-twice", "The device comes back, is gone while it is opened, and comes back again.", {}, slow);
    twice.cues = {{Stage::Back, milliseconds(1040), Cue::What::Unplug, 0},
                  {Stage::Back, milliseconds(1200), Cue::What::Plug, 0}};
    table.push_back(twice);
    Scenario nothing =
        one("clears-nothing", "The device takes the clear command and does nothing: no host can see that.",
            {Fault::onCommand(simulator::kClearStore, Ignore)});
    nothing.cleared = {false};
    table.push_back(nothing);
    table.push_back(recovers(one("clear-refused", "The out pipe stalls at the first clear: nothing is cleared.",
                                 {Fault::onCommand(simulator::kClearStore, Stall)}),
                             "TRV-302", Stage::Clear));
    Scenario pulled = recovers(
        one("unplugged-at-reboot", "The cable comes out while the reboot is being sent, which looks like the reboot.",
            {Fault::onCommand(simulator::kReboot, NotTaken)}),
        "TRV-303", Stage::Hold);
    pulled.cues = {{Stage::Reboot, milliseconds(200), Cue::What::Unplug, 0},
                   {Stage::Reboot, milliseconds(1200), Cue::What::Plug, 0}};
    table.push_back(pulled);
    Scenario cut = one("unplugged-at-resume", "The cable comes out while \"resume\" is being sent: it is sent again.",
                       {Fault::onPacket(simulator::kResumeBoot, NotTaken)});
    cut.cues = {{Stage::Resume, milliseconds(200), Cue::What::Unplug, 0},
                {Stage::Resume, milliseconds(1200), Cue::What::Plug, 0}};
    table.push_back(cut);
    Scenario stranger{"another-device-first",
                      "Another device of the same model arrives first.",
                      kReset,
                      {{device()}, {device(2), {}, false, BootState::Starting}}};
    stranger.cues = {{Stage::Back, milliseconds(200), Cue::What::Plug, 1}};
    stranger.cleared = {true, false};
    table.push_back(stranger);
    Scenario several{"three-at-once",
                     "Three devices are reset at once.",
                     {"reset", "--all", "--yes"},
                     {{device(1)}, {device(2)}, {device(3)}}};
    several.cleared = {true, true, true};
    table.push_back(several);
    Scenario each{"each",
                  "Each device as it is plugged in; one comes twice.",
                  {"reset", "--each", "--count", "2", "--yes"},
                  {{device(1)}, {device(2), {}, false}}};
    each.cues = {{Stage::IdentifiedAgain, milliseconds(1500), Cue::What::Unplug, 0},
                 {Stage::IdentifiedAgain, milliseconds(2500), Cue::What::Plug, 0},
                 {Stage::IdentifiedAgain, milliseconds(4500), Cue::What::Plug, 1}};
    each.cleared = {true, true};
    table.push_back(each);
    return table;
}

std::vector<Scenario> timeOuts() {
    using enum FaultKind;
    Scenario station =
        ends(one("station-stays", "Trovik Station does not quit.", {}), Status::TimedOut, "TRV-205", Stage::Quit);
    station.stationTakes = seconds(8);
    Profile lost = device();
    lost.bootTime = std::chrono::hours(1);
    return {
        station,
        ends(with(one("reboot-never-taken", "The device does not take the reboot command.",
                      {Fault::onCommand(simulator::kReboot, NotTaken).committed(2)}),
                  {"--limit", "reboot=1"}),
             Status::TimedOut, "TRV-303", Stage::Reboot),
        ends(one("never-leaves", "The device ignores every reboot.",
                 {Fault::onCommand(simulator::kReboot, Ignore).committed(2)}),
             Status::TimedOut, "TRV-303", Stage::Gone),
        ends(one("never-leaves-held", "The device refuses the clear and ignores the reboot after it; it is let start.",
                 {Fault::onCommand(simulator::kClearStore, Stall),
                  Fault::onCommand(simulator::kReboot, Ignore).atOccurrence(2)}),
             Status::TimedOut, "TRV-303", Stage::Gone),
        ends(one("never-back", "The device does not come back from its reboot.",
                 {Fault::onCommand(simulator::kReboot, Unplug)}),
             Status::TimedOut, "TRV-402", Stage::Back),
        ends(with(one("hold-cut-off", "The device does not answer \"hold\", and the limit is shorter than that wait.",
                      {Fault::onPacket(simulator::kHoldInBootLoader, Ignore).committed(2)}),
                  {"--limit", "hold=1"}),
             Status::TimedOut, "TRV-303", Stage::Hold),
        ends(with(one("clear-not-taken", "The device does not take the clear command; it is let start.",
                      {Fault::onCommand(simulator::kClearStore, NotTaken).committed(2)}),
                  {"--limit", "clear=1"}),
             Status::TimedOut, "TRV-303", Stage::Clear),
        ends(with(one("resume-not-taken", "The device does not take \"resume\": it is cleared and does not start.",
                      {Fault::onPacket(simulator::kResumeBoot, NotTaken).committed(2)}),
                  {"--limit", "resume=1"}),
             Status::NotSeenAgain, "TRV-402", Stage::BackAgain, true),
        ends(one("never-boots", "The device is cleared and does not come back.", {}, lost), Status::NotSeenAgain,
             "TRV-402", Stage::BackAgain, true),
        ends(one("never-identified", "The device is cleared, comes back, and does not say who it is.",
                 {Fault::onPacket(simulator::kProductRequest, Ignore)
                      .inState(BootState::Running)
                      .atOccurrence(2)
                      .committed(100)}),
             Status::NotSeenAgain, "TRV-303", Stage::IdentifiedAgain, true),
        ends(one("stalls-at-last", "The device is cleared, comes back, and its out pipe stalls whenever it is asked.",
                 {Fault::onPacket(simulator::kProductRequest, Stall)
                      .inState(BootState::Running)
                      .atOccurrence(2)
                      .committed(100)}),
             Status::NotSeenAgain, "TRV-302", Stage::IdentifiedAgain, true),
        ends(one("resumed-at-last",
                 "The device is cleared, its out pipe stalls, and only the very last \"resume\" gets through.",
                 {Fault::onPacket(simulator::kProductRequest, Stall)
                      .inState(BootState::HeldInBootLoader)
                      .atOccurrence(2)
                      .committed(2)}),
             Status::NotSeenAgain, "TRV-402", Stage::BackAgain, true),
    };
}

std::vector<Scenario> refusals() {
    using enum FaultKind;
    Scenario nobody{"none-found", "No device is attached.", kReset, {{device(), {}, false}}};
    Scenario several{"ambiguous", "Two devices, and none is chosen.", kReset, {{device(1)}, {device(2)}}};
    Scenario unconfirmed = one("not-confirmed", "Nobody can be asked.", {});
    unconfirmed.arguments = {"reset"};
    Scenario unreadable = one("list-unreadable", "The list of the devices that are attached can't be read.", {});
    unreadable.tells = BusTells::Refuses;
    Scenario other = one("other-run", "Another run works on the device.", {});
    other.otherRun = true;
    Scenario first = one("unplugged-first", "The cable comes out before the device has been told anything.", {});
    first.stationTakes = seconds(2);
    first.cues = {{Stage::Quit, seconds(1), Cue::What::Unplug, 0}};
    const Scenario gone = one("gone-for-good", "The cable comes out at \"hold\" and stays out.",
                              {Fault::onPacket(simulator::kHoldInBootLoader, Unplug)});
    Scenario once = with(gone, {"--retries", "0"});
    once.name = "gone-for-good-at-once";
    once.text = "The cable comes out at \"hold\" and stays out; nothing is begun anew.";
    return {
        ends(first, Status::Failed, "TRV-301", Stage::Reboot),
        ends(gone, Status::Failed, "TRV-301", Stage::Reboot),
        ends(once, Status::Failed, "TRV-301", Stage::Resume),
        ends(one("unplugged-after-clear",
                 "The cable comes out before the device has come to the clear command, and goes in again after 3 s.",
                 {Fault::onCommand(simulator::kClearStore, Ignore), Fault::onPacket(simulator::kProductRequest, Unplug)
                                                                        .inState(BootState::HeldInBootLoader)
                                                                        .atOccurrence(2)
                                                                        .comingBackAfter(seconds(3))}),
             Status::Failed, "TRV-301", Stage::Resume),
        ends(unreadable, Status::Failed, "TRV-103"),
        ends(unconfirmed, Status::Usage, {}),
        ends(nobody, Status::NoneFound, "TRV-101"),
        ends(several, Status::Ambiguous, "TRV-102"),
        ends(one("not-allowed", "This account may not open the device.",
                 {openFails(platform::kIOReturnNotPermitted, 100)}),
             Status::NotAllowed, "TRV-204", Stage::Reboot),
        ends(one("never-opens", "After its reboot the device can't be opened any more.",
                 {openFails(platform::kIOReturnNotPermitted, 1000, 2)}),
             Status::NotAllowed, "TRV-204", Stage::Back),
        ends(one("busy", "Another program holds the device.", {openFails(platform::kIOReturnExclusiveAccess, 100)}),
             Status::Busy, "TRV-205", Stage::Reboot),
        ends(other, Status::OtherRun, "TRV-205"),
    };
}

std::vector<Scenario> cancels() {
    using enum FaultKind;
    const Fault slow = Fault::onPacket(simulator::kHoldInBootLoader, Ignore);
    return {
        cancelled("cancel-at-reboot", Stage::Reboot, milliseconds(500), Stage::Reboot, false,
                  {Fault::onCommand(simulator::kReboot, NotTaken)}),
        cancelled("cancel-while-away", Stage::Back, milliseconds(300), Stage::Back),
        cancelled("cancel-at-hold", Stage::Hold, milliseconds(500), Stage::Hold, false, {slow}),
        cancelled("cancel-at-clear", Stage::Clear, milliseconds(500), Stage::Clear, false,
                  {Fault::onCommand(simulator::kClearStore, NotTaken)}),
        cancelled("cancel-at-resume", Stage::Resume, milliseconds(500), Stage::Resume, true,
                  {Fault::onPacket(simulator::kResumeBoot, NotTaken)}),
        cancelled("cancel-while-booting", Stage::BackAgain, milliseconds(500), Stage::BackAgain, true),
    };
}

/// Each fault of the simulated device's catalogue.
std::vector<Scenario> catalogue() {
    struct Failure {
        std::string_view cause;
        Stage stage;
    };
    /// What fails at the first attempt, and succeeds at the second. The faults that are not here do no harm.
    static const std::map<std::string_view, Failure> failures = {
        {"hold-ignored", {"TRV-303", Stage::Hold}},         {"hold-too-late", {"TRV-303", Stage::Hold}},
        {"hold-wrong-id", {"TRV-303", Stage::Hold}},        {"hold-garbage", {"TRV-303", Stage::Hold}},
        {"hold-wrong-size", {"TRV-303", Stage::Hold}},      {"no-session", {"TRV-303", Stage::Reboot}},
        {"no-product-data", {"TRV-303", Stage::Reboot}},    {"no-protocol-list", {"TRV-305", Stage::Reboot}},
        {"product-data-stall", {"TRV-302", Stage::Reboot}}, {"hold-stall", {"TRV-302", Stage::Hold}},
        {"reboot-ignored", {"TRV-303", Stage::Gone}},       {"reboot-not-taken", {"TRV-303", Stage::Reboot}},
        {"hold-unplug", {"TRV-301", Stage::Hold}},          {"resume-stall", {"TRV-302", Stage::Resume}},
        {"open-held", {"TRV-205", Stage::Reboot}},
    };
    std::vector<Scenario> table;
    for (const Fault& fault : simulator::faultCatalogue()) {
        Scenario scenario = one(fault.name, fault.sentence + ".", {fault});
        const auto failure = failures.find(fault.name);
        if (fault.name == "reboot-unplug") {
            scenario = ends(scenario, Status::TimedOut, "TRV-402", Stage::Back);
        } else if (fault.name == "open-denied") {
            scenario = ends(scenario, Status::NotAllowed, "TRV-204", Stage::Reboot);
        } else if (fault.name == "clear-unplug") {  // nobody knows whether the device came to it before the cable did
            scenario = ends(scenario, Status::Failed, "TRV-301", Stage::Resume);
        } else if (failure != failures.end()) {
            scenario = recovers(scenario, std::string(failure->second.cause), failure->second.stage);
        }
        table.push_back(std::move(scenario));
    }
    return table;
}

std::vector<Scenario> otherCommands() {
    const auto does = [](Scenario scenario, Arguments arguments) {
        scenario.arguments = std::move(arguments);
        scenario.cleared.assign(scenario.devices.size(), false);
        return scenario;
    };
    const auto silent = Fault::onPacket(simulator::kStartSession, FaultKind::Ignore).onLayer(0).committed(100);
    const auto held = openFails(platform::kIOReturnExclusiveAccess, 100);
    Scenario watch =
        ends(one("watch", "A device goes and comes until somebody has seen enough.", {}), Status::Cancelled, {});
    watch.cues = {{{}, seconds(1), Cue::What::Unplug, 0},
                  {{}, seconds(2), Cue::What::Plug, 0},
                  {{}, seconds(4), Cue::What::Cancel, 0}};
    Scenario left = one("left-held", "A device that waits in its boot loader is let start.", {});
    left.devices.front().state = BootState::HeldInBootLoader;
    Scenario pulled =
        one("left-held-unplugged", "The cable comes out while it is let start: nobody knows whether it does.",
            {Fault::onPacket(simulator::kResumeBoot, FaultKind::NotTaken)});
    pulled.devices.front().state = BootState::HeldInBootLoader;
    pulled.cues = {{Stage::Resume, milliseconds(200), Cue::What::Unplug, 0}};
    Profile slow = device();
    slow.answerDelay = milliseconds(50);
    Scenario again = one("left-held-replugged",
                         "The cable comes out before the device has said who it is. What is at its port then may be "
                         "another one and is left alone.",
                         {}, slow);
    again.devices.front().state = BootState::HeldInBootLoader;
    again.cues = {{Stage::Resume, milliseconds(60), Cue::What::Unplug, 0},
                  {Stage::Resume, milliseconds(1200), Cue::What::Plug, 0}};
    return {
        does(one("list", "The devices that are attached.", {}), {"list"}),
        does(watch, {"list", "--watch"}),
        does(one("check", "A device is opened and says who it is.", {}), {"check"}),
        does(ends(one("check-held", "A device can't be opened, and why.", {held}), Status::Busy, "TRV-205"), {"check"}),
        does(ends(one("check-silent", "A device is opened and says nothing.", {silent}), Status::TimedOut, "TRV-303"),
             {"check"}),
        does(ends(one("explain", "Why a device can't be opened, and what to do.", {held}), Status::Busy, "TRV-205"),
             {"explain", "1-1"}),
        does(left, {"resume", "1-1"}),
        does(ends(one("left-held-busy", "It can't be let start, since another program holds it.", {held}), Status::Busy,
                  "TRV-205", Stage::Resume),
             {"resume", "1-1"}),
        does(ends(pulled, Status::Failed, "TRV-301", Stage::Resume), {"resume", "1-1"}),
        does(ends(again, Status::Failed, "TRV-301", Stage::Resume), {"resume", "1-1"}),
    };
}

std::vector<Scenario> makeTable() {
    std::vector<Scenario> table;
    for (const auto& part : {resets(), timeOuts(), refusals(), cancels(), catalogue(), otherCommands()}) {
        table.insert(table.end(), part.begin(), part.end());
    }
    return table;
}

}  // namespace

std::span<const std::pair<std::string_view, Profile (*)()>> scenarioProfiles() {
    using Named = std::pair<std::string_view, Profile (*)()>;
    static const std::array<Named, 4> profiles = {
        Named{"handheld", [] { return offTheBus(Profile::handheld()); }},
        Named{"wearable", [] { return offTheBus(Profile::wearable()); }},
        Named{"without-protocols", [] { return offTheBus(Profile::withoutProtocols()); }},
        Named{"instant", [] { return Profile::instant(); }},
    };
    return profiles;
}

std::span<const Scenario> scenarios() {
    static const std::vector<Scenario> table = makeTable();
    return table;
}

}  // namespace twin
