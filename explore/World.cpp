#include "explore/World.hpp"

#include "app/Util/Logging/DDLog.hpp"
#include "cli/Commands.hpp"
#include "cli/Journal.hpp"
#include "cli/Scenario.hpp"
#include "cli/UsbGate.hpp"
#include "explore/Checks.hpp"
#include "explore/Report.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "simulator/world/SimulatedServices.hpp"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <utility>

namespace explore {
namespace {

using twin::Stage;

/// Carries out a plan: the events, each at its moment, and the run that they come in; then, with all that was wrong
/// taken away, what has to work again. Its checks judge it. Called by whoever has the baton.
class World final : public simulator::TimedWork {
  public:
    World(const Plan& plan, std::string folder) : mPlan(plan), mFolder(std::move(folder)) {
        for (const auto& planned : plan.devices) {
            const auto port = mScene.bus.addDevice(planned.profile);
            mScene.bus.withDevice(port, [&](Device& device, Time now) {
                mScene.devices.push_back(&device);
                device.setBootState(planned.state, now);
            });
            if (planned.plugged) mPluggedFirst.push_back(port);
        }
        setenv("XDG_DATA_HOME", (mFolder + "/disk").c_str(), 1);  // log files
        install("locks");
        for (const Event& event : plan.events) prepare(event);
        if (!plan.isWindow()) mScene.bus.plug(mPluggedFirst);
        mScene.baton.add(*this);
        mScene.baton.onStep = [this] { step(); };
        mChecks.lookAtDevices();
        mScene.bus.setObserver([this] { mChecks.lookAtDevices(); });
    }

    void runCommand() {
        command(mPlan.arguments);
        mScene.isEpilogue = true;
        if (mPlan.has(What::BusFault) || !mPlan.hasPlainUnits) return;
        heal();
        if (!mPlan.has(What::FullDisk)) {
            const bool isNone = twin::Journal(mScene.journalFolder).entries().empty();
            if (command({"resume"}) != (isNone ? Status::NoneFound : Status::Done))
                fail("What was left held can't be let start.");
            mChecks.lookForHeld();
        }
        if (mPlan.seed % 4 == 0) resetAll();
    }

    void runWindow() {
        mScene.window = new Window(mScene.baton, mScene.mainQueue, mMachine);  // stays: abandoned flows may be in it
        Window& window = *mScene.window;
        window.listen();
        mChecks.begin();
        mScene.bus.plug(mPluggedFirst);
        const auto isOver = [&] { return mKilled || mIsQuitting; };
        const auto isComplete = [&] { return window.isComplete() || isOver(); };
        window.until(mStart + mPlan.pressedAfter, isOver);
        mScene.isUnderWay = true;
        if (!isOver()) window.press();
        window.until(mScene.baton.now() + kWindow, isComplete);
        if (isOver()) return goOnWithoutWindow();
        fact("status", window.isComplete() ? "window complete" : "window waits");
        if (!window.isComplete()) mChecks.lookAtWaitingWindow();
        if (mPlan.has(What::BusFault)) return;  // it may have kept the window from seeing any device
        mScene.isEpilogue = true;
        for (std::size_t port = 0; port < mScene.devices.size(); ++port) mScene.bus.unplug(port);
        heal();
        window.until(mScene.baton.now() + kWindow, isComplete);
        // It goes by arrivals alone: two devices may take turns without end, each rebooted when the other is back. One
        // alone has to do.
        if (!window.isComplete() && !mPlan.hasOneDevice()) {
            for (std::size_t port = 0; port < mScene.devices.size(); ++port) mScene.bus.unplug(port);
            window.until(mScene.baton.now() + seconds(15), isComplete);
            const auto isOwn = [](const Device* one) { return !Plan::isForeign(one->profile()); };
            const auto own = std::ranges::find_if(mScene.devices, isOwn) - mScene.devices.begin();
            mScene.bus.plug(static_cast<std::size_t>(own));
            window.until(mScene.baton.now() + kWindow, isComplete);
        }
        if (!window.isComplete()) fail("All is well again, and the window is not complete.");
        window.until(mScene.baton.now() + seconds(20), [] { return false; });
        if (mPlan.seed % 2 == 0 && mPlan.hasOneDevice()) {  // and once more
            window.press();
            window.until(mScene.baton.now() + kWindow, isComplete);
            if (!window.isComplete()) fail("A second reset is not complete.");
        }
        window.stopListening();
        window.look();
        window.lookAtFiles();
        if (!window.isAtRest()) fail("It is complete, and the controller waits for something.");
        mChecks.lookAtCompleteWindow();
    }

