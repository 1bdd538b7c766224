#include "explore/World.hpp"

#include "app/TrovikMode/DeviceLock.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "cli/Commands.hpp"
#include "cli/Journal.hpp"
#include "cli/Scenario.hpp"
#include "cli/UsbGate.hpp"
#include "explore/Baton.hpp"
#include "explore/Window.hpp"
#include "platform/Platform.hpp"
#include "simulator/bus/InProcessBus.hpp"
#include "simulator/world/SimulatedServices.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>
#include <optional>
#include <set>
#include <sstream>
#include <utility>

namespace explore {
namespace {

using nlohmann::json;
using simulator::BootState;
using simulator::Device;
using simulator::Duration;
using simulator::Time;
using std::chrono::seconds;
using twin::Stage;
using twin::Status;
using What = Event::What;

std::function<void(const std::string&)> gTrace;

void keepLine(const std::string& line) {
    if (gTrace) gTrace("log: " + line);
}

/// What the registry is asked, before anything else sees it: which devices were there to be chosen.
class FirstLook final : public platform::IORegistry {
  public:
    FirstLook(platform::IORegistry& inner, std::function<void()> looked) : mInner(inner), mLooked(std::move(looked)) {}

    platform::IOReturn IOServiceGetMatchingServices(const platform::MatchingDictionary& matching,
                                                    std::unique_ptr<platform::IOIterator>& iterator) override {
        const auto result = mInner.IOServiceGetMatchingServices(matching, iterator);
        if (result == platform::kIOReturnSuccess) mLooked();
        return result;
    }
    std::unique_ptr<platform::IONotificationPort> IONotificationPortCreate() override {
        return mInner.IONotificationPortCreate();
    }
    platform::IOReturn IOServiceAddMatchingNotification(platform::IONotificationPort& port, const std::string& type,
                                                        const platform::MatchingDictionary& matching,
                                                        platform::IOServiceMatchingCallback callback, void* refCon,
                                                        std::unique_ptr<platform::IOIterator>& iterator) override {
        return mInner.IOServiceAddMatchingNotification(port, type, matching, callback, refCon, iterator);
    }
    std::unique_ptr<platform::IOService> IORegistryEntryFromPath(const std::string& path) override {
        return mInner.IORegistryEntryFromPath(path);
    }

  private:
    platform::IORegistry& mInner;
    const std::function<void()> mLooked;
};

/// Longer than any run may take.
Duration longestRun(const Plan& plan, const twin::Options& options) {
    const auto& limits = options.plan.limits;
    const double attempt = std::accumulate(limits.begin() + 1, limits.begin() + 7, 0.0);
    const double device =
        limits[0] + attempt * (options.plan.retries + 1) + limits[6] * options.plan.retries + limits[7] + limits[8] + 7;
    const auto turns = options.jobs > 0 ? plan.devices.size() / options.jobs + 1 : 1;
    return std::chrono::ceil<seconds>(
        std::chrono::duration<double>(40 + options.wait + device * static_cast<double>(turns)));
}

class World final : public simulator::TimedWork {
  public:
    World(const Plan& plan, std::string folder)
        : mPlan(plan),
          mFolder(std::move(folder)),
          mBaton(plan.seed, plan.has(What::Shuffle), gTrace),
          mTells(tellsOf(plan)),
          mScripts(stationTakes(plan)) {
        for (const auto& planned : plan.devices) {
            const auto port = mBus.addDevice(planned.profile);
            if (planned.isHeld) device(port).setBootState(BootState::HeldInBootLoader, mBaton.now());
        }
        simulator::Profile foreign;  // what nobody looks for
        foreign.productId = 4;
        for (const char* const name : {"foreign 1", "foreign 2"}) {
            foreign.unitName = name;
            mBus.addDevice(foreign);
        }
        install("locks");
        for (const Event& event : plan.events) prepare(event);
        for (std::size_t port = 0; port < plan.devices.size(); ++port) {
            if (plan.devices[port].isPlugged) mPluggedFirst.push_back(port);
        }
        if (plan.program == Plan::Program::Command) mBus.plug(mPluggedFirst);
        mBaton.add(*this);
        mBaton.onStep = [this] { step(); };
        lookAtDevices();
        mBus.setObserver([this] { lookAtDevices(); });
    }
    ~World() override { mBaton.remove(*this); }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    void runCommand() {
        if (const auto status = command(mPlan.arguments)) lookAtEnd(*status);
        const bool busIsSick = std::ranges::any_of(mPlan.events, &Event::ofBus);
        mIsEpilogue = true;
        if (busIsSick || !mPlan.hasPlainUnits || mPlan.has(What::BrokenJournal)) return;
        heal();
        letHeldStart();
        if (mPlan.seed % 4 == 0) resetAgain();
    }

