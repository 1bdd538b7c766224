#include "simulator/engine/Device.hpp"

namespace simulator {
namespace {

/// Whether a moment has come; it is none any more then.
bool hasCome(std::optional<Time>& due, Time now) {
    if (!due || *due > now) return false;
    due.reset();
    return true;
}

}  // namespace

Device::Device(Profile profile, SettingsStore store) : mProfile(std::move(profile)), mStore(std::move(store)) {}

// ---- the bus

void Device::attached(Time now) {
    mAttached = true;
    dropTraffic();
    note(RecordEntry::Kind::State, "attached", now);
    for (const auto& fault : strike({FaultStep::At::Attach, {}, {}, {}, mState, {}}, now)) {
        if (fault.kind == FaultKind::Unplug) unplugLater(fault, now);
        if (fault.kind == FaultKind::Stall) halt(fault.pipe.value_or(Pipe::InterruptIn));
    }
}

void Device::detached(Time now) {
    mAttached = false;
    dropTraffic();
    note(RecordEntry::Kind::State, "detached", now);
    // Counted from here and not from the wish: a plug-in that is slow to follow does not shorten the time off the bus.
    if (mAway) mReturnAt = now + timeAway();
    if (!mCable && mReplugAfter) mReplugAt = now + *mReplugAfter;
    mReplugAfter.reset();
}

// A real device's endpoints start afresh with every choice of the configuration, the same one included: what an earlier
// host left unread never reaches the next.
void Device::configured(Time) {
    dropTraffic();
}

void Device::dropTraffic() {
    mSession = false;
    for (auto& queue : mIn) queue.clear();
    mScheduled.clear();
    mGathered.clear();
    mOversize = false;
    mOutHalted = false;
    mOutBusyUntil.reset();
    mMetFaults = false;
    mPacketFaults.clear();
}

std::optional<Time> Device::nextDue() const {
    std::optional<Time> due;
    if (!mScheduled.empty()) due = mScheduled.begin()->first;
    // A packet that is never to be taken is no event to wait for.
    if (mOutBusyUntil != Time::max()) bringForward(due, mOutBusyUntil);
    for (const auto* moment : {&mLeaveAt, &mReturnAt, &mWindowEnds, &mUnplugAt, &mReplugAt}) bringForward(due, *moment);
    return due;
}

void Device::advance(Time now) {
    // In the order in which things are due, each at its own moment, however late this call comes.
    for (auto due = nextDue(); due && *due <= now; due = nextDue()) {
        const Time moment = *due;
        if (!mScheduled.empty() && mScheduled.begin()->first <= moment) {
            const auto outgoing = mScheduled.extract(mScheduled.begin());
            leave(outgoing.mapped(), moment);
        } else if (hasCome(mOutBusyUntil, moment)) {
            continue;  // the packet is taken when it is offered again
        } else if (hasCome(mLeaveAt, moment)) {
            goAway(moment);
        } else if (hasCome(mReturnAt, moment)) {
            comeBack(moment);
        } else if (hasCome(mWindowEnds, moment)) {
            if (mState == BootState::Starting) setBootState(BootState::Running, moment);
        } else if (hasCome(mUnplugAt, moment)) {
            pullCable(mReplugAfter, moment);
        } else if (hasCome(mReplugAt, moment)) {
            setCable(true, moment);
        }
    }
}

void Device::goAway(Time now) {
    mAway = true;
    // With the cable out there is nothing to leave: the reboot simply goes on.
    if (!mAttached) mReturnAt = now + timeAway();
}

void Device::comeBack(Time now) {
    mAway = false;
    if (std::exchange(mBoots, false)) return setBootState(BootState::Running, now);
    setBootState(BootState::Starting, now);
    if (mProfile.bootWindow) mWindowEnds = now + *mProfile.bootWindow;
}

void Device::setCable(bool in, Time now) {
    // A hand at the cable overrules what a fault still had in mind.
    mUnplugAt.reset();
    mReplugAt.reset();
    mReplugAfter.reset();
    if (mCable == in) return;
    mCable = in;
    note(RecordEntry::Kind::State, in ? "cable in" : "cable out", now);
}

void Device::pullCable(std::optional<Duration> comesBack, Time now) {
    setCable(false, now);
    mReplugAfter = comesBack;
    if (!mAttached && comesBack) mReplugAt = now + *comesBack;
}

void Device::unplugLater(const Fault& fault, Time now) {
    mReplugAfter = fault.comesBack;
    mUnplugAt = now + fault.delay.value_or(Duration{0});
}

void Device::halt(Pipe pipe) {
    if (pipe == Pipe::BulkOut) {
        mOutHalted = true;
    } else {
        in(pipe).emplace_back(std::nullopt);
    }
}

void Device::setBootState(BootState state, Time now) {
    if (mState == state) return;
    mState = state;
    note(RecordEntry::Kind::State, bootStateName(state), now);
}

platform::IOReturn Device::failure(BusOperation operation, Time now) {
    if (mFaults.size() == 0) return platform::kIOReturnSuccess;
    for (const auto& fault : strike({FaultStep::At::Operation, {}, {}, {}, mState, operation}, now)) {
        if (fault.kind == FaultKind::FailOperation) return fault.result;
    }
    return platform::kIOReturnSuccess;
}

Bytes Device::takePacket(Pipe pipe) {
    auto& queue = in(pipe);
    Bytes packet = std::move(*queue.front());
    queue.pop_front();
    return packet;
}

void Device::clearHalt(Pipe pipe) {
    if (pipe == Pipe::BulkOut) {
        mOutHalted = false;
    } else if (halted(pipe)) {
        in(pipe).pop_front();
    }
}

// ---- the record

std::vector<Fault> Device::strike(const FaultList::Moment& moment, Time now) {
    auto faults = mFaults.commit(moment);
    for (const auto& fault : faults) note(RecordEntry::Kind::Fault, fault.name, now);
    return faults;
}

void Device::refuse(std::string reason, std::span<const unsigned char> bytes, Time now) {
    mRecord.add({RecordEntry::Kind::Refused, now, Pipe::BulkOut, Bytes(bytes.begin(), bytes.end()), std::move(reason)});
}

void Device::note(RecordEntry::Kind kind, std::string text, Time now) {
    mRecord.add({kind, now, Pipe::BulkOut, {}, std::move(text)});
}

}  // namespace simulator