    /// The tool has ended, in whatever state: the program without a window can reset everything.
    void goOnWithoutWindow() {
        fact("status", mIsQuitting ? "window quit" : "window killed");
        if (mIsQuitting && !mKilled) {
            mChecks.lookAtQuitWindow(mScene.window->quit(mPlan.seed % 2 == 0));
            mScene.window->lookAtFiles();
            end();
        }
        mScene.window = nullptr;
        DDLog::removeAllLoggers();
        install("locks of the next process");
        mScene.isEpilogue = true;
        if (mPlan.has(What::BusFault) || !mPlan.hasPlainUnits) return;
        heal();
        resetAll();
    }

    // simulator::TimedWork
    std::optional<Time> nextDue() override {
        auto due = mScene.bus.nextDue();
        for (const auto& [event, moment] : mComing) simulator::bringForward(due, moment);
        return due;
    }
    void run(Time now) override {
        mScene.bus.run(now);
        happen([&](const Coming& coming) { return coming.due && *coming.due <= now; });
    }

  private:
    /// An event that has a moment, and that moment once it is known.
    struct Coming {
        Event event;
        std::optional<Time> due;
    };

    // ---- the events of the plan

    void prepare(const Event& event) {
        if (event.what == What::BusFault) return mScene.bus.addFault(event.fault);  // nobody is told when it strikes
        const bool isFault = event.what == What::Fault;
        if (isFault) mScene.devices[event.device]->addFault(event.fault);
        if (event.what == What::OtherRun)
            mScene.otherRun = DeviceLock::take((mPlan.isWindow() ? "Port@" : "1-") + std::to_string(event.device + 1));
        fact("planned", isFault ? event.fault.name : event.name());
        if (!event.isTimed() && !isFault) fact("met", event.name());
        if (!event.isTimed()) return;
        const bool isKnown = !event.turn && !event.stage;
        mComing.push_back({event, isKnown ? std::optional(mScene.baton.now() + event.after) : std::nullopt});
    }

