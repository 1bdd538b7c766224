#pragma once

#include "app/TrovikMode/DeviceLock.hpp"
#include "cli/Commands.hpp"
#include "cli/Journal.hpp"
#include "explore/Baton.hpp"
#include "explore/Machine.hpp"
#include "explore/Plan.hpp"
#include "explore/Report.hpp"
#include "explore/Window.hpp"
#include "simulator/bus/InProcessBus.hpp"
#include "simulator/engine/Record.hpp"
#include "simulator/engine/Wire.hpp"
#include "simulator/world/ManualQueue.hpp"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace explore {

using nlohmann::json;
using simulator::BootState;
using simulator::Device;
using simulator::Duration;
using simulator::Time;
using std::chrono::seconds;
using twin::Status;
using What = Event::What;

/// What a world is made of, as far as it is looked at, and how far it is. The world owns and changes it.
struct Scene {
    const Plan& plan;
    const std::string journalFolder;
    Baton baton{plan.seed, plan.has(What::Shuffle)};
    simulator::InProcessBus bus{baton};
    const Duration stationTakes = plan.has(What::StuckStation) ? seconds(3) : plan.first(What::Station).after;
    Station station{stationTakes, plan.has(What::StuckStation)};
    simulator::ManualQueue mainQueue{baton};
    std::vector<Device*> devices = {};        ///< by port; a swap changes what is behind the pointers
    std::optional<DeviceLock> otherRun = {};  ///< what another run has locked
    Window* window = nullptr;                 ///< while the program with the window runs
    std::ostringstream out = {};              ///< what the last command told, in JSON lines
    std::optional<Time> cancelled = {};
    bool isUnderWay = false;  ///< a run: from its command, or Reset Now, on
    bool hasChosen = false;   ///< the command's first stage has begun
    bool isEpilogue = false;  ///< all that was wrong has been taken away, or soon is: whatever runs now has to work
};

/// What must hold in a world. It follows each device's record while the world goes on, and after a run looks at what
/// was told, and at what is left open, locked or held. What does not hold ends the process (fail). The world owns it;
/// whoever has the baton may call.
class Checks {
  public:
    /// @param scene  must outlive it
    explicit Checks(Scene& scene) : mScene(scene) {
        for (std::size_t index = 0; index < mPlan.devices.size(); ++index)
            mKnown[mPlan.devices[index].profile.unitName] = {&mPlan.devices[index], index};
    }

    // ---- limits

    /// Longer than any run may take; one that resets each device that comes is cancelled then.
    [[nodiscard]] Duration longestRun(const twin::Options& options) const {
        if (options.each) return seconds(400);  // it may wait for devices that never come
        const double attempt = std::reduce(options.plan.limits.begin(), options.plan.limits.end());
        const double device = attempt * (options.plan.retries + 1) + kLastStart;
        const auto own = mPlan.devices.size() - Plan::kForeign;
        const auto turns = options.jobs > 0 ? own / options.jobs + 1 : 1;
        return std::chrono::ceil<seconds>(
            std::chrono::duration<double>(kBeforeStages + options.wait + device * static_cast<double>(turns)));
    }

    /// After its cancel a run has ended within this.
    [[nodiscard]] Duration longestCancel() const { return seconds(8) + 2 * mScene.stationTakes; }

    // ---- while it goes on

    /// A run begins: what is open by now is not left by it.
    void begin() {
        mFilesBefore = openFiles();
        lookAtDevices();
    }

    /// At every change of a device, at once: where nothing takes time, a whole reset is one turn.
    void lookAtDevices() {
        for (std::size_t port = 0; port < mScene.devices.size(); ++port) {
            const Device& one = *mScene.devices[port];
            Known& known = mKnown.at(one.profile().unitName);
            if (mScene.isUnderWay && !mScene.hasChosen && !mScene.isEpilogue && mayMean(known, port))
                known.isChosen = true;
            const auto& entries = one.record().entries();
            while (known.seen < entries.size()) recorded(one, known, entries[known.seen++]);
        }
        if (mScene.window) mScene.window->lookAtNextAction();
    }

    // ---- in the end

