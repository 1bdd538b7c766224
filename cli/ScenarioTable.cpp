// The scenarios, in the order in which the documentation lists them.
#include "cli/Scenario.hpp"
#include "simulator/engine/Wire.hpp"

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
Profile device(std::uint32_t unit = 3812345678, Duration rebootTime = seconds(1)) {
    Profile profile = Profile::handheld();
    profile.unitId = unit;
    profile.rebootTime = rebootTime;
    profile.bootTime = rebootTime;
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
    Scenario moved{"another-port", "The device comes back under another port.", kReset, {{device()}, elsewhere()}};
    moved.devices[0].faults = {Fault::onCommand(simulator::kReboot, Unplug)};
    moved.cues = {{Stage::Back, seconds(1), Cue::What::Plug, 1}};
    moved.cleared = {false, true};
    table.push_back(moved);
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

std::vector<Scenario> secondAttempts() {
    using enum FaultKind;
    Scenario pulled = recovers(
        one("unplugged-at-reboot", "The cable comes out while the reboot is being sent, which looks like the reboot.",
            {Fault::onCommand(simulator::kReboot, NotTaken)}),
        "TRV-303", Stage::Hold);
    pulled.cues = {{Stage::Reboot, milliseconds(200), Cue::What::Unplug, 0},
                   {Stage::Reboot, milliseconds(1200), Cue::What::Plug, 0}};
    return {
        pulled,
        recovers(one("reboot-ignored", "The device ignores the first reboot.",
                     {Fault::onCommand(simulator::kReboot, Ignore)}),
                 "TRV-303", Stage::Gone),
        recovers(one("hold-unanswered", "The device does not answer the first \"hold\".",
                     {Fault::onPacket(simulator::kHoldInBootLoader, Ignore)}),
                 "TRV-303", Stage::Hold),
        recovers(one("clear-refused", "The out pipe stalls at the first clear: nothing is cleared.",
                     {Fault::onCommand(simulator::kClearStore, Stall)}),
                 "TRV-302", Stage::Clear),
        recovers(one("resume-refused", "The out pipe stalls at the first \"resume\".",
                     {Fault::onPacket(simulator::kResumeBoot, Stall)}),
                 "TRV-302", Stage::Resume),
        recovers(one("unplugged-at-hold", "The cable comes out at \"hold\", and goes in again after 3 s.",
                     {Fault::onPacket(simulator::kHoldInBootLoader, Unplug).comingBackAfter(seconds(3))}),
                 "TRV-301", Stage::Hold),
    };
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
        ends(with(one("reboot-not-taken", "The device does not take the reboot command.",
                      {Fault::onCommand(simulator::kReboot, NotTaken).committed(2)}),
                  {"--limit", "reboot=1"}),
             Status::TimedOut, "TRV-303", Stage::Reboot),
        ends(one("never-leaves", "The device ignores every reboot.",
                 {Fault::onCommand(simulator::kReboot, Ignore).committed(2)}),
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
    };
}

std::vector<Scenario> refusals() {
    using enum FaultKind;
    Scenario nobody{"none-found", "No device is attached.", kReset, {{device(), {}, false}}};
    Scenario several{"ambiguous", "Two devices, and none is chosen.", kReset, {{device(1)}, {device(2)}}};
    Scenario unconfirmed = one("not-confirmed", "Nobody can be asked.", {});
    unconfirmed.arguments = {"reset"};
    Scenario other = one("other-run", "Another run works on the device.", {});
    other.otherRun = true;
    return {
        ends(one("gone-for-good", "The cable comes out at \"hold\" and stays out.",
                 {Fault::onPacket(simulator::kHoldInBootLoader, Unplug)}),
             Status::Failed, "TRV-301", Stage::Reboot),
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

std::vector<Scenario> makeTable() {
    std::vector<Scenario> table;
    for (const auto& part : {resets(), secondAttempts(), timeOuts(), refusals(), cancels()}) {
        table.insert(table.end(), part.begin(), part.end());
    }
    return table;
}

}  // namespace

std::span<const Scenario> scenarios() {
    static const std::vector<Scenario> table = makeTable();
    return table;
}

}  // namespace twin