    void runWindow() {
        for (const auto& planned : mPlan.devices) mChosen.insert(planned.profile.unitName);
        mHasChosen = true;
        Window window(mBaton, mMainQueue);
        mWindow = &window;
        window.listen();
        mBus.plug(mPluggedFirst);
        window.until(mStart + mPlan.pressedAfter, [] { return false; });
        mIsUnderWay = true;
        window.press();
        const auto isComplete = [&] { return window.isComplete(); };
        window.until(mBaton.now() + kWindow, isComplete);
        const bool wasComplete = window.isComplete();
        fact(wasComplete ? "window complete" : "window waits");
        const auto befell = [](const Event& event) {
            constexpr std::array kHarmless = {What::Shuffle, What::Tells, What::Cancel, What::Kill,
                                              What::BrokenJournal};
            return std::ranges::find(kHarmless, event.what) == kHarmless.end();
        };
        if (!wasComplete && !mPluggedFirst.empty() && std::ranges::none_of(mPlan.events, befell))
            fail("Nothing befell anything, and the window is not complete.");
        if (std::ranges::any_of(mPlan.events, &Event::ofBus)) return;  // it may not see any device
        mIsEpilogue = true;
        for (std::size_t port = 0; port < mPlan.devices.size() + 2; ++port) mBus.unplug(port);
        heal();
        window.until(mBaton.now() + kWindow, isComplete);
        if (!window.isComplete()) fail("All is well again, and the window is not complete.");
        window.until(mBaton.now() + seconds(20), [] { return false; });
        window.stopListening();
        window.readLog(gTrace);
        if (!window.isAtRest()) fail("It is complete, and the controller waits for something.");
        if (mBus.openDevices() > 0 || mBus.pendingTransfers() > 0) fail("Something is left open.");
        bool isCleared = false;
        for (std::size_t port = 0; port < mPlan.devices.size() + 2; ++port) {
            const Device& one = device(port);
            if (!DeviceLock::take("Port@" + std::to_string(port + 1))) fail("A port is left locked.");
            isCleared = isCleared || one.store().empty() || loses(one, simulator::kCommand);
            if (mPlan.devices.size() == 1 && one.bootState() == BootState::HeldInBootLoader &&
                !loses(one, simulator::kResumeBoot))
                fail("It is complete, and the device is held.");
        }
        if (!isCleared) fail("It is complete, and no device is cleared.");
    }

    // simulator::TimedWork
    std::optional<Time> nextDue() override {
        auto due = mBus.nextDue();
        for (const auto& [moment, event] : mPending) simulator::bringForward(due, moment);
        return due;
    }
    void run(Time now) override {
        mBus.run(now);
        for (;;) {
            const auto due = std::ranges::find_if(mPending, [&](const auto& one) { return one.first <= now; });
            if (due == mPending.end()) return;
            const Event event = due->second;
            mPending.erase(due);
            happen(event);
        }
    }

  private:
    // ---- what happens by itself

