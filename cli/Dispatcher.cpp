#include "cli/Dispatcher.hpp"

#include "app/TrovikMode/ResetSteps.hpp"
#include "platform/Platform.hpp"
#include "platform/common/Boundary.hpp"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

namespace twin {
namespace {

constexpr double kRedrawInterval = 0.25;

double toMilliseconds(double seconds) {
    return std::round(seconds * 1000) / 1000;
}

}  // namespace

Dispatcher::Dispatcher(Settings settings, Workers& workers, const Journal& journal, Reporter& reporter)
    : mSettings(std::move(settings)),
      mWorkers(workers),
      mJournal(journal),
      mReporter(reporter),
      mLoop(platform::CFRunLoopGetCurrent()),
      mStart(now()) {}

Dispatcher::~Dispatcher() {
    mWorkers.join();
}

// ---- what is asked for

Dispatcher::Job& Dispatcher::add(const Device& device, std::optional<std::uint32_t> unit) {
    const int number = static_cast<int>(mJobs.size()) + 1;
    Job& job = *mJobs.emplace_back(std::make_unique<Job>(number, device, unit, mSettings.plan, *this));
    if (isCancelled()) job.sequence.cancel(now());  // a cancel only reached those that were there
    return job;
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
    if (!mStop.request_stop()) return;
    std::set<std::shared_ptr<UsbGate>> gates;
    {
        const std::lock_guard lock(mMutex);
        gates = mGates;
        for (auto& [id, entry] : mEntries) entry.nextTry = 0;
        for (const auto& job : mJobs) job->sequence.cancel(now());
    }
    for (const auto& gate : gates) gate->close(UsbGate::State::Cancelled);
    wake();
}

void Dispatcher::wake() {
    mLoop->CFRunLoopPerformBlock(platform::kCFRunLoopDefaultMode, [] {});
}

// ---- the loop

void Dispatcher::loopUntil(const std::function<bool()>& isDone, bool looks) {
    for (;;) {
        const Now moment = now();
        if (looks && moment >= mLookout.due()) look(moment);
        advance(moment);
        tellStages();
        report();
        Now due = looks ? mLookout.due() : moment + Lookout::kInterval;
        {
            const std::lock_guard lock(mMutex);
            if (isDone()) return;
            for (const auto& job : mJobs) {
                if (job->begun) due = std::min(due, job->sequence.nextDue(moment));
            }
        }
        if (mReporter.drawsLines()) due = std::min(due, moment + kRedrawInterval);
        // A run of no time at all would only serve what is ready: what is due by now is done in the next turn.
        mLoop->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, std::max(due - now(), 0.001), true);
    }
}

std::vector<Dispatcher::Result> Dispatcher::run() {
    look(now());
    {  // before anything begins, since that has opened what may be waited for
        const std::lock_guard lock(mMutex);
        for (auto& known : mEntries) {
            Entry& entry = known.second;
            const auto isOf = [&](const auto& job) {
                // Known by its unit id, it may have been plugged in once more meanwhile.
                const bool mayBeBack = job->sequence.unit().value_or(0) != 0 && job->device.port == entry.device.port;
                return mayBeBack || job->device.entry == entry.device.entry;
            };
            entry.foreign = !mEach && std::ranges::none_of(mJobs, isOf);
        }
    }
    if (mQuitWanted) startQuitting();
    loopUntil(
        [this] {
            const auto isTold = [](const auto& job) { return job->told; };
            const auto over = static_cast<std::size_t>(std::ranges::count_if(mJobs, isTold));
            if (over < mJobs.size() || mWorking > 0) return false;
            return !mEach || isCancelled() || (mEachCount > 0 && over >= mEachCount);
        },
        true);
    mWorkers.join();
    report();
    const std::lock_guard lock(mMutex);
    std::vector<Result> results;
    for (const auto& job : mJobs) {
        const ResetSequence& sequence = job->sequence;
        results.push_back({job->device, sequence.unit(), sequence.status(), sequence.stateText()});
    }
    return results;
}

void Dispatcher::startQuitting() {
    if (std::exchange(mQuits, true)) return;
    const bool isStarted = start([this] {
        ResetSteps::quitStation(mStop.get_token());
        const std::lock_guard lock(mMutex);
        mHasQuitStation = true;
    });
    const std::lock_guard lock(mMutex);
    if (!isStarted) mHasQuitStation = true;  // best effort
}

void Dispatcher::quitStation() {
    startQuitting();
    const Now end = now() + mSettings.plan.limit(Stage::Quit);
    loopUntil([this, end] { return mHasQuitStation || isCancelled() || now() >= end; }, false);
}

