// The dispatcher's openings of devices: which entry is opened for whom, and what is done over the link.
#include "cli/Dispatcher.hpp"
#include "platform/common/Boundary.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace twin {

Failure Dispatcher::lockedByOther() {
    return {Cause::HeldByProgram, Status::OtherRun, "Another run works on the device."};
}

void Dispatcher::begin(Job& job, Now moment) {
    job.begun = true;
    auto lock = lockFor(job.device.port);
    if (!lock) return job.sequence.refuse(lockedByOther());
    job.locks.push_back(std::move(lock));
    if (job.resumes) return job.sequence.beginResume(moment);
    job.sequence.begin(moment);
}

bool Dispatcher::takesMore() const {
    return mEach && !isCancelled() && (!mSettings.plan.quitsStation || mHasQuitStation) &&
           (mEachCount == 0 || mJobs.size() < mEachCount);
}

void Dispatcher::startVisits(Now moment) {
    std::vector<Visit> visits;
    {
        const std::lock_guard lock(mMutex);
        for (auto& [id, entry] : mEntries) {
            if (entry.visited || entry.foreign || moment < entry.nextTry) continue;
            Now deadline = takesMore() && !entry.unit ? moment + kOpenLimit : moment;
            for (const auto& job : mJobs) {
                if (!isAnothers(*job, entry.device) && job->begun &&
                    job->sequence.wants(entry.device.entry, entry.unit, moment))
                    deadline = std::max(deadline, std::min(job->sequence.deadline(), moment + kOpenLimit));
            }
            if (!(deadline > moment)) continue;
            // Who has the lock waits for this very device, perhaps in its boot loader, and must not find it open.
            auto portLock = lockFor(entry.device.port);
            entry.nextTry = moment + Lookout::kInterval;
            if (!portLock) continue;
            entry.visited = true;
            auto gate = std::make_shared<UsbGate>(deadline, id);
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
            // What the cancel cut is opened again at once; what fails by itself, only after a pause.
            const bool isCut = planned.gate->state() == UsbGate::State::Cancelled;
            if (!entry->second.failure || isCut) entry->second.nextTry = 0;
        };
        const bool isStarted = start([this, end, planned] {
            platform::runGuarded([&] { visit(planned); }, kSourceFile, __LINE__);
            end();  // now that it is closed it can be opened again
        });
        if (isStarted) continue;
        end();
        openFailed(planned.device, Failure{Cause::NoThread, Status::Failed, {}});
    }
}

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
    entry.nextTry = now() + (isCancelled() ? Lookout::kShortestInterval : Lookout::kInterval);
    if (!entry.failure || entry.failure->cause != failure.cause) {
        note(noteOf(failure, device.port));
    }
    entry.failure = failure;
    for (const auto& job : mJobs) {
        if (job->begun) job->sequence.openFailed(device.entry, failure, now());
    }
}

Dispatcher::Job* Dispatcher::offer(const Visit& planned, std::uint32_t unit) {
    if (planned.gate->state() != UsbGate::State::Open) return nullptr;
    const std::lock_guard lock(mMutex);
    const Device& device = planned.device;
    const auto found = mEntries.find(device.entry.ioId());
    if (found != mEntries.end()) {
        found->second.unit = unit;
        found->second.failure.reset();
    }
    const auto takes = [&](const auto& job) {
        if (isAnothers(*job, device) || !job->begun || !job->sequence.wants(device.entry, unit, now())) return false;
        job->device = device;  // first, since taking it tells of a stage
        return job->sequence.offered(device.entry, unit, now());
    };
    auto taker = std::ranges::find_if(mJobs, takes);
    if (taker == mJobs.end() && mEach && unit != 0 && mDoneUnits.contains(unit)) {
        note({{"event", "note"}, {"port", device.port}, {"unit", unit}, {"text", "It has been done; it is skipped."}});
        return nullptr;
    }
    const auto isBegun = [&](const auto& job) { return job->sequence.unit() == unit && !job->sequence.isOver(); };
    if (taker == mJobs.end() && takesMore() && (unit == 0 || std::ranges::none_of(mJobs, isBegun))) {
        add(device, unit);  // it begins when its turn comes, with an opening of its own
        return nullptr;
    }
    if (taker == mJobs.end()) {
        note({{"event", "note"},
              {"port", device.port},
              {"unit", unit},
              {"text", "It is not a device that is waited for; it was let go of untouched."}});
        return nullptr;
    }
    Job& job = **taker;
    job.locks.push_back(planned.portLock);  // it may have come back under another port
    if (!lockUnit(job)) return nullptr;
    if (job.sequence.boot() == ResetSequence::Boot::Untouched && mJournal.has({device.port, unit}))
        job.sequence.wasLeftHeld();  // it is this run's to let start now
    return &job;
}

bool Dispatcher::isAnothers(const Job& job, const Device& device) const {
    return std::ranges::any_of(mJobs, [&](const auto& other) {
        return other.get() != &job && !other->sequence.isOver() && other->device.entry == device.entry;
    });
}

bool Dispatcher::lockUnit(Job& job) {
    const std::uint32_t unit = job.sequence.unit().value_or(0);
    if (unit == 0 || std::exchange(job.hasUnitLock, true)) return true;
    auto lock = lockFor(unitLock(unit));
    const bool isMine = lock != nullptr;
    if (!isMine) job.sequence.refuse(lockedByOther());
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
    std::optional<Stage> step;
    double deadline = 0;
    const auto isHeld = [&] {
        const auto boot = job.sequence.boot();
        return boot == ResetSequence::Boot::Held || boot == ResetSequence::Boot::PerhapsHeld;
    };
    const auto takeNext = [&] {  // under mMutex
        step = job.sequence.step();
        deadline = job.sequence.deadline();
    };
    Journal::Entry entry;
    {
        const std::lock_guard lock(mMutex);
        takeNext();
        entry = {job.device.port, job.sequence.unit().value_or(0)};
    }
    while (step) {
        std::optional<Failure> failure;
        try {
            tellStages();
            if (*step == Stage::Hold) noteHeld(entry);  // before the command: a kill may come right after it
            failure = visit.run(*step, deadline, [&] {
                const std::lock_guard lock(mMutex);
                job.sequence.stepSent();
            });
        } catch (...) {  // the sequence would wait for this step's end for good
            platform::logCaughtException(kSourceFile, __LINE__);
            failure = Failure{Cause::InternalError, Status::Failed, {}};
        }
        {
            // In one go: once its link is given up, the device may be offered to another worker, whose steps are not
            // taken here, and whose note in the journal must not be struck out.
            const std::lock_guard lock(mMutex);
            const auto known = mEntries.find(job.device.entry.ioId());
            if (failure && *step == Stage::IdentifiedAgain && known != mEntries.end()) {
                known->second.failure = failure;  // like an opening that fails, it is tried again after a pause
                known->second.nextTry = now() + Lookout::kInterval;
            }
            job.sequence.stepEnded(failure, now());
            if (!isHeld()) mJournal.released(entry);
            takeNext();
        }
        wake();
    }
    tellStages();
}

void Dispatcher::noteHeld(const Journal::Entry& entry) {
    if (mJournal.held(entry)) return;
    Event event{{"event", "note"}, {"port", entry.port}};
    if (entry.unit) event["unit"] = entry.unit;
    event["text"] = "That it is held can't be written down: if this run is killed, the next one will not know of it.";
    const std::lock_guard lock(mMutex);
    note(std::move(event));
}

}  // namespace twin