    static twin::BusTells tellsOf(const Plan& plan) {
        const auto event = std::ranges::find(plan.events, What::Tells, &Event::what);
        // The window lives on arrivals, each told once.
        const bool isWindow = plan.program == Plan::Program::Window;
        return isWindow || event == plan.events.end() ? twin::BusTells::All
                                                      : static_cast<twin::BusTells>(event->number);
    }
    static Duration stationTakes(const Plan& plan) {
        const auto event = std::ranges::find(plan.events, What::Station, &Event::what);
        return event == plan.events.end() ? Duration{0} : event->after;
    }

    void prepare(const Event& event) {
        switch (event.what) {
            case What::Fault:
                return event.ofBus ? mBus.addFault(event.fault) : device(event.device).addFault(event.fault);
            case What::OtherRun:
                mOtherRun = DeviceLock::take("1-" + std::to_string(event.device + 1));
                return;
            case What::Plug:
            case What::Unplug:
            case What::Swap:
            case What::Cancel:
            case What::Kill:
                if (event.turn) return mAtTurn.push_back(event);
                if (event.stage) return mAtStage.push_back(event);
                mPending.emplace_back(mBaton.now() + event.after, event);
                return;
            case What::Shuffle:
            case What::Tells:
            case What::Station:
            case What::BrokenJournal:
                return;
        }
    }

    void stageBegan(Stage stage) {
        mHasChosen = true;
        for (const Event& event : mAtStage) {
            if (event.stage == stage) mPending.emplace_back(mBaton.now() + event.after, event);
        }
        std::erase_if(mAtStage, [&](const Event& event) { return event.stage == stage; });
    }

    void happen(const Event& event) {
        if (mIsEpilogue) return;
        trace("event: " + event.text());
        if (event.what == What::Plug) mBus.plug(event.device);
        if (event.what == What::Unplug) mBus.unplug(event.device);
        if (event.what == What::Swap) mBus.swap(event.device, event.other);
        if (event.what == What::Cancel) cancel();
        if (event.what == What::Kill) mKilled = mIsUnderWay;
    }

    void cancel() {
        if (!mCancel || mCancelled) return;
        mCancelled = mBaton.now();
        mCancel();
    }

    // ---- what is looked at between two turns

    void step() {
        std::vector<Event> due;
        for (const Event& event : mAtTurn) {
            if (*event.turn <= mBaton.steps()) due.push_back(event);
        }
        std::erase_if(mAtTurn, [&](const Event& event) { return *event.turn <= mBaton.steps(); });
        std::ranges::for_each(due, [this](const Event& event) { happen(event); });
        if (mIsUnderWay && mBaton.now() > mEnd) {
            if (!mIsEach || mCancelled) fail("The run goes on for too long.");
            cancel();
            mEnd += kCancelled + 2 * stationTakes(mPlan);
        }
        tellWhatIsWritten();
    }

    void tellWhatIsWritten() {
        if (mWindow && gTrace) mWindow->readLog([this](const std::string& line) { trace("logs: " + line); });
        if (!gTrace) return;
        const std::string written = mOut.str();
        for (auto end = written.find('\n', mTold); end != std::string::npos; end = written.find('\n', mTold)) {
            trace("says: " + written.substr(mTold, end - mTold));
            mTold = end + 1;
        }
    }

    /// At every change of a device, at once: where nothing takes time, a whole reset is one turn.
    void lookAtDevices() {
        for (std::size_t port = 0; port < mPlan.devices.size() + 2; ++port) {
            const Device& one = device(port);
            const auto& entries = one.record().entries();
            for (auto& seen = mSeen[one.profile().unitName]; seen < entries.size();) recorded(one, entries[seen++]);
        }
    }

