#include "cli/Dispatcher.hpp"

#include "app/TrovikMode/ResetSteps.hpp"
#include "app/TrovikMode/USBTrovikModeFinderUtils.hpp"
#include "platform/IORegistry.hpp"
#include "platform/Platform.hpp"
#include "platform/common/Boundary.hpp"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

namespace twin {
namespace {

constexpr const char* kSourceFile = "trovik-reset";  ///< what messages of a thread's boundary name
constexpr double kLookInterval = 1;                  ///< seconds
constexpr double kShortestInterval = 0.05;  ///< between two looks that events asked for: a hub brings many at once
constexpr double kOpenLimit = 10;           ///< seconds for an opening and the start of a session
constexpr double kRedrawInterval = 0.25;

double now() {
    return platform::CFAbsoluteTimeGetCurrent();
}

Failure lockedByOther() {
    return {Cause::HeldByProgram, Status::OtherRun, "Another run works on the device."};
}

double toMilliseconds(double seconds) {
    return std::round(seconds * 1000) / 1000;
}

}  // namespace

/// One device of this run.
struct Dispatcher::Job {
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
struct Dispatcher::Visit {
    Device device;
    std::shared_ptr<UsbGate> gate;
    std::shared_ptr<DeviceLock> portLock;
};

/// One attach of a device.
struct Dispatcher::Entry {
    Device device;
    bool foreign = false;               ///< there from the start, and not chosen: never opened
    bool visited = false;               ///< somebody has it open
    std::optional<std::uint32_t> unit;  ///< once it has been opened
    Now nextTry = 0;
    std::optional<Failure> failure;  ///< of the last opening
};

Dispatcher::Dispatcher(Settings settings, Workers& workers, const Journal& journal, Reporter& reporter)
    : mSettings(std::move(settings)),
      mWorkers(workers),
      mJournal(journal),
      mReporter(reporter),
      mLoop(platform::CFRunLoopGetCurrent()),
      mStart(now()) {
    subscribe();
}

Dispatcher::~Dispatcher() {
    mWorkers.join();
    if (mPort) mLoop->CFRunLoopRemoveSource(mPort->IONotificationPortGetRunLoopSource());
}

/// Events only hasten the next look, which finds what they tell of. Without them it comes a little later.
void Dispatcher::subscribe() {
    auto& registry = platform::kIOMasterPortDefault();
    mPort = registry.IONotificationPortCreate();
    mLoop->CFRunLoopAddSource(mPort->IONotificationPortGetRunLoopSource(), platform::kCFRunLoopDefaultMode);
    const auto changed = [](void* self, platform::IOIterator& iterator) {
        while (iterator.IOIteratorNext()) {
        }
        auto& dispatcher = *static_cast<Dispatcher*>(self);
        dispatcher.mNextLook = std::min(dispatcher.mNextLook, dispatcher.mLastLook + kShortestInterval);
    };
    for (const char* const type : {platform::kIOServiceMatched, platform::kIOServiceTerminate}) {
        std::unique_ptr<platform::IOIterator> iterator;
        if (registry.IOServiceAddMatchingNotification(*mPort, type, USBTrovikModeFinderUtils::createTMDeviceMatcher(),
                                                      changed, this, iterator) != platform::kIOReturnSuccess)
            continue;
        while (iterator->IOIteratorNext()) {
        }
        mNotifications.push_back(std::move(iterator));
    }
}

// ---- what is asked for

Dispatcher::Job& Dispatcher::add(const Device& device, std::optional<std::uint32_t> unit) {
    const int number = static_cast<int>(mJobs.size()) + 1;
    return *mJobs.emplace_back(std::make_unique<Job>(number, device, unit, mSettings.plan, *this));
}

void Dispatcher::reset(const Device& device, std::optional<std::uint32_t> unit) {
    const std::lock_guard lock(mMutex);
    add(device, unit);
    mQuitWanted = mSettings.plan.quitsStation;
}

void Dispatcher::resume(const Device& device, std::optional<std::uint32_t> unit) {
    const std::lock_guard lock(mMutex);
    add(device, unit).resumes = true;
}

void Dispatcher::resetEach(std::size_t count) {
    const std::lock_guard lock(mMutex);
    mEach = true;
    mEachCount = count;
    mQuitWanted = mSettings.plan.quitsStation;
}

void Dispatcher::cancel() {
    std::set<std::shared_ptr<UsbGate>> gates;
    {
        const std::lock_guard lock(mMutex);
        if (std::exchange(mCancelled, true)) return;
        gates = mGates;
        for (auto& [id, entry] : mEntries) entry.nextTry = 0;
        for (const auto& job : mJobs) job->sequence.cancel(now());
    }
    for (const auto& gate : gates) gate->close(UsbGate::State::Cancelled);
    wake();
}

bool Dispatcher::isCancelled() const {
    const std::lock_guard lock(mMutex);
    return mCancelled;
}

void Dispatcher::wake() {
    mLoop->CFRunLoopPerformBlock(platform::kCFRunLoopDefaultMode, [] {});
}

// ---- the loop

void Dispatcher::loopUntil(const std::function<bool()>& isDone, bool looks) {
    for (;;) {
        const Now moment = now();
        if (looks && moment >= mNextLook) look(moment);
        advance(moment);
        report();
        Now due = looks ? mNextLook : moment + kLookInterval;
        {
            const std::lock_guard lock(mMutex);
            if (isDone()) return;
            for (const auto& job : mJobs) {
                if (job->begun) due = std::min(due, job->sequence.nextDue());
            }
        }
        if (mReporter.drawsLines()) due = std::min(due, moment + kRedrawInterval);
        // A run of no time at all would only serve what is ready: what is due by now is done in the next turn.
        mLoop->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, std::max(due - now(), 0.001), true);
    }
}

std::vector<Dispatcher::Result> Dispatcher::run() {
    loopUntil([this] { return mHasLooked || mRefused; }, true);
    {
        const std::lock_guard lock(mMutex);
        for (auto& [id, entry] : mEntries) {
            const auto isOf = [&](const auto& job) { return job->device.entry == entry.device.entry; };
            entry.foreign = !mEach && std::ranges::none_of(mJobs, isOf);
        }
    }
    if (mQuitWanted) startQuitting();
    loopUntil(
        [this] {
            const auto isTold = [](const auto& job) { return job->told; };
            const auto over = static_cast<std::size_t>(std::ranges::count_if(mJobs, isTold));
            if (over < mJobs.size() || mWorking > 0) return false;
            return !mEach || mCancelled || (mEachCount > 0 && over >= mEachCount);
        },
        true);
    mWorkers.join();
    report();
    const std::lock_guard lock(mMutex);
    std::vector<Result> results;
    for (const auto& job : mJobs) results.push_back({job->device, job->sequence.unit(), job->sequence.status()});
    return results;
}

void Dispatcher::startQuitting() {
    if (std::exchange(mQuits, true)) return;
    const bool isStarted = start([this] {
        ResetSteps::quitStation();
        const std::lock_guard lock(mMutex);
        mHasQuitStation = true;
    });
    const std::lock_guard lock(mMutex);
    if (!isStarted) mHasQuitStation = true;  // best effort
}

void Dispatcher::quitStation() {
    startQuitting();
    const Now end = now() + mSettings.plan.limit(Stage::Quit);
    loopUntil([this, end] { return mHasQuitStation || mCancelled || now() >= end; }, false);
}

std::vector<Dispatcher::Inspection> Dispatcher::inspect(const std::vector<Device>& devices) {
    std::vector<Inspection> inspections;
    for (const Device& device : devices) inspections.push_back({device, {}, {}});
    for (Inspection& inspection : inspections) {
        const auto gate = std::make_shared<UsbGate>();
        std::shared_ptr<DeviceLock> portLock;
        {
            const std::lock_guard lock(mMutex);
            mGates.insert(gate);
            if (mCancelled) gate->close(UsbGate::State::Cancelled);
            portLock = lockFor(inspection.device.port);
        }
        inspection.failure = lockedByOther();
        if (!portLock) continue;
        const bool isStarted = start([this, &inspection, gate, portLock] {
            gate->setDeadline(now() + kOpenLimit);
            Identity identity;
            std::optional<Failure> failure;
            {
                DeviceVisit visit(inspection.device.entry.ioPath(), *gate, mSettings.diagnosis);
                failure = visit.open();
                if (!failure) failure = visit.identify(identity);
            }
            const std::lock_guard lock(mMutex);
            mGates.erase(gate);
            inspection.failure = failure;
            if (!failure) inspection.identity = identity;
        });
        if (!isStarted) inspection.failure = Failure{Cause::NoThread, Status::Failed, {}};
    }
    loopUntil([this] { return mWorking == 0; }, false);
    return inspections;
}

std::vector<Device> Dispatcher::waitForDevices(double seconds, const std::set<std::string>& ports) {
    const Now end = now() + seconds;
    std::vector<Device> devices;
    loopUntil(
        [&] {
            devices.clear();
            for (const auto& [id, entry] : mEntries) devices.push_back(entry.device);
            const auto isThere = [&](const auto& port) { return std::ranges::count(devices, port, &Device::port) > 0; };
            return mCancelled || now() >= end || (!devices.empty() && std::ranges::all_of(ports, isThere));
        },
        true);
    std::ranges::sort(devices, {}, &Device::port);
    return devices;
}

void Dispatcher::watch() {
    loopUntil([this] { return mCancelled; }, true);
}

bool Dispatcher::start(std::function<void()> work) {
    const auto finish = [this] {
        {
            const std::lock_guard lock(mMutex);
            --mWorking;
        }
        wake();
    };
    {
        const std::lock_guard lock(mMutex);
        ++mWorking;
    }
    try {
        mWorkers.start([work = std::move(work), finish] {
            platform::runGuarded(work, kSourceFile, __LINE__);
            finish();
        });
    } catch (const std::system_error& error) {
        finish();
        const std::lock_guard lock(mMutex);
        Event event{{"event", "note"}};
        note(describe(event, {Cause::NoThread, Status::Failed, error.what()}));
        return false;
    }
    return true;
}

void Dispatcher::look(Now moment) {
    mLastLook = moment;
    mNextLook = moment + kLookInterval;
    const auto attached = attachedDevices();
    const std::lock_guard lock(mMutex);
    if (!attached) {
        if (!std::exchange(mRefused, true)) {
            Event event{{"event", "note"}};
            note(describe(event, {Cause::AttachesNotSeen, Status::Failed, "The list of devices can't be read."}));
        }
        return;
    }
    mRefused = false;
    noteDepartures(*attached);
    for (const Device& device : *attached) {
        const bool isNew = mEntries.try_emplace(device.entry.ioId(), Entry{device, false, false, {}, 0, {}}).second;
        if (!isNew || !mHasLooked) continue;
        note({{"event", "device"}, {"port", device.port}, {"product", device.product}, {"state", "attached"}});
    }
    mHasLooked = true;
    std::vector<USBRegistryInfo> entries;
    std::ranges::transform(*attached, std::back_inserter(entries), &Device::entry);
    for (const auto& job : mJobs) {
        if (job->begun) job->sequence.looked(entries, moment);
    }
}

void Dispatcher::noteDepartures(const std::vector<Device>& attached) {
    std::erase_if(mEntries, [&](const auto& known) {
        const Entry& entry = known.second;
        const auto isSame = [&](const Device& device) { return device.entry.ioId() == known.first; };
        if (entry.visited || std::ranges::any_of(attached, isSame)) return false;
        note({{"event", "device"},
              {"port", entry.device.port},
              {"product", entry.device.product},
              {"state", "departed"}});
        return true;
    });
}

void Dispatcher::advance(Now moment) {
    {
        const std::lock_guard lock(mMutex);
        const auto isAtWork = [](const auto& job) { return job->begun && !job->sequence.isOver(); };
        auto atWork = static_cast<std::size_t>(std::ranges::count_if(mJobs, isAtWork));
        for (const auto& job : mJobs) {
            if (!job->begun && !job->sequence.isOver() && (mSettings.jobs == 0 || atWork < mSettings.jobs)) {
                begin(*job, moment);
                ++atWork;
            }
            if (job->begun && mHasQuitStation) job->sequence.stationQuit(moment);
            if (job->begun) job->sequence.tick(moment);
            if (!job->sequence.isOver() || std::exchange(job->told, true)) continue;
            Event event = deviceEvent(*job, "device");
            event["state"] = "ended";
            event["status"] = static_cast<int>(job->sequence.status());
            event["outcome"] = nameOf(job->sequence.status());
            if (const auto& failure = job->sequence.failure()) describe(event, *failure);
            event["text"] = event.value("text", std::string(nameOf(job->sequence.status())) + ".") + " " +
                            job->sequence.stateText();
            note(std::move(event));
            job->locks.clear();
            if (job->sequence.cleared() && job->sequence.unit().value_or(0) != 0)
                mDoneUnits.insert(*job->sequence.unit());
        }
    }
    startVisits(moment);
}

void Dispatcher::begin(Job& job, Now moment) {
    job.begun = true;
    auto lock = lockFor(job.device.port);
    if (!lock) return job.sequence.fail(lockedByOther(), moment);
    job.locks.push_back(std::move(lock));
    if (job.resumes) return job.sequence.beginResume(moment);
    job.sequence.begin(moment);
}

void Dispatcher::startVisits(Now moment) {
    std::vector<Visit> visits;
    {
        const std::lock_guard lock(mMutex);
        const bool takesMore = mEach && !mCancelled && (!mSettings.plan.quitsStation || mHasQuitStation) &&
                               (mEachCount == 0 || mJobs.size() < mEachCount);
        for (auto& [id, entry] : mEntries) {
            if (entry.visited || entry.foreign || moment < entry.nextTry) continue;
            Now deadline = takesMore && !entry.unit ? moment + kOpenLimit : moment;
            for (const auto& job : mJobs) {
                if (job->begun && job->sequence.wants(entry.device.entry, entry.unit, moment))
                    deadline = std::max(deadline, std::min(job->sequence.deadline(), moment + kOpenLimit));
            }
            if (!(deadline > moment)) continue;
            // Who has the lock waits for this very device, perhaps in its boot loader, and must not find it open.
            auto portLock = lockFor(entry.device.port);
            entry.nextTry = moment + kLookInterval;
            if (!portLock) continue;
            entry.visited = true;
            auto gate = std::make_shared<UsbGate>();
            gate->setDeadline(deadline);
            mGates.insert(gate);
            visits.push_back({entry.device, std::move(gate), std::move(portLock)});
        }
    }
    for (const Visit& planned : visits) {
        const auto end = [this, planned] {
            const std::lock_guard lock(mMutex);
            mGates.erase(planned.gate);
            const auto entry = mEntries.find(planned.device.entry.ioId());
            if (entry == mEntries.end()) return;
            entry->second.visited = false;
            if (!entry->second.failure || mCancelled) entry->second.nextTry = 0;
        };
        const bool isStarted = start([this, end, planned] {
            visit(planned);
            end();  // now that it is closed it can be opened again
        });
        if (isStarted) continue;
        end();
        openFailed(planned.device, Failure{Cause::NoThread, Status::Failed, {}});
    }
}

// ---- openings

void Dispatcher::visit(const Visit& planned) {
    DeviceVisit visit(planned.device.entry.ioPath(), *planned.gate, mSettings.diagnosis);
    if (const auto failure = visit.open()) return openFailed(planned.device, *failure);
    if (Job* const job = offer(planned, visit.unitId())) doSteps(*job, visit);
}

void Dispatcher::openFailed(const Device& device, const Failure& failure) {
    const std::lock_guard lock(mMutex);
    const auto found = mEntries.find(device.entry.ioId());
    if (failure.status == Status::Cancelled || found == mEntries.end()) return;
    Entry& entry = found->second;
    entry.nextTry = now() + kLookInterval;
    if (!entry.failure || entry.failure->cause != failure.cause) {
        Event event{{"event", "note"}, {"port", device.port}};
        note(describe(event, failure));
    }
    entry.failure = failure;
    for (const auto& job : mJobs) {
        if (job->begun) job->sequence.openFailed(device.entry, failure, now());
    }
}

Dispatcher::Job* Dispatcher::offer(const Visit& planned, std::uint32_t unit) {
    const std::lock_guard lock(mMutex);
    if (planned.gate->state() != UsbGate::State::Open) return nullptr;
    const Device& device = planned.device;
    const auto found = mEntries.find(device.entry.ioId());
    if (found != mEntries.end()) {
        found->second.unit = unit;
        found->second.failure.reset();
    }
    const auto takes = [&](const auto& job) { return job->begun && job->sequence.offered(device.entry, unit, now()); };
    auto taker = std::ranges::find_if(mJobs, takes);
    if (taker == mJobs.end() && mEach && unit != 0 && mDoneUnits.contains(unit)) {
        note({{"event", "note"}, {"port", device.port}, {"unit", unit}, {"text", "It has been done; it is skipped."}});
        return nullptr;
    }
    const auto isBegun = [&](const auto& job) { return job->sequence.unit() == unit && !job->sequence.isOver(); };
    if (taker == mJobs.end() && mEach && (unit == 0 || std::ranges::none_of(mJobs, isBegun))) {
        Job& job = add(device, unit);
        begin(job, now());
        job.sequence.stationQuit(now());
        if (job.sequence.offered(device.entry, unit, now())) taker = mJobs.end() - 1;
    }
    if (taker == mJobs.end()) {
        note({{"event", "note"},
              {"port", device.port},
              {"unit", unit},
              {"text", "It is not a device that is waited for; it was let go of untouched."}});
        return nullptr;
    }
    Job& job = **taker;
    job.device = device;
    job.locks.push_back(planned.portLock);  // it may have come back under another port
    return lockUnit(job, now()) ? &job : nullptr;
}

bool Dispatcher::lockUnit(Job& job, Now moment) {
    const std::uint32_t unit = job.sequence.unit().value_or(0);
    if (unit == 0 || std::exchange(job.hasUnitLock, true)) return true;
    auto lock = lockFor("unit-" + std::to_string(unit));
    const bool isMine = lock != nullptr;
    if (!isMine) job.sequence.fail(lockedByOther(), moment);
    job.locks.push_back(std::move(lock));
    return isMine;
}

/// A lock of this run is shared, since a file that is locked twice keeps even its own process out.
std::shared_ptr<DeviceLock> Dispatcher::lockFor(const std::string& key) {
    std::weak_ptr<DeviceLock>& known = mLocks[key];
    if (auto lock = known.lock()) return lock;
    auto taken = DeviceLock::take(key);
    if (!taken) return nullptr;
    auto lock = std::make_shared<DeviceLock>(*std::move(taken));
    known = lock;
    return lock;
}

void Dispatcher::doSteps(Job& job, DeviceVisit& visit) {
    for (;;) {
        std::optional<Stage> step;
        double deadline = 0;
        Journal::Entry entry;
        {
            const std::lock_guard lock(mMutex);
            step = job.sequence.step();
            deadline = job.sequence.deadline();
            entry = {job.device.port, job.sequence.unit().value_or(0)};
        }
        if (!step) return;
        if (*step == Stage::Hold) mJournal.held(entry);  // before the command: a kill may come right after it
        const auto failure = visit.run(*step, deadline, [&] {
            const std::lock_guard lock(mMutex);
            job.sequence.stepSent(now());
        });
        bool isHeld = false;
        {
            const std::lock_guard lock(mMutex);
            job.sequence.stepEnded(failure, now());
            const auto boot = job.sequence.boot();
            isHeld = boot == ResetSequence::Boot::Held || boot == ResetSequence::Boot::PerhapsHeld;
        }
        if (!isHeld) mJournal.released(entry);
        wake();
    }
}

// ---- events

void Dispatcher::stageBegan(const ResetSequence& sequence, Stage stage) {
    const auto isOf = [&](const auto& job) { return &job->sequence == &sequence; };
    const auto job = std::ranges::find_if(mJobs, isOf);
    Event event = deviceEvent(**job, "stage");
    event["stage"] = info(stage).name;
    event["state"] = "began";
    event["attempt"] = sequence.attempt();
    event["limit"] = mSettings.plan.limit(stage);
    note(std::move(event));
    if (mSettings.stageBegan) mSettings.stageBegan(stage);
}

void Dispatcher::stageEnded(const ResetSequence& sequence, Stage stage, const Failure* failure) {
    const auto isOf = [&](const auto& job) { return &job->sequence == &sequence; };
    const auto job = std::ranges::find_if(mJobs, isOf);
    Event event = deviceEvent(**job, "stage");
    event["stage"] = info(stage).name;
    event["state"] = failure ? "failed" : "ended";
    event["attempt"] = sequence.attempt();
    event["seconds"] = toMilliseconds(now() - sequence.stageBegan());
    if (failure) describe(event, *failure);
    note(std::move(event));
}

Event Dispatcher::deviceEvent(const Job& job, const char* kind) const {
    Event event{{"event", kind}, {"number", job.number}, {"port", job.device.port}};
    if (const auto unit = job.sequence.unit()) event["unit"] = *unit;
    if (!job.device.product.empty()) event["product"] = job.device.product;
    return event;
}

Event& Dispatcher::describe(Event& event, const Failure& failure) {
    event["cause"] = failure.id();
    event["text"] = failure.text();
    event["remedy"] = failure.remedy();
    return event;
}

Event Dispatcher::stamped(Event event) const {
    event["at"] = toMilliseconds(now() - mStart);
    return event;
}

void Dispatcher::note(Event event) {
    mEvents.push_back(stamped(std::move(event)));
}

void Dispatcher::tell(Event event) {
    report();
    mReporter.tell(stamped(std::move(event)));
}

void Dispatcher::report() {
    std::deque<Event> events;
    {
        const std::lock_guard lock(mMutex);
        events.swap(mEvents);
    }
    for (const Event& event : events) mReporter.tell(event);
    mReporter.redraw(now() - mStart);
}

}  // namespace twin
