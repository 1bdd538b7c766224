#include "tests/support/SimulatedWorld.hpp"

#include <algorithm>
#include <utility>

#include "platform/CFRunLoop.hpp"

namespace simulator {
namespace {

std::mutex gLogMutex;
std::vector<std::string> gLog;  // under gLogMutex

void keepLine(const std::string& line) {
    const std::lock_guard lock(gLogMutex);
    gLog.push_back(line);
}

}  // namespace

// ---- ManualQueue

class ManualQueue::Timer final : public platform::NSTimer {
  public:
    Timer(Time due, Duration every, std::function<void()> work) : fires(due), period(every), handler(std::move(work)) {}

    bool isValid() const override { return valid; }
    void invalidate() override { valid = false; }

    Time fires;
    Duration period;  ///< 0 for one shot
    std::function<void()> handler;
    std::atomic<bool> valid{true};
};

ManualQueue::ManualQueue(SimulatedClock& clock) : mClock(clock) {
    clock.add(*this);
}
ManualQueue::~ManualQueue() {
    mClock.remove(*this);
}

bool ManualQueue::drainOne() {
    std::function<void()> block;
    {
        const std::lock_guard lock(mMutex);
        if (mBlocks.empty()) return false;
        block = std::move(mBlocks.front());
        mBlocks.pop_front();
    }
    block();
    return true;
}

std::size_t ManualQueue::drain() {
    std::size_t count = 0;
    while (drainOne()) ++count;
    return count;
}

std::size_t ManualQueue::waiting() const {
    const std::lock_guard lock(mMutex);
    return mBlocks.size();
}

void ManualQueue::dispatch_async(std::function<void()> block) {
    const std::lock_guard lock(mMutex);
    mBlocks.push_back(std::move(block));
}

void ManualQueue::dispatch_sync(const std::function<void()>& block) {
    drain();
    block();
}

std::shared_ptr<platform::NSTimer> ManualQueue::scheduledTimerWithTimeInterval(platform::CFTimeInterval seconds,
                                                                               bool repeats,
                                                                               std::function<void()> handler) {
    const Duration span = SimulatedClock::momentOf(seconds);
    auto timer = std::make_shared<Timer>(mClock.now() + span, repeats ? span : Duration{0}, std::move(handler));
    mTimers.push_back(timer);
    // The handle that the caller gets ends the timer; the queue's own reference only outlives it.
    return {timer.get(), [timer](platform::NSTimer*) { timer->invalidate(); }};
}

std::optional<Time> ManualQueue::nextDue() {
    std::erase_if(mTimers, [](const auto& timer) { return !timer->valid; });
    std::optional<Time> due;
    for (const auto& timer : mTimers) {
        if (!due || timer->fires < *due) due = timer->fires;
    }
    return due;
}

void ManualQueue::run(Time now) {
    for (const auto& timer : std::vector(mTimers)) {
        if (!timer->valid || timer->fires > now) continue;
        const bool repeats = timer->period > Duration{0};
        if (repeats) {
            timer->fires += timer->period;
        } else {
            std::erase(mTimers, timer);
        }
        dispatch_async([timer, repeats] {
            if (!timer->valid) return;
            if (!repeats) timer->valid = false;
            timer->handler();
        });
    }
}

// ---- MemoryDefaults

std::optional<platform::PropertyList> MemoryDefaults::objectForKey(const std::string& key) const {
    const auto found = values.find(key);
    return found == values.end() ? std::nullopt : std::optional(found->second);
}

bool MemoryDefaults::boolForKey(const std::string& key) const {
    const auto value = objectForKey(key);
    const bool* flag = value ? std::get_if<bool>(&value->value) : nullptr;
    return flag ? *flag : integerForKey(key) != 0;
}

std::int64_t MemoryDefaults::integerForKey(const std::string& key) const {
    const auto value = objectForKey(key);
    const auto* number = value ? std::get_if<std::int64_t>(&value->value) : nullptr;
    return number ? *number : 0;
}

platform::PropertyList::Dictionary MemoryDefaults::persistentDomainForName(const std::string& domain) const {
    const auto found = domains.find(domain);
    return found == domains.end() ? platform::PropertyList::Dictionary{} : found->second;
}

bool MemoryDefaults::setPersistentDomain(const platform::PropertyList::Dictionary& contents,
                                         const std::string& domain) {
    domains[domain] = contents;
    return true;
}

// ---- SimulatedWorld

SimulatedWorld::SimulatedWorld(Profile profile, SettingsStore store) : mStart(clock.now()) {
    clock.add(bus);
    bus.addDevice(std::move(profile), std::move(store));
    {
        const std::lock_guard lock(gLogMutex);
        gLog.clear();
    }
    platform::Platform platform;
    platform.clock = &clock;
    platform.runLoops = &loops;
    platform.masterPort = &bus;
    platform.mainQueue = &mainQueue;
    platform.globalQueue = &globalQueue;
    platform.standardUserDefaults = &defaults;
    platform.scriptRunner = &scripts;
    platform.exceptionHandler = &exceptions;
    platform.log = keepLine;
    mScope.emplace(platform);
}

SimulatedWorld::~SimulatedWorld() {
    mScope.reset();
    clock.remove(bus);
}

Device& SimulatedWorld::device(std::size_t port) {
    Device* found = nullptr;
    bus.withDevice(port, [&](Device& device, Time) { found = &device; });
    return *found;
}

std::vector<std::string> SimulatedWorld::log() {
    const std::lock_guard lock(gLogMutex);
    return gLog;
}

void SimulatedWorld::runUntilQuiet(Duration most) {
    const auto loop = loops.CFRunLoopGetCurrent();
    const auto seconds = [](Duration span) { return std::chrono::duration<double>(span).count(); };
    for (const Time end = clock.now() + most;;) {
        if (globalQueue.drainOne() || mainQueue.drainOne()) continue;
        using Result = platform::CFRunLoopRunResult;
        if (loop->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, 0, true) == Result::HandledSource) continue;
        const auto due = clock.nextDue();
        if (!due || *due > end) return;
        if (*due > clock.now()) {
            loop->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, seconds(*due - clock.now()), true);
        }
    }
}

void SimulatedWorld::runFor(Duration span) {
    const Time end = clock.now() + span;
    runUntilQuiet(span);
    clock.advanceTo(end);
    runUntilQuiet(Duration{0});
}

}  // namespace simulator