    /// Each line of each device's record, once.
    void recorded(const Device& device, const simulator::RecordEntry& entry) {
        using Kind = simulator::RecordEntry::Kind;
        const std::string& name = device.profile().unitName;
        if (gTrace) {
            std::string bytes;
            for (const unsigned char byte : entry.bytes) bytes += " " + std::to_string(byte);
            trace(name + ": " + std::to_string(static_cast<int>(entry.kind)) + " " + entry.text + bytes);
        }
        if (entry.kind == Kind::Fault) fact("fault " + entry.text);
        if (entry.kind == Kind::Refused && !isExcused(device, entry.text)) fail(name + " refused: " + entry.text);
        if (entry.kind != Kind::State || !mIsUnderWay || mIsEpilogue) return;
        const bool ofBus = entry.text.starts_with("cable") || entry.text.ends_with("tached");
        if (!ofBus && mPlan.hasPlainUnits && !mChosen.contains(name))
            fail(name + ", which was not chosen: " + entry.text);
        if (mPlan.hasPlainUnits && entry.text == bootStateName(BootState::HeldInBootLoader) && !mWindow &&
            !mPlan.has(What::BrokenJournal) && !isNoted(device))
            fail(name + " is held, and the journal does not know.");
    }

    /// What no host can know better.
    bool isExcused(const Device& device, const std::string& text) const {
        if (!mPlan.hasPlainUnits) return true;
        if (text == "resume boot without hold" && mIsEpilogue) return true;
        // The window goes by arrivals alone, whichever device arrives, and may be told of one that is about to restart.
        if (mWindow && text == "packet while rebooting") return true;
        if (mWindow && text == "hold in boot loader while running" && (mIsEpilogue || mPlan.devices.size() > 1))
            return true;
        // A cable that was out looks like a reboot, and a command that got lost like one that was carried out.
        return isDisturbed(device) && (text == "resume boot without hold" || text == "packet while rebooting" ||
                                       text == "hold in boot loader while running");
    }

    bool isDisturbed(const Device& device) const {
        const auto isIt = [&](const auto& planned) { return planned.profile.unitName == device.profile().unitName; };
        const auto at = std::ranges::find_if(mPlan.devices, isIt);
        const auto port = static_cast<std::size_t>(at - mPlan.devices.begin());
        return std::ranges::any_of(mPlan.events, [&](const Event& event) { return event.concerns(port); });
    }

    bool isNoted(const Device& device) const {
        const auto noted = twin::Journal(journalFolder()).entries();
        return std::ranges::any_of(noted, [&](const auto& entry) { return entry.unit == device.profile().unitId; });
    }

    /// The program has read the list of devices. Those that it can mean are chosen until its first stage begins.
    void looked() {
        if (mHasChosen || mPlan.arguments.front() == "check") return;
        const auto& arguments = mPlan.arguments;
        const auto named = [&](const std::string& name) { return std::ranges::count(arguments, name) > 0; };
        for (std::size_t port = 0; port < mPlan.devices.size() + 2; ++port) {
            const auto& profile = device(port).profile();
            const bool isAttached = mBus.isAttached(port) && profile.productId == 3;
            if (named("--each") || named("unit:" + std::to_string(profile.unitId)) ||
                (isAttached && (named("--all") || named("1-" + std::to_string(port + 1)))))
                mChosen.insert(profile.unitName);
        }
    }

    // ---- the program

    void install(const std::string& locks) {
        mScope.reset();
        platform::Platform all;
        all.clock = &mBaton;
        all.runLoops = &mBaton;
        all.masterPort = &mGated;
        all.scriptRunner = &mScripts;
        all.mainQueue = &mMainQueue;
        all.globalQueue = &mBaton;
        all.exceptionHandler = &mExceptions;
        all.log = keepLine;
        all.lockFolder = mFolder + "/" + locks;
        std::filesystem::create_directories(all.lockFolder);
        mScope.emplace(all);
    }

    std::string journalFolder() const {
        // Beneath a file no folder can be made.
        return mFolder + (mPlan.has(What::BrokenJournal) && !mIsEpilogue ? "/file/journal" : "/journal");
    }

