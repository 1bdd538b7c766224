#pragma once

#include "app/TrovikMode/DeviceLock.hpp"
#include "cli/DeviceVisit.hpp"
#include "cli/Devices.hpp"
#include "cli/Journal.hpp"
#include "cli/Lookout.hpp"
#include "cli/Outcome.hpp"
#include "cli/Reporter.hpp"
#include "cli/ResetSequence.hpp"
#include "cli/UsbGate.hpp"
#include "cli/Workers.hpp"
#include "platform/CFRunLoop.hpp"
#include "platform/Clock.hpp"
#include "platform/Platform.hpp"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

namespace twin {

/// Drives the resets of one run. It looks at the registry once a second and whenever the registry tells of something,
/// has each new entry that anybody may be waiting for opened once, beside the others, and hands it to whoever waits for
/// the unit id that it reports; an entry that nobody waits for is let go of and not opened again.
///
/// The main thread runs the loop: it looks, starts openings, lets time pass in the sequences, and reports. Workers open
/// devices and do what the sequences say. Everything that both touch is behind one mutex, which nobody holds while a
/// device is talked to or an event is reported. Lock files are made, and the journal's notes struck out, under it.
class Dispatcher final : public ResetSequence::Observer {
  public:
    struct Settings {
        ResetSequence::Plan plan;
        std::size_t jobs = 0;  ///< resets at a time; 0 for all
        DeviceVisit::Diagnosis diagnosis = systemDiagnosis;
        /// Told of each stage that begins, in time for what is done in it; for worlds in which something happens then.
        /// Any thread.
        std::function<void(Stage)> stageBegan;
    };

    /// What became of one device.
    struct Result {
        Device device;
        std::optional<std::uint32_t> unit;
        Status status = Status::Failed;
        std::string state;  ///< in which the device is, for people
    };

    /// What opening a device told.
    struct Inspection {
        Device device;
        std::optional<Identity> identity;
        std::optional<Failure> failure;
    };

    /// What is passed by reference must outlive the dispatcher.
    Dispatcher(Settings settings, Workers& workers, const Journal& journal, Reporter& reporter);
    ~Dispatcher() override;
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;

    /// @name Before run()
    /// @{
    void reset(const Device& device, std::optional<std::uint32_t> unit = {});
    void resume(const Device& device, std::optional<std::uint32_t> unit = {});
    /// Every device that is attached or attaches, each once, until so many have been done; 0 for until cancelled.
    void resetEach(std::size_t count);
    /// @}

    /// Does what was asked for. Blocks until all of it is over. Main thread.
    std::vector<Result> run();

    /// Has the companion programs quit, once. Blocks. Main thread; run() does it by itself.
    void quitStation();

    /// Opens and identifies devices, all at once, and lets them go. Blocks. Main thread.
    std::vector<Inspection> inspect(const std::vector<Device>& devices);

    /// Waits until what is attached is enough. Blocks. Main thread.
    /// @param seconds  0 for one look
    /// @return what is attached then, by port
    std::vector<Device> waitForDevices(double seconds, const std::function<bool(const std::vector<Device>&)>& isEnough);

    /// Tells of devices that come and go, until cancelled. Blocks. Main thread.
    void watch();

    /// Ends what is under way: waits are cut, and held devices are let start. Never blocks. Any thread.
    void cancel();
    [[nodiscard]] bool isCancelled() const { return mStop.stop_requested(); }

    /// For work beside the devices, which a cancel is to end too.
    [[nodiscard]] std::stop_token stopToken() const { return mStop.get_token(); }

    /// The last look could not read the list of devices, which has been told. Any thread.
    [[nodiscard]] bool isListUnreadable() const;

    /// Reports an event, with the time in it. Main thread.
    void tell(Event event);
    /// A failure into an event.
    static void describe(Event& event, const Failure& failure);
    /// A failure as a note.
    static Event noteOf(const Failure& failure, const std::string& port = {}, std::uint32_t unit = 0);

    /// Another run has the lock.
    static Failure lockedByOther();
    static std::string unitLock(std::uint32_t unit) { return "unit-" + std::to_string(unit); }  ///< its lock's key

  private:
    using Now = platform::CFAbsoluteTime;