    void stageBegan(Stage stage) {
        mScene.hasChosen = true;
        mStage = twin::info(stage).name;
        fact("stage", mStage);
        for (auto& [event, due] : mComing) {
            if (event.stage == stage && !due) due = mScene.baton.now() + event.after;
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
        if (mScene.isEpilogue) return;
        trace("event: " + event.text());
        if (mScene.isUnderWay || event.what < What::Cancel) fact("met", event.name());
        if (mScene.isUnderWay) fact(event.name() + std::string(" in"), mScene.window ? "the window" : mStage);
        if (event.what == What::Plug) mScene.bus.plug(event.device);
        if (event.what == What::Unplug) mScene.bus.unplug(event.device);
        if (event.what == What::Swap) mScene.bus.swap(event.device, event.other);
        if (mScene.window) mScene.window->look();  // at what was logged before the time or the disk changes
        if (event.what == What::ClockStep) mMachine.setTimeOfDay(event.by);
        if (event.what == What::ClockStep && mScene.window) mScene.window->timeWasSet(event.by < Duration{0});
        if (event.what == What::FullDisk) mMachine.setFull(true);
        if (event.what == What::Cancel && mScene.window) mIsQuitting = mScene.isUnderWay;
        if (event.what == What::Cancel && !mScene.window && mScene.isUnderWay) mScene.cancelled ? end() : cancel();
        if ((event.what == What::Kill || event.what == What::PowerCut) && mScene.isUnderWay) end();
        if (event.what == What::PowerCut && mKilled) mMachine.cutPower();
    }

    /// No flow of the program gets another turn. The system closes what a dead process had open.
    void end() {
        mKilled = true;
        mScene.isUnderWay = false;
        mScene.baton.abandon();
        mScene.bus.closeAll();
    }

    void cancel() {
        if (!mCancel || mScene.cancelled) return;
        mScene.cancelled = mScene.baton.now();
        mCancel();
    }

    // ---- between two turns

    void step() {
        happen(
            [this](const Coming& coming) { return coming.event.turn && *coming.event.turn <= mScene.baton.steps(); });
        if (mScene.isUnderWay && mScene.baton.now() > mEnd) {
            if (mScene.isEpilogue || !mPlan.says("--each") || mScene.cancelled) fail("The run goes on for too long.");
            cancel();
            mEnd += mChecks.longestCancel();
        }
        tellWhatIsWritten();
    }

    void tellWhatIsWritten() {
        if (mScene.window) mScene.window->look();
        if (static_cast<std::size_t>(mScene.out.tellp()) == mTold) return;
        const std::string written = mScene.out.str();
        trace("says: " + written.substr(mTold, written.size() - mTold - 1));
        mTold = written.size();
    }

    // ---- the program

    void install(const std::string& locks) {
        mScope.reset();
        const std::string folder = mFolder + "/" + locks;
        std::filesystem::create_directories(folder);
        auto platform = platform::withLinuxFiles({.clock = &mScene.baton,
                                                  .runLoops = &mScene.baton,
                                                  .masterPort = &mGated,
                                                  .mainQueue = &mScene.mainQueue,
                                                  .globalQueue = &mScene.baton,
                                                  .scriptRunner = &mScene.station,
                                                  .exceptionHandler = &mExceptions,
                                                  .wallClock = &mMachine,
                                                  .lockFolder = folder});
        platform.dispatchSources = nullptr;  // nobody is told of changes of files
        platform.log = [](const std::string& line) {
            if (Baton::isFlow()) trace("log: " + line);  // loggers' own threads speak at moments of their own
        };
        mScope.emplace(platform);
    }

    /// @return how it ended; nothing when it was killed
    std::optional<Status> command(std::vector<std::string> arguments) {
        trace("command: " + json(arguments).dump());
        arguments.emplace_back("--json");
        std::ostringstream help;
        Status status = Status::Done;
        const auto options = twin::parse(arguments, "1.0", help, help, status);
        if (!options) fail("The command line is wrong: " + help.str());
        mScene.out.str({});
        mTold = 0;
        mEnd = mScene.baton.now() + mChecks.longestRun(*options);
        mScene.isUnderWay = true;
        mKilled = false;
        mStage = "the beginning";
        mChecks.begin();
        std::optional<Status> ended;
        mScene.baton.flow("twin", [&] {
            std::ostringstream people;
            ended = twin::run(*options, {.out = mScene.out,
                                         .people = people,
                                         .workers = mScene.baton,
                                         .journalFolder = mScene.journalFolder,
                                         .version = "1.0",
                                         .diagnosis = twin::plainDiagnosis,
                                         .stageBegan = [this](Stage stage) { stageBegan(stage); },
                                         .onCancel = [this](auto cancel) { mCancel = std::move(cancel); }});
            mScene.isUnderWay = false;
        });
        const bool isOver = mScene.baton.until([&] { return ended || mKilled; });
        mCancel = nullptr;
        if (!isOver) fail("Everybody waits, and nothing is due.");
        if (!mScene.isEpilogue) fact("status", ended ? nameOf(*ended) : "killed");
        // The system lets go of a dead process's locks; those of its flows here stay.
        if (!ended) install("locks of the next process");
        if (ended) mChecks.lookAtEnd(*ended);
        return ended;
    }

    // ---- and afterwards, with all that was wrong taken away

    void heal() {
        for (Device* const one : mScene.devices) one->faults().clear();
        plugAll();
        if (mScene.window) mScene.window->look();
        mMachine.setFull(false);
        mScene.otherRun.reset();
        mScene.cancelled.reset();
        passSeconds(15);  // a cable that a fault wanted out by now comes out in the meantime
        plugAll();
        passSeconds(1);
    }

    void resetAll() {
        passSeconds(15);
        for (Device* const one : mScene.devices) one->store() = simulator::SettingsStore::wellUsed();
        if (command({"reset", "--all", "--yes", "--keep-station"}) != Status::Done) fail("A second reset is not done.");
        const auto isLeft = [](Device* one) { return !Plan::isForeign(one->profile()) && !one->store().empty(); };
        if (std::ranges::any_of(mScene.devices, isLeft)) fail("It is not reset.");
    }

    void plugAll() {
        for (std::size_t port = 0; port < mScene.devices.size(); ++port) mScene.bus.plug(port);
    }
    void passSeconds(double span) { mScene.baton.MPDelayUntil(mScene.baton.CFAbsoluteTimeGetCurrent() + span); }

    static constexpr Duration kWindow = std::chrono::minutes(4);

    const Plan& mPlan;
    const std::string mFolder;
    Scene mScene{mPlan, mFolder + "/disk/journal"};
    Checks mChecks{mScene};
    const Time mStart = mScene.baton.now();
    Machine mMachine{mScene.baton, mFolder + "/disk"};
    twin::ScenarioRegistry mRegistry{mScene.bus, mPlan.first(What::Tells).tells};
    twin::GatedRegistry mGated{mRegistry};
    simulator::RecordingExceptionHandler mExceptions;
    std::vector<std::size_t> mPluggedFirst;
    std::optional<platform::PlatformScope> mScope;
    std::vector<Coming> mComing;
    std::function<void()> mCancel;
    std::string mStage;  ///< the last that began, for the facts
    bool mKilled = false;
    bool mIsQuitting = false;
    Time mEnd = Time::max();  ///< beyond which the run takes too long
    std::size_t mTold = 0;    ///< so many characters of the output were traced
};

}  // namespace

void run(const Plan& plan, const std::string& folder) {
    ddLogLevel = plan.isWindow() ? DDLogFlagError | DDLogFlagWarning | DDLogFlagInfo : 0;
    World& world = *new World(plan, folder);  // flows and loggers that are left go on with it until the process ends
    plan.isWindow() ? world.runWindow() : world.runCommand();
}

}  // namespace explore