    /// @return how it ended; nothing when it was killed
    std::optional<Status> command(std::vector<std::string> arguments) {
        trace("command: " + json(arguments).dump());
        arguments.emplace_back("--json");
        std::ostringstream help;
        Status status = Status::Done;
        const auto options = twin::parse(arguments, "1.0", help, help, status);
        if (!options) fail("The command line is wrong: " + help.str());
        mOut.str({});
        mTold = 0;
        mBegan = mBaton.now();
        mIsEach = options->each;
        mEnd = mBegan + (mIsEach ? Duration(seconds(400)) : longestRun(mPlan, *options));
        mIsUnderWay = true;
        mKilled = false;
        std::optional<Status> ended;
        mBaton.flow("twin", [&] {
            std::ostringstream people;
            ended = twin::run(*options, {.out = mOut,
                                         .people = people,
                                         .workers = mBaton,
                                         .journalFolder = journalFolder(),
                                         .version = "1.0",
                                         .diagnosis = twin::plainDiagnosis,
                                         .stageBegan = [this](Stage stage) { stageBegan(stage); },
                                         .onCancel = [this](auto cancel) { mCancel = std::move(cancel); }});
            mIsUnderWay = false;
        });
        const bool isOver = mBaton.until([&] { return ended || mKilled; });
        mCancel = nullptr;
        mIsUnderWay = false;
        if (!isOver) fail("Everybody waits, and nothing is due.");
        fact(ended ? "status " + std::string(nameOf(*ended)) : "killed");
        if (ended) {
            lookAtRest(*ended);
            return ended;
        }
        // The system closes what a dead process had open and lets go of its locks; the locks of its flows here stay.
        mBaton.abandon();
        mBus.closeAll();
        install("locks of the next process");
        return std::nullopt;
    }

    // ---- what must hold in the end

    /// After any command.
    void lookAtRest(Status status) {
        tellWhatIsWritten();
        if (mBaton.flows() > 0) fail("A thread is left.");
        if (mBus.openDevices() > 0) fail("A device is left open.");
        if (mBus.pendingTransfers() > 0) fail("A transfer is left.");
        for (std::size_t port = 0; port < mPlan.devices.size(); ++port) {
            const bool isOthers = mOtherRun && mPlan.devices.size() > port && isOtherRuns(port);
            if (!isOthers && !DeviceLock::take("1-" + std::to_string(port + 1))) fail("A port is left locked.");
            if (!DeviceLock::take("unit-" + std::to_string(mPlan.devices[port].profile.unitId)))
                fail("A unit is left locked.");
        }
        mEvents.clear();
        std::istringstream lines(mOut.str());
        for (std::string line; std::getline(lines, line);) mEvents.push_back(json::parse(line));
        const json& last = mEvents.back();
        if (last["event"] != "result" || last["status"] != static_cast<int>(status))
            fail("The result is not told last.");
        if (std::ranges::find(twin::kStatuses, status) == twin::kStatuses.end()) fail("No such status.");
        if (mCancelled && mBaton.now() - *mCancelled > kCancelled + 2 * stationTakes(mPlan))
            fail("It goes on for too long after the cancel.");
        std::map<int, std::string> open;  // the stage of each device
        std::map<int, double> limits;
        for (const json& event : mEvents) {
            if (event["event"] != "stage") continue;
            const int number = event["number"];
            const std::string stage = event["stage"], state = event["state"];
            if (state == "failed") fact("failed " + stage);
            if (state == "began" ? !std::exchange(open[number], stage).empty()
                                 : std::exchange(open[number], {}) != stage)
                fail("Stages are not told one after the other: " + event.dump());
            if (state == "began")
                limits[number] = event["limit"];
            else if (event["seconds"] > limits[number] + 1.1)
                fail("A stage outlasts its limit: " + event.dump());
        }
    }

    bool isOtherRuns(std::size_t port) const {
        return std::ranges::any_of(
            mPlan.events, [&](const Event& event) { return event.what == What::OtherRun && event.device == port; });
    }

