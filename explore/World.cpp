#include "explore/World.hpp"

#include "app/TrovikMode/DeviceLock.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "cli/Commands.hpp"
#include "cli/Journal.hpp"
#include "cli/Scenario.hpp"
#include "cli/UsbGate.hpp"
#include "explore/Baton.hpp"
#include "explore/Machine.hpp"
#include "explore/Report.hpp"
#include "explore/Window.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "simulator/bus/InProcessBus.hpp"
#include "simulator/engine/Record.hpp"
#include "simulator/engine/Wire.hpp"
#include "simulator/world/SimulatedServices.hpp"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>
#include <optional>
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

/// A device, whichever port it is plugged into.
struct Known {
    const twin::ScenarioDevice* planned = nullptr;
    std::size_t index = 0;       ///< in the plan, and by its first port
    std::size_t told = 0;        ///< entries of its record
    bool isChosen = false;       ///< the command line means it
    bool isToldToStart = false;  ///< since it is held: where it does nothing then, no host sees it

    [[nodiscard]] bool isForeign() const { return planned->profile.productId == Plan::kForeignProduct; }
    [[nodiscard]] bool isHeldFirst() const { return planned->state == BootState::HeldInBootLoader; }
};

constexpr double kLastStart = 7;      ///< seconds: a device is let start after a cancel or a failure
constexpr double kBeforeStages = 40;  ///< seconds for looks and openings before anything begins

/// Longer than any run may take.
Duration longestRun(const Plan& plan, const twin::Options& options) {
    const double attempt = std::reduce(options.plan.limits.begin(), options.plan.limits.end());
    const double device = attempt * (options.plan.retries + 1) + kLastStart;
    const auto own = plan.devices.size() - Plan::kForeign;
    const auto turns = options.jobs > 0 ? own / options.jobs + 1 : 1;
    return std::chrono::ceil<seconds>(
        std::chrono::duration<double>(kBeforeStages + options.wait + device * static_cast<double>(turns)));
}

/// How many there are. Log files don't count: they come and go with days.
std::ptrdiff_t openFiles() {
    return std::ranges::count_if(std::filesystem::directory_iterator("/proc/self/fd"), [](const auto& file) {
        std::error_code gone;  // the iterator's own
        return std::filesystem::read_symlink(file, gone).extension() != ".txt";
    });
}

/// The companion programs. Stuck ones don't quit in their three seconds, and then have to be killed.
class Station final : public platform::ScriptRunner {
  public:
    Station(Duration takes, bool isStuck) : mScripts(takes), mIsStuck(isStuck) {}
    bool executeAndReturnError(const std::string& source, const std::stop_token& stop) override {
        const bool hasQuit = mScripts.executeAndReturnError(source, stop) && !mIsStuck;
        mIsLeft = !hasQuit && !stop.stop_requested();
        return hasQuit;
    }
    int system(const std::string&) override { return mIsLeft = false; }
    [[nodiscard]] bool isLeft() const { return mIsLeft; }  ///< it was to be killed

  private:
    twin::ScenarioScripts mScripts;
    const bool mIsStuck;
    bool mIsLeft = false;
};

class World final : public simulator::TimedWork {
  public:
    World(const Plan& plan, std::string folder)
        : mPlan(plan), mFolder(std::move(folder)), mBaton(plan.seed, plan.has(What::Shuffle)) {
        for (const auto& planned : plan.devices) {
            const auto port = mBus.addDevice(planned.profile);
            mBus.withDevice(port, [&](Device& device, Time now) {
                mDevices.push_back(&device);
                device.setBootState(planned.state, now);
            });
            mKnown[planned.profile.unitName] = {&planned, port};
            if (planned.plugged) mPluggedFirst.push_back(port);
        }
        setenv("XDG_DATA_HOME", (mFolder + "/disk").c_str(), 1);  // log files
        install("locks");
        for (const Event& event : plan.events) prepare(event);
        if (!plan.isWindow()) mBus.plug(mPluggedFirst);
        mBaton.add(*this);
        mBaton.onStep = [this] { step(); };
        lookAtDevices();
        mBus.setObserver([this] { lookAtDevices(); });
    }