    /// After a command that was not killed.
    void lookAtEnd(Status status) {
        lookForLeft();
        const auto events = eventsTold(status);
        if (mScene.isEpilogue || !mPlan.hasPlainUnits) return;
        const bool resets = mPlan.says("reset");
        for (const Device* const device : mScene.devices) {
            const Device& one = *device;
            const Known& known = knownOf(one);
            if (!known.isChosen) continue;
            const std::string& name = one.profile().unitName;
            const json* const end = endOf(one, events);
            const bool isDone = end && end->at("status") == 0;
            const auto isSaid = [&](const char* text) {
                return end && end->at("text").get<std::string>().find(text) != std::string::npos;
            };
            const bool isHeld = one.bootState() == BootState::HeldInBootLoader;
            if (resets && (isDone || isSaid("Its settings are cleared")) && !one.store().empty() && !ignoresClear(one))
                fail(name + " is said to be reset, and is not.");
            if (resets && isSaid("Its settings are as they were") && one.store().empty())
                fail(name + " is said not to be reset, and is.");
            if (status == Status::Done && end && !isDone) fail("The run is said to be done, and " + name + " is not.");
            if (isHeld && !known.isHeldFirst() && !known.isToldToStart) {
                if (!isNoted(one) && !(mPlan.has(What::FullDisk) &&
                                       mScene.out.view().find("can't be written down") != std::string::npos))
                    fail(name + " is left held, and the journal does not know.");
                if (!isSaid("boot loader")) fail(name + " is left held, and nobody says so.");
            }
            const bool isOwn = end && (mPlan.says("resume") || !known.isHeldFirst());
            if (isHeld && isOwn && mScene.cancelled && !known.isToldToStart && !isDisturbed(known, What::Cancel))
                fail("The cancel leaves " + name + " held.");
            if (mPlan.says("--each") || isDisturbed(known) || !known.planned->plugged) continue;
            if (!isDone) fail("Nothing befell " + name + ", and it is not done.");
            if (isHeld) fail("Nothing befell " + name + ", and it is held.");
            if (isNoted(one)) fail(name + " is done, and the journal keeps it.");
            if (resets && end->at("at") > latestEnd(one.profile()))
                fail(name + " could have been done earlier: " + end->dump());
        }
    }

    /// After a run that lets start what an earlier one left held.
    void lookForHeld() const {
        for (const Device* const one : mScene.devices) {
            const bool isHeld = one->bootState() == BootState::HeldInBootLoader;
            if (isHeld && !knownOf(*one).isToldToStart && (mScene.window || !knownOf(*one).isHeldFirst()))
                fail(one->profile().unitName + " is still held.");
        }
    }

    /// The window is not complete though it had the time.
    void lookAtWaitingWindow() const {
        const auto isDisturbed = [this](const auto& known) { return this->isDisturbed(known.second); };
        if (std::ranges::any_of(mPlan.devices, &twin::ScenarioDevice::plugged) &&
            std::ranges::none_of(mKnown, isDisturbed))
            fail("Nothing befell anything, and the window is not complete.");
    }

    /// @param isUnfinished  it says, as it is quit, that the reset is unfinished
    void lookAtQuitWindow(bool isUnfinished) const {
        const bool isOne = mPlan.hasOneDevice() && !mKnown.begin()->second.isHeldFirst();
        if (isOne && !isUnfinished && mScene.devices.front()->bootState() == BootState::HeldInBootLoader)
            fail("It is left held, and nobody says so.");
    }

    /// The window is complete, with everything well again.
    void lookAtCompleteWindow() {
        lookForLeft();
        const auto isCleared = [this](const Device* one) { return one->store().empty() || ignoresClear(*one); };
        if (std::ranges::none_of(mScene.devices, isCleared)) fail("It is complete, and no device is cleared.");
        if (mPlan.hasOneDevice()) lookForHeld();
    }

  private:
    /// What is known of a device, whichever port it is plugged into.
    struct Known {
        const twin::ScenarioDevice* planned = nullptr;
        std::size_t index = 0;       ///< in the plan, which is also its first port
        std::size_t seen = 0;        ///< so many entries of its record were looked at
        bool isChosen = false;       ///< the command line means it
        bool isToldToStart = false;  ///< since it was last held. If it stays held all the same, no host can know

        [[nodiscard]] bool isHeldFirst() const { return planned->state == BootState::HeldInBootLoader; }
    };