    const json* endOf(const Device& device) const {
        for (const json& event : mEvents) {
            if (event["event"] == "device" && event.value("state", "") == "ended" &&
                event.value("unit", 0U) == device.profile().unitId)
                return &event;
        }
        return nullptr;
    }

    /// After the command that the world is about.
    void lookAtEnd(Status status) {
        const bool resets = mPlan.arguments.front() == "reset";
        if (!mPlan.hasPlainUnits) return;
        for (std::size_t port = 0; port < mPlan.devices.size() + 2; ++port) {
            const Device& one = device(port);
            const std::string& name = one.profile().unitName;
            if (!mChosen.contains(name)) continue;
            const auto& planned =
                *std::ranges::find_if(mPlan.devices, [&](const auto& any) { return any.profile.unitName == name; });
            const json* const end = endOf(one);
            const bool isDone = end && (*end)["status"] == 0;
            const bool isHeld = one.bootState() == BootState::HeldInBootLoader;
            if (resets && isDone && !one.store().empty() && !loses(one, simulator::kCommand))
                fail(name + " is said to be reset, and is not.");
            if (status == Status::Done && end && !isDone) fail("The run is said to be done, and " + name + " is not.");
            if (isHeld && !planned.isHeld && !mPlan.has(What::BrokenJournal) && !loses(one, simulator::kResumeBoot)) {
                if (!isNoted(one)) fail(name + " is left held, and the journal does not know.");
                if (!end || (*end)["text"].get<std::string>().find("boot loader") == std::string::npos)
                    fail(name + " is left held, and nobody says so.");
            }
            if (mIsEach || isDisturbed(one) || !planned.isPlugged) continue;
            if (!isDone) fail("Nothing befell " + name + ", and it is not done.");
            if (isHeld) fail("Nothing befell " + name + ", and it is held.");
            if (isNoted(one)) fail(name + " is done, and the journal keeps it.");
            if (resets && isPrompt(planned) && (*end)["at"] > promptEnd(planned.profile))
                fail(name + " could have been done earlier: " + end->dump());
        }
    }

    /// Whether nothing takes time but the device's own restarts, and the companion programs.
    bool isPrompt(const PlannedDevice& planned) const {
        const auto named = [&](const char* name) { return std::ranges::count(mPlan.arguments, name) > 0; };
        return planned.profile.answerDelay == Duration{0} && planned.profile.protocols && named("--all") &&
               !named("--jobs") && !mPlan.has(What::Tells);
    }
    double promptEnd(const simulator::Profile& profile) const {
        const Duration boot = profile.bootTime ? profile.leaveDelay + *profile.bootTime : Duration(seconds(1));
        const Duration all = 2 * stationTakes(mPlan) + profile.leaveDelay + profile.rebootTime + boot;
        return std::chrono::duration<double>(all).count() + 0.5;
    }

    /// The device takes a command and does nothing, or leaves: where that has no answer, no host sees it.
    bool loses(const Device& device, std::uint16_t packet) const {
        return std::ranges::any_of(mPlan.events, [&](const Event& event) {
            using simulator::FaultKind;
            return event.what == What::Fault && !event.ofBus &&
                   mPlan.devices[event.device].profile.unitName == device.profile().unitName &&
                   event.fault.step.packetId == packet &&
                   (event.fault.kind == FaultKind::Ignore || event.fault.kind == FaultKind::Unplug);
        });
    }

    // ---- and afterwards, with all that was wrong taken away

    void heal() {
        for (std::size_t port = 0; port < mPlan.devices.size() + 2; ++port) {
            device(port).faults().clear();
            mBus.plug(port);
        }
        mOtherRun.reset();
        mCancelled.reset();
        // A cable that a fault wanted out by now comes out in the meantime.
        mBaton.MPDelayUntil(mBaton.CFAbsoluteTimeGetCurrent() + 15);
        for (std::size_t port = 0; port < mPlan.devices.size() + 2; ++port) mBus.plug(port);
        mBaton.MPDelayUntil(mBaton.CFAbsoluteTimeGetCurrent() + 1);
    }

