#include "cli/Scenario.hpp"

#include "platform/CFRunLoop.hpp"
#include "platform/IOReturn.hpp"
#include "platform/Platform.hpp"
#include "platform/common/IOServiceList.hpp"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

namespace twin {

bool ScenarioScripts::executeAndReturnError(const std::string&, const std::stop_token& stop) {
    constexpr std::string_view kMode = "companion quits";
    const auto loop = platform::CFRunLoopGetCurrent();
    const std::stop_callback wakes(stop, [&] { loop->CFRunLoopPerformBlock(kMode, [] {}); });
    loop->CFRunLoopRunInMode(kMode, std::chrono::duration<double>(mTakes).count(), true);
    return !stop.stop_requested();
}

platform::IOReturn ScenarioRegistry::IOServiceAddMatchingNotification(
    platform::IONotificationPort& port, const std::string& type, const platform::MatchingDictionary& matching,
    platform::IOServiceMatchingCallback callback, void* refCon, std::unique_ptr<platform::IOIterator>& iterator) {
    if (mTells == BusTells::Refuses) return platform::kIOReturnError;
    if (mTells == BusTells::Nothing || (mTells == BusTells::ArrivalsOnly && type == platform::kIOServiceTerminate)) {
        iterator = std::make_unique<platform::IOServiceList>(std::vector<std::unique_ptr<platform::IOService>>());
        return platform::kIOReturnSuccess;
    }
    if (mTells == BusTells::AllTwice) {
        std::unique_ptr<platform::IOIterator> extra;
        const auto result = mInner.IOServiceAddMatchingNotification(port, type, matching, callback, refCon, extra);
        if (result != platform::kIOReturnSuccess) return result;
        while (extra->IOIteratorNext()) {
        }
    }
    return mInner.IOServiceAddMatchingNotification(port, type, matching, callback, refCon, iterator);
}

ScenarioWorld::ScenarioWorld(const Scenario& scenario, simulator::Drive& drive)
    : mDrive(drive), mBus(drive), mRegistry(mBus, scenario.tells) {
    std::vector<std::size_t> plugged;
    for (const ScenarioDevice& device : scenario.devices) {
        const std::size_t port = mBus.addDevice(device.profile);
        mBus.withDevice(port, [&](simulator::Device& simulated, simulator::Time now) {
            for (const auto& fault : device.faults) simulated.addFault(fault);
            simulated.setBootState(device.state, now);
        });
        if (device.plugged) plugged.push_back(port);
    }
    mBus.plug(plugged);
    for (const Cue& cue : scenario.cues) {
        if (cue.stage) {
            mWaiting.push_back(cue);
        } else {
            mPending.emplace(drive.now() + cue.after, cue);
        }
    }
}

void ScenarioWorld::setCancel(std::function<void()> cancel) {
    const std::lock_guard lock(mCancelMutex);
    mCancel = std::move(cancel);
}

void ScenarioWorld::stageBegan(Stage stage) {
    {
        const std::lock_guard lock(mMutex);
        const auto ofStage = [&](const Cue& cue) { return cue.stage == stage; };
        for (const Cue& cue : mWaiting) {
            if (ofStage(cue)) mPending.emplace(mDrive.now() + cue.after, cue);
        }
        std::erase_if(mWaiting, ofStage);
    }
    mDrive.dueChanged();
}

std::optional<simulator::Time> ScenarioWorld::nextDue() {
    auto due = mBus.nextDue();
    const std::lock_guard lock(mMutex);
    if (!mPending.empty()) simulator::bringForward(due, mPending.begin()->first);
    return due;
}

void ScenarioWorld::run(simulator::Time now) {
    mBus.run(now);
    for (;;) {
        Cue cue;
        {
            const std::lock_guard lock(mMutex);
            if (mPending.empty() || mPending.begin()->first > now) return;
            cue = mPending.extract(mPending.begin()).mapped();
        }
        switch (cue.what) {
            case Cue::What::Plug:
                mBus.plug(cue.device);
                break;
            case Cue::What::Unplug:
                mBus.unplug(cue.device);
                break;
            case Cue::What::Cancel: {
                const std::lock_guard lock(mCancelMutex);  // so that what it calls into is still there
                if (mCancel) mCancel();
                break;
            }
        }
    }
}

const Scenario* scenarioNamed(std::string_view name) {
    const auto found = std::ranges::find(scenarios(), name, &Scenario::name);
    return found == scenarios().end() ? nullptr : &*found;
}

}  // namespace twin