    void runCommand() {
        if (const auto status = command(mPlan.arguments)) lookAtEnd(*status);
        mIsEpilogue = true;
        if (mPlan.has(What::BusFault) || !mPlan.hasPlainUnits) return;
        heal();
        if (!isUnwritable()) {
            const bool isNone = twin::Journal(journalFolder()).entries().empty();
            if (command({"resume"}) != (isNone ? Status::NoneFound : Status::Done))
                fail("What was left held can't be let start.");
            lookForHeld();
        }
        if (mPlan.seed % 4 == 0) resetAll();
    }

    void runWindow() {
        for (auto& [name, known] : mKnown) known.isChosen = !known.isForeign();
        mHasChosen = true;
        Window& window = *(mWindow = new Window(mBaton, mMainQueue, mMachine));  // its flows may be left where they are
        window.listen();
        const auto filesBefore = openFiles();
        mBus.plug(mPluggedFirst);
        const auto isOver = [&] { return mKilled || mIsQuitting; };
        const auto isComplete = [&] { return window.isComplete() || isOver(); };
        window.until(mStart + mPlan.pressedAfter, isOver);
        mIsUnderWay = true;
        if (!isOver()) window.press();
        window.until(mBaton.now() + kWindow, isComplete);
        if (isOver()) return goOnWithoutWindow();
        fact("status", window.isComplete() ? "window complete" : "window waits");
        const auto isSpared = [&](const auto& known) { return !isDisturbed(known.second); };
        if (!window.isComplete() && !mPluggedFirst.empty() && std::ranges::all_of(mKnown, isSpared))
            fail("Nothing befell anything, and the window is not complete.");
        if (mPlan.has(What::BusFault)) return;  // it may not see any device
        mIsEpilogue = true;
        for (std::size_t port = 0; port < mDevices.size(); ++port) mBus.unplug(port);
        heal();
        window.until(mBaton.now() + kWindow, isComplete);
        if (!window.isComplete()) fail("All is well again, and the window is not complete.");
        window.until(mBaton.now() + seconds(20), [] { return false; });
        if (mPlan.seed % 2 == 0 && mPlan.hasOneDevice()) {  // and once more
            window.press();
            window.until(mBaton.now() + kWindow, isComplete);
            if (!window.isComplete()) fail("A second reset is not complete.");
        }
        window.stopListening();
        window.look();
        window.lookAtFiles();
        if (!window.isAtRest()) fail("It is complete, and the controller waits for something.");
        lookAtBus("Port@", filesBefore);
        const auto isCleared = [&](const Device* one) { return one->store().empty() || ignoresClear(*one); };
        if (std::ranges::none_of(mDevices, isCleared)) fail("It is complete, and no device is cleared.");
        if (mPlan.hasOneDevice()) lookForHeld();
    }

    /// The tool has ended, in whatever state: the program without a window can reset everything.
    void goOnWithoutWindow() {
        fact("status", mIsQuitting ? "window quit" : "window killed");
        if (mIsQuitting && !mKilled) {
            const bool isUnfinished = mWindow->quit(mPlan.seed % 2 == 0);
            const bool isOne = mPlan.hasOneDevice() && !mKnown.begin()->second.isHeldFirst();
            if (isOne && !isUnfinished && mDevices.front()->bootState() == BootState::HeldInBootLoader)
                fail("It is left held, and nobody says so.");
            mWindow->lookAtFiles();
            end();
        }
        mWindow = nullptr;
        DDLog::removeAllLoggers();
        install("locks of the next process");
        mIsEpilogue = true;
        if (mPlan.has(What::BusFault) || !mPlan.hasPlainUnits) return;
        heal();
        resetAll();
    }

    // simulator::TimedWork
    std::optional<Time> nextDue() override {
        auto due = mBus.nextDue();
        for (const auto& [event, moment] : mComing) simulator::bringForward(due, moment);
        return due;
    }
    void run(Time now) override {
        mBus.run(now);
        happen([&](const Coming& coming) { return coming.due && *coming.due <= now; });
    }

  private:
    /// An event that has a moment, and that moment once it is known.
    struct Coming {
        Event event;
        std::optional<Time> due;
    };

    // ---- what happens by itself