    void letHeldStart() {
        const bool isNone = twin::Journal(journalFolder()).entries().empty();
        const auto status = command({"resume"});
        if (status != (isNone ? Status::NoneFound : Status::Done)) fail("What was left held can't be let start.");
        for (std::size_t port = 0; port < mPlan.devices.size() + 2; ++port) {
            const Device& one = device(port);
            if (one.bootState() != BootState::HeldInBootLoader || !mChosen.contains(one.profile().unitName)) continue;
            if (!isHeldFromStart(one) && !loses(one, simulator::kResumeBoot))
                fail(one.profile().unitName + " is still held.");
        }
    }

    bool isHeldFromStart(const Device& device) const {
        return std::ranges::any_of(mPlan.devices, [&](const auto& planned) {
            return planned.isHeld && planned.profile.unitName == device.profile().unitName;
        });
    }

    void resetAgain() {
        mBaton.MPDelayUntil(mBaton.CFAbsoluteTimeGetCurrent() + 15);
        if (command({"reset", "--all", "--yes", "--keep-station"}) != Status::Done) fail("A second reset is not done.");
        for (std::size_t port = 0; port < mPlan.devices.size() + 2; ++port) {
            if (device(port).profile().productId == 3 && !device(port).store().empty()) fail("It is not reset.");
        }
    }

    Device& device(std::size_t port) {
        Device* found = nullptr;
        mBus.withDevice(port, [&](Device& device, Time) { found = &device; });
        return *found;
    }

    void trace(const std::string& line) {
        if (gTrace) gTrace(std::to_string((mBaton.now() - mStart).count()) + " " + line);
    }

    static constexpr Duration kCancelled = seconds(8);  ///< within which a cancelled run has ended

    static constexpr Duration kWindow = std::chrono::minutes(4);

    const Plan& mPlan;
    const std::string mFolder;
    Baton mBaton;
    const Time mStart = mBaton.now();
    simulator::InProcessBus mBus{mBaton};
    const twin::BusTells mTells;
    twin::ScenarioRegistry mRegistry{mBus, mTells};
    FirstLook mFirstLook{mRegistry, [this] { looked(); }};
    twin::GatedRegistry mGated{mFirstLook};
    twin::ScenarioScripts mScripts;
    simulator::ManualQueue mMainQueue{mBaton};
    simulator::RecordingExceptionHandler mExceptions;
    Window* mWindow = nullptr;
    std::vector<std::size_t> mPluggedFirst;
    std::optional<platform::PlatformScope> mScope;
    std::optional<DeviceLock> mOtherRun;

    std::vector<std::pair<Time, Event>> mPending;
    std::vector<Event> mAtTurn, mAtStage;
    std::function<void()> mCancel;
    std::optional<Time> mCancelled;
    bool mKilled = false;
    bool mIsEpilogue = false;

    bool mIsUnderWay = false;
    bool mIsEach = false;
    Time mBegan{}, mEnd = Time::max();
    std::ostringstream mOut;
    std::size_t mTold = 0;
    std::vector<json> mEvents;                 ///< of the last command
    std::map<std::string, std::size_t> mSeen;  ///< entries of a device's record
    bool mHasChosen = false;
    std::set<std::string> mChosen;
};

}  // namespace

void run(const Plan& plan, const std::string& folder, const std::function<void(const std::string&)>& trace) {
    gTrace = trace;
    const bool isWindow = plan.program == Plan::Program::Window;
    ddLogLevel = isWindow ? DDLogFlagError | DDLogFlagWarning | DDLogFlagInfo : 0;
    World world(plan, folder);
    isWindow ? world.runWindow() : world.runCommand();
}

}  // namespace explore
