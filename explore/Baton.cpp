#include "explore/Baton.hpp"

#include "explore/Report.hpp"
#include "platform/common/Boundary.hpp"

#include <algorithm>
#include <semaphore>
#include <thread>
#include <utility>

namespace explore {

using simulator::Time;

/// A world that still runs after so many turns runs for ever.
constexpr std::size_t kMostSteps = 100'000;

struct Baton::Flow {
    std::string name;
    std::binary_semaphore turn{0};
    Time until{};  ///< of its wait; the least moment before its first turn
    const std::function<bool()>* isReady = nullptr;
    bool isQuiet = false;  ///< nothing is left that could end its wait
    std::size_t lastTurn = 0;
    std::unique_ptr<simulator::SimulatedRunLoops> loops;  ///< made and released on its own thread
};

thread_local std::shared_ptr<Baton::Flow> Baton::mCurrent;

Baton::Baton(std::uint64_t seed, bool shuffles) : mDice(seed), mShuffles(shuffles) {
    mFlows.push_back(std::make_shared<Flow>());
    mFlows.front()->name = "world";
    mCurrent = mFlows.front();
}

Baton::~Baton() {
    mCurrent->loops.reset();
    mCurrent.reset();
}

void Baton::flow(std::string name, std::function<void()> work) {
    auto flow = std::make_shared<Flow>();
    flow->name = std::move(name) + " " + std::to_string(++mBegun);
    mFlows.push_back(flow);
    std::thread([this, flow, work = std::move(work)]() mutable {
        flow->turn.acquire();
        mCurrent = flow;
        platform::runGuarded(work, "explore", __LINE__);
        work = nullptr;  // what it holds goes in this turn
        flow->loops.reset();
        std::erase(mFlows, flow);
        next()->turn.release();
    }).detach();  // an abandoned one never ends
}

bool Baton::until(const std::function<bool()>& holds) {
    while (!holds()) {
        if (!wait(Time::max(), holds)) return false;
    }
    return true;
}

bool Baton::wait(Time moment, const std::function<bool()>& isReady) {
    Flow& self = *mCurrent;
    self.until = moment;
    self.isReady = &isReady;
    self.lastTurn = mSteps;
    Flow* const other = next();
    if (other != &self) {
        other->turn.release();
        self.turn.acquire();
    }
    self.isReady = nullptr;
    return !std::exchange(self.isQuiet, false);
}

bool Baton::MPDelayUntil(platform::CFAbsoluteTime wakeUp) {
    const Time moment = momentOf(wakeUp);
    while (now() < moment) wait(moment, [] { return false; });
    return true;
}

std::shared_ptr<platform::CFRunLoop> Baton::CFRunLoopGetCurrent() {
    auto& loops = mCurrent->loops;
    if (!loops) loops = std::make_unique<simulator::SimulatedRunLoops>(*this);
    return loops->CFRunLoopGetCurrent();
}

void Baton::join() {
    const auto isAlone = [this] {
        return std::ranges::none_of(mFlows, [](const auto& flow) { return flow->name.starts_with("opening"); });
    };
    if (!until(isAlone)) fail("An opening never ends.");
}

/// Whose turn it is. Has time go on where nobody has anything to do.
Baton::Flow* Baton::next() {
    for (;;) {
        if (++mSteps > kMostSteps) fail("It goes on for ever.");
        if (onStep) onStep();
        std::vector<Flow*> ready;
        auto due = nextDue();
        for (const auto& flow : mFlows) {
            if (flow->until <= now() || (flow->isReady && (*flow->isReady)()))
                ready.push_back(flow.get());
            else
                simulator::bringForward(due, flow->until);
        }
        if (!ready.empty()) {
            Flow* const chosen = mShuffles ? ready[mDice.below(static_cast<unsigned>(ready.size()))]
                                           : *std::ranges::min_element(ready, {}, &Flow::lastTurn);
            trace("turn " + std::to_string(mSteps) + ": " + chosen->name);
            return chosen;
        }
        if (!due || *due == Time::max()) {
            mFlows.front()->isQuiet = true;
            return mFlows.front().get();
        }
        trace("after " + std::to_string((*due - mStart).count()) + " us");
        advanceTo(*due);
    }
}

}  // namespace explore