std::vector<Dispatcher::Inspection> Dispatcher::inspect(const std::vector<Device>& devices) {
    std::vector<Inspection> inspections;
    for (const Device& device : devices) inspections.push_back({device, {}, {}});
    for (Inspection& inspection : inspections) {
        const auto gate = std::make_shared<UsbGate>(now() + kOpenLimit, inspection.device.entry.ioId());
        std::shared_ptr<DeviceLock> portLock;
        {
            const std::lock_guard lock(mMutex);
            portLock = isCancelled() ? nullptr : lockFor(inspection.device.port);
            if (portLock) mGates.insert(gate);
        }
        if (!portLock) {
            inspection.failure = isCancelled() ? Failure::cancelled() : lockedByOther();
            continue;
        }
        const bool isStarted = start([this, &inspection, gate, portLock] {
            Identity identity;
            std::optional<Failure> failure;
            {
                DeviceVisit visit(inspection.device.entry.ioPath(), *gate, mSettings.diagnosis);
                failure = visit.open();
                if (!failure) failure = visit.identify(identity);
            }
            const std::lock_guard lock(mMutex);
            mGates.erase(gate);
            if (failure) {
                inspection.failure = failure->at("opening");
            } else {
                inspection.identity = identity;
            }
        });
        if (!isStarted) inspection.failure = Failure{Cause::NoThread, Status::Failed, {}};
    }
    loopUntil([this] { return mWorking == 0; }, false);
    return inspections;
}

std::vector<Device> Dispatcher::waitForDevices(double seconds,
                                               const std::function<bool(const std::vector<Device>&)>& isEnough) {
    const Now end = now() + seconds;
    std::vector<Device> devices;
    loopUntil(
        [&] {
            devices.clear();
            for (const auto& [id, entry] : mEntries) devices.push_back(entry.device);
            std::ranges::sort(devices, {}, &Device::port);
            return isCancelled() || now() >= end || isEnough(devices);
        },
        true);
    return devices;
}

void Dispatcher::watch() {
    loopUntil([this] { return isCancelled(); }, true);
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
        note(noteOf({Cause::NoThread, Status::Failed, error.what()}));
        return false;
    }
    return true;
}

bool Dispatcher::isListUnreadable() const {
    const std::lock_guard lock(mMutex);
    return mRefused;
}

void Dispatcher::look(Now moment) {
    const auto attached = mLookout.look(moment);
    const std::lock_guard lock(mMutex);
    if (!attached) {
        if (!std::exchange(mRefused, true))
            note(noteOf({Cause::AttachesNotSeen, Status::Failed, "The list of devices can't be read."}));
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

// ---- events

void Dispatcher::stageBegan(const ResetSequence& sequence, Stage stage) {
    Event event = stageEvent(sequence, stage, "began");
    event["limit"] = toMilliseconds(sequence.deadline() - sequence.stageBegan());
    note(std::move(event));
    mBegunStages.push_back(stage);
}

void Dispatcher::stageEnded(const ResetSequence& sequence, Stage stage, const Failure* failure) {
    Event event = stageEvent(sequence, stage, failure ? "failed" : "ended");
    event["seconds"] = toMilliseconds(now() - sequence.stageBegan());
    if (failure) describe(event, *failure);
    note(std::move(event));
}

void Dispatcher::tellStages() {
    std::vector<Stage> begun;
    {
        const std::lock_guard lock(mMutex);
        begun.swap(mBegunStages);
    }
    if (mSettings.stageBegan) std::ranges::for_each(begun, mSettings.stageBegan);
}

Event Dispatcher::deviceEvent(const Job& job, const char* kind) {
    Event event{{"event", kind}, {"number", job.number}, {"port", job.device.port}};
    if (const auto unit = job.sequence.unit()) event["unit"] = *unit;
    if (!job.device.product.empty()) event["product"] = job.device.product;
    return event;
}

Event Dispatcher::stageEvent(const ResetSequence& sequence, Stage stage, const char* state) const {
    const auto isOf = [&](const auto& job) { return &job->sequence == &sequence; };
    Event event = deviceEvent(**std::ranges::find_if(mJobs, isOf), "stage");
    event["stage"] = info(stage).name;
    event["state"] = state;
    event["attempt"] = sequence.attempt();
    return event;
}

Event Dispatcher::noteOf(const Failure& failure, const std::string& port, std::uint32_t unit) {
    Event event{{"event", "note"}};
    if (!port.empty()) event["port"] = port;
    if (unit != 0) event["unit"] = unit;
    describe(event, failure);
    return event;
}

void Dispatcher::describe(Event& event, const Failure& failure) {
    event["cause"] = failure.id();
    event["text"] = failure.text();
    event["remedy"] = failure.remedy();
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