    const Known& knownOf(const Device& device) const { return mKnown.at(device.profile().unitName); }

    /// How many files this process has open. Log files don't count: they come and go with days.
    static std::ptrdiff_t openFiles() {
        return std::ranges::count_if(std::filesystem::directory_iterator("/proc/self/fd"), [](const auto& file) {
            std::error_code gone;  // the iterator's own
            return std::filesystem::read_symlink(file, gone).extension() != ".txt";
        });
    }

    /// Whether the command line may mean a device at a port: all that it may have meant before its first stage begins
    /// count as chosen. The window means every device.
    bool mayMean(const Known& known, std::size_t port) const {
        if (mPlan.says("check") || Plan::isForeign(known.planned->profile)) return false;
        return mPlan.isWindow() || mPlan.says("--each") ||
               mPlan.says("unit:" + std::to_string(known.planned->profile.unitId)) ||
               (mScene.bus.isAttached(port) && (mPlan.says("--all") || mPlan.says("1-" + std::to_string(port + 1))));
    }

    bool hasOwnUnit(const Known& known) const {
        const auto unitId = [](const auto& one) { return one.profile.unitId; };
        return unitId(*known.planned) != 0 && std::ranges::count(mPlan.devices, unitId(*known.planned), unitId) == 1;
    }

    /// Called once for each entry of each device's record.
    void recorded(const Device& device, Known& known, const simulator::RecordEntry& entry) {
        using Kind = simulator::RecordEntry::Kind;
        const std::string& name = device.profile().unitName;
        trace(name + ": " + simulator::inWords(entry));
        if (entry.kind == Kind::Received) {
            std::string ignored;
            const auto packet = simulator::decodePacket(entry.bytes, ignored);
            if (packet && mScene.window) mScene.window->told(*packet);
            if (packet && packet->id == simulator::kResumeBoot) known.isToldToStart = true;
        }
        const bool isHeld = entry.text == bootStateName(BootState::HeldInBootLoader);
        if (isHeld) known.isToldToStart = false;
        if (entry.kind == Kind::Fault) fact("met", entry.text);
        if (entry.kind == Kind::Refused && !isExcused(known, entry.text)) fail(name + " refused: " + entry.text);
        if (entry.kind != Kind::State || !mScene.isUnderWay || mScene.isEpilogue) return;
        if (!mPlan.hasPlainUnits && !hasOwnUnit(known)) return;
        const bool ofBus = entry.text.starts_with("cable") || entry.text.ends_with("tached");
        if (!ofBus && !known.isChosen) fail(name + ", which was not chosen: " + entry.text);
        if (isHeld && !mScene.window && !mPlan.has(What::FullDisk) && !isNoted(device))
            fail(name + " is held, and the journal does not know.");
    }

    /// Whether a device may refuse this: no host could know that it would.
    bool isExcused(const Known& known, const std::string& text) const {
        if (!mPlan.hasPlainUnits) return true;
        const bool isResume = text == "resume boot without hold", isAway = text == "packet while rebooting",
                   isHold = text == "hold in boot loader while running";
        // A cable that was out looks like a reboot, and a command that got lost like one that was carried out.
        // Some faults have a device say more than it has room for.
        const bool isFull = text == "too many questions at once" || text == "answers that the host does not fetch";
        if (isDisturbed(known) && (isResume || isAway || isHold || isFull)) return true;
        // The window goes by arrivals alone, whichever device arrives, and may be told of one that is about to restart.
        const bool isAnyones = mScene.isEpilogue || !mPlan.hasOneDevice();
        return (isResume && mScene.isEpilogue) || (mScene.window && (isAway || (isHold && isAnyones)));
    }

    /// Whether an event may keep the device from its reset.
    /// @param besides  events that do not count
    bool isDisturbed(const Known& known, std::optional<What> besides = {}) const {
        return std::ranges::any_of(
            mPlan.events, [&](const Event& event) { return event.what != besides && event.concerns(known.index); });
    }

    /// Whether the journal has it.
    bool isNoted(const Device& device) const {
        const auto noted = twin::Journal(mScene.journalFolder).entries();
        return std::ranges::any_of(noted, [&](const auto& entry) { return entry.unit == device.profile().unitId; });
    }

