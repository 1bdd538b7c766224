#include "cli/ResetSequence.hpp"

#include <algorithm>
#include <limits>
#include <utility>

namespace twin {

std::array<double, kStages.size()> ResetSequence::Plan::usualLimits() {
    std::array<double, kStages.size()> limits{};
    std::ranges::transform(kStages, limits.begin(), &StageInfo::limit);
    return limits;
}

ResetSequence::ResetSequence(USBRegistryInfo device, std::optional<std::uint32_t> unit, const Plan& plan,
                             Observer& observer)
    : mDevice(std::move(device)), mUnit(unit), mPlan(plan), mObserver(observer) {}

// ---- what happens

void ResetSequence::begin(double now) {
    enter(mPlan.quitsStation ? Stage::Quit : Stage::Reboot, now);
}

void ResetSequence::beginResume(double now) {
    mBoot = Boot::PerhapsHeld;
    mLast = mOnlyResumes = true;
    enter(Stage::Resume, now);
}

void ResetSequence::stationQuit(double now) {
    tick(now);
    if (!isOver() && mStage == Stage::Quit) goOn(now);
}

void ResetSequence::looked(std::span<const USBRegistryInfo> attached, double now) {
    if (isOver()) return;
    const auto found = std::ranges::find(attached, mDevice.ioId(), &USBRegistryInfo::ioId);
    mPresent = found != attached.end();
    if (mPresent || mVisited) return;
    if (mStage == Stage::Gone) return goOn(now);
    if (mStage == Stage::IdentifiedAgain && now < mBackLimit) stepFailed(itLeft(), now);
}

void ResetSequence::tick(double now) {
    // What is done over a link has the same limit and ends by itself.
    if (isOver() || mVisited || now < mDeadline) return;
    switch (mStage) {
        case Stage::Gone:
            return stepFailed(timeUp(), now);
        case Stage::Resume:
            return stepFailed(mOpenFailure.value_or(timeUp()), now);
        case Stage::BackAgain:
        case Stage::IdentifiedAgain:
        case Stage::Quit:
        case Stage::Reboot:
        case Stage::Back:  // there is no device that could be told to reboot
        case Stage::Hold:
        case Stage::Clear:
            return giveUp(mOpenFailure.value_or(timeUp()), now);
    }
}

void ResetSequence::cancel(double now) {
    if (isOver()) return;
    mCancelled = true;
    if (mLast) mDeadline = std::min(mDeadline, now + kResumeLimit);
    // Whoever has the device open is cut off, and says so by stepEnded.
    if (mVisited || mLast) return;
    const Failure cancelled = Failure::cancelled();
    if (mStageIsOpen) leave(&cancelled);
    letStartOrFinish(now);
}

void ResetSequence::refuse(const Failure& failure) {
    if (isOver()) return;
    mFailure = failure;
    leave(&failure);
    finish(failure.status);
}

// ---- opening an entry

bool ResetSequence::wants(const USBRegistryInfo& entry, std::optional<std::uint32_t> unit, double now) const {
    if (isOver() || mVisited || !mStageIsOpen) return false;
    const bool isOwn = entry.ioId() == mDevice.ioId();
    if (unit && mUnit && *unit != *mUnit) return false;
    // One that reports no unit id is known by its port alone.
    if (!isOwn && mUnit.value_or(0) == 0 && entry.ioPath() != mDevice.ioPath()) return false;
    switch (mStage) {
        case Stage::Reboot:
            // What was chosen by its port alone is this very attach: another may be another device.
            return isOwn || mBoot != Boot::Untouched || mUnit.value_or(0) != 0;
        case Stage::Resume:
            return isOwn || mUnit;  // nor is it known who was there, before it has been opened once
        case Stage::Gone:
        case Stage::Back:
            return !isOwn;
        case Stage::BackAgain:
            return !isOwn || (!isHeld() && now >= mBegan + kSettle);
        case Stage::IdentifiedAgain:
            return true;
        case Stage::Quit:
        case Stage::Hold:
        case Stage::Clear:
            return false;
    }
    return false;
}

bool ResetSequence::offered(const USBRegistryInfo& entry, std::uint32_t unit, double now) {
    if (!wants(entry, unit, now)) return false;
    mVisited = true;
    mPresent = true;
    mUnit = mUnit.value_or(unit);
    mDevice = entry;
    if (mStage == Stage::Gone) goOn(now);  // it came back before anybody saw that it had left
    if (mStage == Stage::Back) {
        goOn(now);
    } else if (mStage == Stage::BackAgain) {
        leave();
        // What nobody has let start yet may have come back only because its cable was out.
        enter(isHeld() ? Stage::Resume : Stage::IdentifiedAgain, now);
    }
    return true;
}

void ResetSequence::openFailed(const USBRegistryInfo& entry, const Failure& failure, double now) {
    if (isOver() || mVisited || entry.ioPath() != mDevice.ioPath()) return;
    const Failure named = failure.at(info(mStage).name);
    keepReason(named);
    const bool isOwn = entry.ioId() == mDevice.ioId();
    if (mStage == Stage::Reboot && mBoot == Boot::Untouched && isOwn) stepFailed(named, now);
}

std::optional<Stage> ResetSequence::step() const {
    if (isOver() || !mVisited) return std::nullopt;
    return mStage;
}

void ResetSequence::stepSent() {
    mSent = true;  // and the device has just said who it is
    if (mClear == Clear::Sent && mDevice.ioId() == mClearedEntry) mClear = Clear::Done;
    if (mStage == Stage::Hold) mBoot = Boot::PerhapsHeld;
}

void ResetSequence::stepEnded(const std::optional<Failure>& failure, double now) {
    if (isOver()) return;
    const bool sent = std::exchange(mSent, false);
    const bool makesItLeave = info(mStage).step && info(mStage).step->makesItLeave;
    // Nothing comes after the very last step that would show whether the command has arrived.
    const bool isLastWord = mLast && mStage == Stage::Resume;
    if (failure && (isLastWord || !(sent && failure->disconnected && makesItLeave))) {
        if (sent && mStage == Stage::Resume) mBoot = Boot::PerhapsHeld;
        // What was cut off may have arrived all the same.
        const bool isCut = sent && (failure->status == Status::Cancelled || failure->status == Status::TimedOut);
        if (isCut && mStage == Stage::Reboot && mBoot == Boot::Untouched) mBoot = Boot::Rebooting;
        if (isCut && mStage == Stage::Clear) {
            mClear = Clear::Sent;
            mClearedEntry.reset();
        }
        return stepFailed(failure->at(info(mStage).name), now);
    }
    if (makesItLeave) mVisited = false;
    std::optional<double> limit;
    switch (mStage) {
        case Stage::Reboot:
            // The command has no answer, and the cable may be why it leaves. What was held may be held until it is
            // back.
            mBoot = isHeld() ? Boot::PerhapsHeld : Boot::Rebooting;
            break;
        case Stage::Hold:
            mBoot = Boot::Held;
            break;
        case Stage::Clear:
            mClear = Clear::Sent;
            mClearedEntry = mDevice.ioId();
            break;
        case Stage::Resume:
            // The cable may have come out in the moment in which the command left.
            mBoot = failure ? Boot::PerhapsHeld : Boot::Started;
            if (failure) limit = backLimit(now);
            if (!mLast) break;
            leave();
            return finish(mFailure ? mFailure->status : mCancelled ? Status::Cancelled : Status::Done);
        case Stage::IdentifiedAgain:
            mBoot = Boot::Back;
            leave();
            return finish(Status::Done);
        case Stage::Quit:
        case Stage::Gone:
        case Stage::Back:
        case Stage::BackAgain:
            break;  // nothing of these is done over a link
    }
    goOn(now, limit);
    // A cancel that came too late for this step.
    if (mCancelled && !mVisited) cancel(now);
}

// ---- failures

void ResetSequence::stepFailed(const Failure& failure, double now) {
    mVisited = false;
    const bool isResume = mStage == Stage::Resume, isLast = mStage == Stage::IdentifiedAgain;
    if (isLast) keepReason(failure);
    if (isLast && !mCancelled && !failure.disconnected && now < mDeadline)
        return;  // it is opened again until the limit is over
    leave(&failure);
    if (mCancelled || mLast) {
        // The cancel, which comes once, cut the very resume that lets the device start: that is done anew.
        if (mLast && isResume && failure.status == Status::Cancelled) mLast = false;
        if (mLast && isResume) {
            if (!mFailure && !mCancelled) mFailure = failure;
            return finish(mFailure ? mFailure->status : Status::Cancelled);
        }
        return letStartOrFinish(now);
    }
    if (isResume) {
        if (mResumes++ < mPlan.retries) return enter(Stage::Resume, now);
        mFailure = failure;
        // Nothing is cleared again; somebody may switch it off and on.
        return enter(Stage::BackAgain, now, backLimit(now));
    }
    // It only leaves now, to start: the wait for its return goes on.
    if (isLast && failure.disconnected && now < mBackLimit) return enter(Stage::BackAgain, now, mBackLimit - now);
    if (isLast) return giveUp(*mOpenFailure, now);
    if (mAttempt > mPlan.retries) return giveUp(failure, now);
    ++mAttempt;
    mEarlierFailure = failure;
    enter(Stage::Reboot, now);
}

void ResetSequence::giveUp(const Failure& failure, double now) {
    mFailure = failure;
    if (mStageIsOpen) leave(&failure);
    if (mLast) return finish(mFailure->status);
    letStartOrFinish(now);
}

/// The end, but for a device that waits in its boot loader.
void ResetSequence::letStartOrFinish(double now) {
    if (isHeld() && mPresent && !mLast) {
        mLast = true;
        return enter(Stage::Resume, now, kResumeLimit);
    }
    finish(mCancelled ? Status::Cancelled : mFailure ? mFailure->status : Status::Failed);
}

void ResetSequence::finish(Status status) {
    if (status == Status::Done && mClear == Clear::Sent) {
        status = Status::Failed;
        mFailure = {Cause::Disconnected, status, "It left right after the clear command.", true};
    }
    if (status != Status::Done && !mCancelled && cleared()) {
        status = Status::NotSeenAgain;
        if (mFailure) mFailure->status = status;
    }
    mStatus = mCancelled ? Status::Cancelled : status;
    if (status == Status::Done) mFailure.reset();
    mVisited = false;
}

void ResetSequence::enter(Stage stage, double now, std::optional<double> limit) {
    mStage = stage;
    mStageIsOpen = true;
    mOpenFailure.reset();
    mBegan = now;
    mDeadline = now + limit.value_or(mPlan.limit(stage));
    if (stage == Stage::BackAgain) mBackLimit = mDeadline;
    mObserver.stageBegan(*this, stage);
}

void ResetSequence::goOn(double now, std::optional<double> limit) {
    leave();
    enter(static_cast<Stage>(static_cast<std::size_t>(mStage) + 1), now, limit);
}

void ResetSequence::leave(const Failure* failure) {
    if (std::exchange(mStageIsOpen, false)) mObserver.stageEnded(*this, mStage, failure);
}

void ResetSequence::keepReason(const Failure& failure) {
    if (!mOpenFailure || failure.status != Status::TimedOut) mOpenFailure = failure;
}

Failure ResetSequence::itLeft() const {
    return Failure{Cause::Disconnected, Status::Failed, {}, true}.at(info(mStage).name);
}

Failure ResetSequence::timeUp() const {
    if (mStage == Stage::Reboot && !mPresent) return mEarlierFailure.value_or(itLeft());
    const bool waits = mStage == Stage::Back || mStage == Stage::BackAgain || mStage == Stage::IdentifiedAgain;
    const Cause cause = mStage == Stage::Quit ? Cause::HeldByProgram : waits ? Cause::DidNotComeBack : Cause::TimedOut;
    return Failure{cause, Status::TimedOut, "The limit has passed."}.at(info(mStage).name);
}

std::optional<double> ResetSequence::backLimit(double now) const {
    return mBackLimit > 0 ? std::optional(mBackLimit - now) : std::nullopt;
}

double ResetSequence::nextDue(double now) const {
    if (isOver() || mVisited) return std::numeric_limits<double>::infinity();
    const double settled = mBegan + kSettle;
    return mStage == Stage::BackAgain && now < settled ? std::min(mDeadline, settled) : mDeadline;
}

std::string ResetSequence::stateText() const {
    std::string store = mOnlyResumes            ? "Its settings were left alone"
                        : cleared()             ? "Its settings are cleared"
                        : mClear == Clear::Sent ? "Whether its settings are cleared is not known"
                                                : "Its settings are as they were";
    switch (mBoot) {
        case Boot::Untouched:
            return "The device was not touched.";
        case Boot::Rebooting:
            return store + "; it was told to reboot and starts by itself.";
        case Boot::PerhapsHeld:
            return store + "; it may be waiting in its boot loader: \"trovik-reset resume\" lets it start.";
        case Boot::Held:
            return store + "; it waits in its boot loader: \"trovik-reset resume\" lets it start.";
        case Boot::Started:
            return store + "; it was told to start.";
        case Boot::Back:
            return store + " and it has started.";
    }
    return store;
}

}  // namespace twin