    static constexpr const char* kSourceFile = "trovik-reset";  ///< what messages of a thread's boundary name
    static constexpr double kOpenLimit = 10;                    ///< seconds for an opening and the start of a session

    /// One device of this run.
    struct Job {
        Job(int ordinal, Device where, std::optional<std::uint32_t> unit, const ResetSequence::Plan& plan,
            ResetSequence::Observer& observer)
            : number(ordinal), device(std::move(where)), sequence(device.entry, unit, plan, observer) {}

        const int number;
        Device device;  ///< where it was last
        ResetSequence sequence;
        bool begun = false;
        bool resumes = false;  ///< is only let start
        bool told = false;     ///< that it is over
        bool hasUnitLock = false;
        std::vector<std::shared_ptr<DeviceLock>> locks;
    };

    /// One opening of a device.
    struct Visit {
        Device device;
        std::shared_ptr<UsbGate> gate;
        std::shared_ptr<DeviceLock> portLock;
    };

    /// One attach of a device.
    struct Entry {
        Device device;
        bool foreign = false;               ///< there from the start, and not chosen: never opened
        bool visited = false;               ///< somebody has it open
        std::optional<std::uint32_t> unit;  ///< once it has been opened
        Now nextTry = 0;
        std::optional<Failure> failure;  ///< of the last opening
    };

    // ResetSequence::Observer; under mMutex
    void stageBegan(const ResetSequence& sequence, Stage stage) override;
    void stageEnded(const ResetSequence& sequence, Stage stage, const Failure* failure) override;

    // Main thread:
    void loopUntil(const std::function<bool()>& isDone, bool looks);
    void look(Now now);
    void advance(Now now);
    void report();
    void startVisits(Now now);
    bool start(std::function<void()> work);  ///< false where no thread is to be had
    void startQuitting();

    // Workers:
    void visit(const Visit& planned);
    Job* offer(const Visit& planned, std::uint32_t unit);
    void doSteps(Job& job, DeviceVisit& visit);
    void openFailed(const Device& device, const Failure& failure);
    void noteHeld(const Journal::Entry& entry);

    // Under mMutex:
    Job& add(const Device& device, std::optional<std::uint32_t> unit);
    void begin(Job& job, Now now);
    bool takesMore() const;  ///< a device that nobody waits for gets a job of its own
    void note(Event event);
    static Event deviceEvent(const Job& job, const char* kind);
    Event stageEvent(const ResetSequence& sequence, Stage stage, const char* state) const;
    bool isAnothers(const Job& job, const Device& device) const;  ///< of a job that goes on
    bool lockUnit(Job& job);
    std::shared_ptr<DeviceLock> lockFor(const std::string& key);  ///< null: another run has it
    void noteDepartures(const std::vector<Device>& attached);

    void tellStages();
    Event stamped(Event event) const;
    void wake();
    static Now now() { return platform::CFAbsoluteTimeGetCurrent(); }

    const Settings mSettings;
    Workers& mWorkers;
    const Journal& mJournal;
    Reporter& mReporter;
    const std::shared_ptr<platform::CFRunLoop> mLoop;
    const Now mStart;
    Lookout mLookout;          ///< main thread
    bool mQuitWanted = false;  ///< main thread
    bool mQuits = false;       ///< main thread; the companion has been asked to quit
    std::stop_source mStop;    ///< of a cancel

    mutable std::mutex mMutex;
    // All of the following is under mMutex.
    std::vector<std::unique_ptr<Job>> mJobs;
    std::map<std::uint64_t, Entry> mEntries;  ///< by entry id
    std::set<std::shared_ptr<UsbGate>> mGates;
    std::map<std::string, std::weak_ptr<DeviceLock>> mLocks;  ///< by key
    std::deque<Event> mEvents;                                ///< not yet reported
    std::vector<Stage> mBegunStages;                          ///< not yet told
    std::set<std::uint32_t> mDoneUnits;
    std::size_t mWorking = 0;  ///< workers under way
    bool mHasQuitStation = false;
    bool mHasLooked = false;
    bool mRefused = false;  ///< the registry could not be asked, at the last look
    bool mEach = false;
    std::size_t mEachCount = 0;
};

}  // namespace twin