    void prepare(const Event& event) {
        if (event.what == What::Fault) mDevices[event.device]->addFault(event.fault);
        if (event.what == What::BusFault) mBus.addFault(event.fault);
        if (event.what == What::OtherRun)
            mOtherRun = DeviceLock::take((mPlan.isWindow() ? "Port@" : "1-") + std::to_string(event.device + 1));
        const bool isFault = event.what == What::Fault;
        if (event.what == What::BusFault) return;  // nobody is told when it strikes
        fact("planned", isFault ? event.fault.name : event.name());
        if (!event.isTimed() && !isFault) fact("met", event.name());
        if (!event.isTimed()) return;
        const bool isKnown = !event.turn && !event.stage;
        mComing.push_back({event, isKnown ? std::optional(mBaton.now() + event.after) : std::nullopt});
    }

    void stageBegan(Stage stage) {
        mHasChosen = true;
        mStage = twin::info(stage).name;
        fact("stage", mStage);
        for (auto& [event, due] : mComing) {
            if (event.stage == stage && !due) due = mBaton.now() + event.after;
        }
    }

    void happen(const std::function<bool(const Coming&)>& isNow) {
        for (auto next = mComing.begin(); (next = std::ranges::find_if(mComing, isNow)) != mComing.end();) {
            const Event event = std::move(next->event);
            mComing.erase(next);
            happen(event);
        }
    }

    void happen(const Event& event) {
        if (mIsEpilogue) return;
        trace("event: " + event.text());
        if (mIsUnderWay || event.what < What::Cancel) fact("met", event.name());
        if (mIsUnderWay) fact(event.name() + std::string(" in"), mWindow ? "the window" : mStage);
        if (event.what == What::Plug) mBus.plug(event.device);
        if (event.what == What::Unplug) mBus.unplug(event.device);
        if (event.what == What::Swap) mBus.swap(event.device, event.other);
        if (mWindow) mWindow->look();  // what has been logged is still written as before
        if (event.what == What::ClockStep) mMachine.setTimeOfDay(event.by);
        if (event.what == What::ClockStep && mWindow) mWindow->timeWasSet(event.by < Duration{0});
        if (event.what == What::FullDisk) mMachine.setFull(true);
        if (event.what == What::Cancel && mWindow) mIsQuitting = mIsUnderWay;
        if (event.what == What::Cancel && !mWindow && mIsUnderWay) mCancelled ? end() : cancel();
        if ((event.what == What::Kill || event.what == What::PowerCut) && mIsUnderWay) end();
        if (event.what == What::PowerCut && mKilled) mMachine.cutPower();
    }

    /// No flow of the program gets another turn. The system closes what a dead process had open.
    void end() {
        mKilled = true;
        mIsUnderWay = false;
        mBaton.abandon();
        mBus.closeAll();
    }

    void cancel() {
        if (!mCancel || mCancelled) return;
        mCancelled = mBaton.now();
        mCancel();
    }

    // ---- what is looked at between two turns

    void step() {
        happen([this](const Coming& coming) { return coming.event.turn && *coming.event.turn <= mBaton.steps(); });
        if (mIsUnderWay && mBaton.now() > mEnd) {
            if (!mIsEach || mCancelled) fail("The run goes on for too long.");
            cancel();
            mEnd += kCancelled + 2 * mStationTakes;
        }
        tellWhatIsWritten();
    }

    void tellWhatIsWritten() {
        if (mWindow) mWindow->look();
        if (static_cast<std::size_t>(mOut.tellp()) == mTold) return;
        const std::string written = mOut.str();
        trace("says: " + written.substr(mTold, written.size() - mTold - 1));
        mTold = written.size();
    }

    /// At every change of a device, at once: where nothing takes time, a whole reset is one turn.
    void lookAtDevices() {
        for (std::size_t port = 0; port < mDevices.size(); ++port) {
            const Device& one = *mDevices[port];
            Known& known = mKnown.at(one.profile().unitName);
            if (mIsUnderWay && !mHasChosen && !mIsEpilogue && mayMean(known, port)) known.isChosen = true;
            const auto& entries = one.record().entries();
            while (known.told < entries.size()) recorded(one, known, entries[known.told++]);
        }
        if (mWindow) mWindow->lookAtNextAction();
    }