    /// After a run that has ended by itself.
    void lookForLeft() {
        if (mScene.bus.openDevices() > 0 || mScene.bus.pendingTransfers() > 0) fail("Something is left open.");
        if (openFiles() > mFilesBefore) fail("A file is left open.");
        if (mScene.mainQueue.waiting() > 0) fail("Something is left to be done.");
        if (mScene.station.isLeft() && !mScene.cancelled && !mScene.isEpilogue) fail("The companion programs go on.");
        mScene.otherRun.reset();  // the other run ends with this one
        const std::string port = mScene.window ? "Port@" : "1-";
        for (const auto& [name, known] : mKnown) {
            const auto unit = known.planned->profile.unitId;
            for (const auto& key : {port + std::to_string(known.index + 1), "unit-" + std::to_string(unit)})
                if (!DeviceLock::take(key)) fail(key + " is left locked.");
        }
    }

    /// What a command told: the result last, and each device's stages one after the other.
    std::vector<json> eventsTold(Status status) const {
        if (mScene.baton.flows() > 0) fail("A thread is left.");
        std::vector<json> events;
        std::istringstream lines(mScene.out.str());
        for (std::string line; std::getline(lines, line);) events.push_back(json::parse(line));
        if (events.empty()) fail("Nothing is told.");
        const json& last = events.back();
        if (last.at("event") != "result" || last.at("status") != static_cast<int>(status))
            fail("The result is not told last.");
        if (mScene.cancelled && mScene.baton.now() - *mScene.cancelled > longestCancel())
            fail("It goes on for too long after the cancel.");
        std::map<int, json> begun;  // each device's stage
        for (const json& event : events) {
            if (event.at("event") != "stage") continue;
            json& stage = begun[event.at("number")];
            if (event.at("state") == "failed") fact("failed", event.at("stage").get<std::string>());
            const bool begins = event.at("state") == "began";
            if (begins != stage.is_null() || (!begins && stage.at("stage") != event.at("stage")))
                fail("Stages are not told one after the other: " + event.dump());
            if (!begins && event.at("seconds") > stage.at("limit").get<double>() + 1.1)
                fail("A stage outlasts its limit: " + event.dump());
            stage = begins ? event : json();
        }
        return events;
    }

    /// The event that tells how a device's reset ended. There are several where a device that failed is plugged in once
    /// more while each that comes is reset: the last counts.
    static const json* endOf(const Device& device, const std::vector<json>& events) {
        const auto end = std::find_if(events.rbegin(), events.rend(), [&](const json& event) {
            return event.value("unit", 0U) == device.profile().unitId && event.at("event") == "device" &&
                   event.value("state", "") == "ended";
        });
        return end == events.rend() ? nullptr : &*end;
    }

    /// When a device must have been done, in seconds, where nothing takes time but its own restarts and the companion
    /// programs.
    double latestEnd(const simulator::Profile& profile) const {
        const bool isPrompt = profile.answerDelay == Duration{0} && profile.protocols && mPlan.says("--all") &&
                              !mPlan.says("--jobs") && !mPlan.has(What::Tells);
        if (!isPrompt) return std::numeric_limits<double>::infinity();
        const Duration boot = profile.bootTime ? profile.leaveDelay + *profile.bootTime : Duration(seconds(1));
        const Duration all = 2 * mScene.stationTakes + profile.leaveDelay + profile.rebootTime + boot;
        return std::chrono::duration<double>(all).count() + 0.5;
    }

    /// The clear command has no answer: where the device takes it and does nothing, no host sees that.
    bool ignoresClear(const Device& device) const {
        const auto index = knownOf(device).index;
        return std::ranges::any_of(mPlan.events, [&](const Event& event) {
            return event.what == What::Fault && event.device == index &&
                   event.fault.kind == simulator::FaultKind::Ignore &&
                   event.fault.step.packetId.value_or(simulator::kCommand) == simulator::kCommand;
        });
    }

    static constexpr double kLastStart = 7;      ///< seconds: a device is let start after a cancel or a failure
    static constexpr double kBeforeStages = 40;  ///< seconds for looks and openings before anything begins

    Scene& mScene;
    const Plan& mPlan = mScene.plan;
    std::map<std::string, Known> mKnown;  ///< by their name
    std::ptrdiff_t mFilesBefore = 0;
};

}  // namespace explore