    /// Whether the command line means a device at a port. What it can mean is chosen until the first stage begins.
    bool mayMean(const Known& known, std::size_t port) const {
        if (says("check") || known.isForeign()) return false;
        return says("--each") || says("unit:" + std::to_string(known.planned->profile.unitId)) ||
               (mBus.isAttached(port) && (says("--all") || says("1-" + std::to_string(port + 1))));
    }

    bool says(const std::string& argument) const { return std::ranges::count(mPlan.arguments, argument) > 0; }

    /// Each line of each device's record, once.
    void recorded(const Device& device, Known& known, const simulator::RecordEntry& entry) {
        using Kind = simulator::RecordEntry::Kind;
        const std::string& name = device.profile().unitName;
        trace(name + ": " + simulator::inWords(entry));
        if (entry.kind == Kind::Received) {
            std::string ignored;
            const auto packet = simulator::decodePacket(entry.bytes, ignored);
            if (packet && mWindow) mWindow->told(*packet);
            if (packet && packet->id == simulator::kResumeBoot) known.isToldToStart = true;
        }
        if (entry.text == bootStateName(BootState::HeldInBootLoader)) known.isToldToStart = false;
        if (entry.kind == Kind::Fault) fact("met", entry.text);
        if (entry.kind == Kind::Refused && !isExcused(known, entry.text)) fail(name + " refused: " + entry.text);
        if (entry.kind != Kind::State || !mIsUnderWay || mIsEpilogue || !mPlan.hasPlainUnits) return;
        const bool ofBus = entry.text.starts_with("cable") || entry.text.ends_with("tached");
        if (!ofBus && !known.isChosen) fail(name + ", which was not chosen: " + entry.text);
        if (entry.text == bootStateName(BootState::HeldInBootLoader) && !mWindow && !isUnwritable() && !isNoted(device))
            fail(name + " is held, and the journal does not know.");
    }

    /// What no host can know better.
    bool isExcused(const Known& known, const std::string& text) const {
        if (!mPlan.hasPlainUnits) return true;
        const bool isResume = text == "resume boot without hold", isAway = text == "packet while rebooting",
                   isHold = text == "hold in boot loader while running";
        // A cable that was out looks like a reboot, and a command that got lost like one that was carried out.
        // Some faults have a device say more than it has room for.
        if (isDisturbed(known) && (isResume || isAway || isHold || text == "too many questions at once")) return true;
        // The window goes by arrivals alone, whichever device arrives, and may be told of one that is about to restart.
        const bool isAnyones = mIsEpilogue || !mPlan.hasOneDevice();
        return (isResume && mIsEpilogue) || (mWindow && (isAway || (isHold && isAnyones)));
    }

    bool isUnwritable() const { return mPlan.has(What::FullDisk); }

    /// @param besides  events that do not count
    bool isDisturbed(const Known& known, std::optional<What> besides = {}) const {
        return std::ranges::any_of(
            mPlan.events, [&](const Event& event) { return event.what != besides && event.concerns(known.index); });
    }

    bool isNoted(const Device& device) const {
        const auto noted = twin::Journal(journalFolder()).entries();
        return std::ranges::any_of(noted, [&](const auto& entry) { return entry.unit == device.profile().unitId; });
    }

    // ---- the program

    void install(const std::string& locks) {
        mScope.reset();
        const std::string folder = mFolder + "/" + locks;
        std::filesystem::create_directories(folder);
        auto platform = platform::withLinuxFiles({.clock = &mBaton,
                                                  .runLoops = &mBaton,
                                                  .masterPort = &mGated,
                                                  .mainQueue = &mMainQueue,
                                                  .globalQueue = &mBaton,
                                                  .scriptRunner = &mStation,
                                                  .exceptionHandler = &mExceptions,
                                                  .wallClock = &mMachine,
                                                  .lockFolder = folder});
        platform.dispatchSources = nullptr;  // nothing happens to files by itself
        platform.log = [](const std::string& line) {
            if (Baton::isFlow()) trace("log: " + line);  // when loggers' own threads say something is chance
        };
        mScope.emplace(platform);
    }

    std::string journalFolder() const { return mFolder + "/disk/journal"; }

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
        mIsEach = options->each;
        mEnd = mBaton.now() + (mIsEach ? Duration(seconds(400)) : longestRun(mPlan, *options));
        mIsUnderWay = true;
        mKilled = false;
        mStage = "the beginning";
        const auto filesBefore = openFiles();
        lookAtDevices();
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
        if (!isOver) fail("Everybody waits, and nothing is due.");
        if (!mIsEpilogue) fact("status", ended ? nameOf(*ended) : "killed");
        // The system lets go of a dead process's locks; those of its flows here stay.
        if (!ended) install("locks of the next process");
        if (ended) lookAtBus("1-", filesBefore);
        if (ended) lookAtRest(*ended);
        return ended;
    }

    // ---- what must hold in the end

    /// After any command.
    void lookAtRest(Status status) {
        tellWhatIsWritten();
        if (mBaton.flows() > 0) fail("A thread is left.");
        mEvents.clear();
        std::istringstream lines(mOut.str());
        for (std::string line; std::getline(lines, line);) mEvents.push_back(json::parse(line));
        if (mEvents.empty()) fail("Nothing is told.");
        const json& last = mEvents.back();
        if (last.at("event") != "result" || last.at("status") != static_cast<int>(status))
            fail("The result is not told last.");
        if (mCancelled && mBaton.now() - *mCancelled > kCancelled + 2 * mStationTakes)
            fail("It goes on for too long after the cancel.");
        std::map<int, json> begun;  // each device's stage
        for (const json& event : mEvents) {
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
    }

    void lookAtBus(const std::string& port, std::ptrdiff_t filesBefore) {
        if (mBus.openDevices() > 0 || mBus.pendingTransfers() > 0) fail("Something is left open.");
        if (openFiles() > filesBefore) fail("A file is left open.");
        if (mMainQueue.waiting() > 0) fail("Something is left to be done.");
        if (mStation.isLeft() && !mCancelled && !mIsEpilogue) fail("The companion programs go on.");
        mOtherRun.reset();  // it ends with this one
        for (const auto& [name, known] : mKnown) {
            const auto unit = known.planned->profile.unitId;
            for (const auto& key : {port + std::to_string(known.index + 1), "unit-" + std::to_string(unit)})
                if (!DeviceLock::take(key)) fail(key + " is left locked.");
        }
    }

    /// The last, where a device that failed is plugged in once more while each that comes is reset.
    const json* endOf(const Device& device) const {
        const auto end = std::find_if(mEvents.rbegin(), mEvents.rend(), [&](const json& event) {
            return event.value("unit", 0U) == device.profile().unitId && event.at("event") == "device" &&
                   event.value("state", "") == "ended";
        });
        return end == mEvents.rend() ? nullptr : &*end;
    }

    /// After the command that the world is about.
    void lookAtEnd(Status status) {
        if (!mPlan.hasPlainUnits) return;
        const bool resets = says("reset");
        for (const Device* const device : mDevices) {
            const Device& one = *device;
            const Known& known = knownOf(one);
            if (!known.isChosen) continue;
            const std::string& name = one.profile().unitName;
            const json* const end = endOf(one);
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
                if (!isNoted(one) &&
                    !(isUnwritable() && mOut.view().find("can't be written down") != std::string::npos))
                    fail(name + " is left held, and the journal does not know.");
                if (!isSaid("boot loader")) fail(name + " is left held, and nobody says so.");
            }
            const bool isOwn = end && (says("resume") || !known.isHeldFirst());
            if (isHeld && isOwn && mCancelled && !known.isToldToStart && !isDisturbed(known, What::Cancel))
                fail("The cancel leaves " + name + " held.");
            if (mIsEach || isDisturbed(known) || !known.planned->plugged) continue;
            if (!isDone) fail("Nothing befell " + name + ", and it is not done.");
            if (isHeld) fail("Nothing befell " + name + ", and it is held.");
            if (isNoted(one)) fail(name + " is done, and the journal keeps it.");
            if (resets && end->at("at") > latestEnd(one.profile()))
                fail(name + " could have been done earlier: " + end->dump());
        }
    }

    /// When a device must have been done, in seconds, where nothing takes time but its own restarts and the companion
    /// programs.
    double latestEnd(const simulator::Profile& profile) const {
        const bool isPrompt = profile.answerDelay == Duration{0} && profile.protocols && says("--all") &&
                              !says("--jobs") && !mPlan.has(What::Tells);
        if (!isPrompt) return std::numeric_limits<double>::infinity();
        const Duration boot = profile.bootTime ? profile.leaveDelay + *profile.bootTime : Duration(seconds(1));
        return std::chrono::duration<double>(2 * mStationTakes + profile.leaveDelay + profile.rebootTime + boot)
                   .count() +
               0.5;
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

    void lookForHeld() const {
        for (const Device* const one : mDevices) {
            const bool isHeld = one->bootState() == BootState::HeldInBootLoader;
            if (isHeld && !knownOf(*one).isToldToStart && (mWindow || !knownOf(*one).isHeldFirst()))
                fail(one->profile().unitName + " is still held.");
        }
    }

    // ---- and afterwards, with all that was wrong taken away

    void heal() {
        for (Device* const one : mDevices) one->faults().clear();
        plugAll();
        if (mWindow) mWindow->look();
        mMachine.setFull(false);
        mOtherRun.reset();
        mCancelled.reset();
        passSeconds(15);  // a cable that a fault wanted out by now comes out in the meantime
        plugAll();
        passSeconds(1);
    }

    void resetAll() {
        passSeconds(15);
        for (Device* const one : mDevices) one->store() = simulator::SettingsStore::wellUsed();
        if (command({"reset", "--all", "--yes", "--keep-station"}) != Status::Done) fail("A second reset is not done.");
        const auto isLeft = [&](const Device* one) { return !knownOf(*one).isForeign() && !one->store().empty(); };
        if (std::ranges::any_of(mDevices, isLeft)) fail("It is not reset.");
    }

    void plugAll() {
        for (std::size_t port = 0; port < mDevices.size(); ++port) mBus.plug(port);
    }
    void passSeconds(double span) { mBaton.MPDelayUntil(mBaton.CFAbsoluteTimeGetCurrent() + span); }

    const Known& knownOf(const Device& device) const { return mKnown.at(device.profile().unitName); }

    static constexpr Duration kCancelled = seconds(8);  ///< within which a cancelled run has ended
    static constexpr Duration kWindow = std::chrono::minutes(4);

    const Plan& mPlan;
    const std::string mFolder;
    Baton mBaton;
    const Time mStart = mBaton.now();
    simulator::InProcessBus mBus{mBaton};
    const Duration mStationTakes = mPlan.has(What::StuckStation) ? seconds(3) : mPlan.first(What::Station).after;
    Station mStation{mStationTakes, mPlan.has(What::StuckStation)};
    Machine mMachine{mBaton, mFolder + "/disk"};
    twin::ScenarioRegistry mRegistry{mBus, mPlan.first(What::Tells).tells};
    twin::GatedRegistry mGated{mRegistry};
    simulator::ManualQueue mMainQueue{mBaton};
    simulator::RecordingExceptionHandler mExceptions;
    Window* mWindow = nullptr;
    std::vector<std::size_t> mPluggedFirst;
    std::optional<platform::PlatformScope> mScope;
    std::optional<DeviceLock> mOtherRun;

    std::vector<Device*> mDevices;        ///< by port; a swap changes what is behind the pointers
    std::map<std::string, Known> mKnown;  ///< by their name
    std::vector<Coming> mComing;
    std::function<void()> mCancel;
    std::optional<Time> mCancelled;
    std::string mStage;  ///< the last that began
    bool mKilled = false;
    bool mIsQuitting = false;
    bool mIsEpilogue = false;
    bool mIsUnderWay = false;
    bool mIsEach = false;
    bool mHasChosen = false;
    Time mEnd = Time::max();
    std::ostringstream mOut;
    std::size_t mTold = 0;
    std::vector<json> mEvents;  ///< of the last command
};

}  // namespace

void run(const Plan& plan, const std::string& folder) {
    ddLogLevel = plan.isWindow() ? DDLogFlagError | DDLogFlagWarning | DDLogFlagInfo : 0;
    World& world = *new World(plan, folder);  // flows and loggers that are left go on with it until the process ends
    plan.isWindow() ? world.runWindow() : world.runCommand();
}

}  // namespace explore
