#include "simulator/world/SimulatedWorld.hpp"

#include "platform/CFRunLoop.hpp"

#include <mutex>
#include <utility>

namespace simulator {
namespace {

std::mutex gLogMutex;
std::vector<std::string> gLog;  // under gLogMutex

void keepLine(const std::string& line) {
    const std::lock_guard lock(gLogMutex);
    gLog.push_back(line);
}

}  // namespace

SimulatedWorld::SimulatedWorld(Profile profile, platform::NSBundle* bundle)
    : mStart(clock.now()),
      mScope({.clock = &clock,
              .runLoops = &loops,
              .masterPort = &bus,
              .mainQueue = &mainQueue,
              .globalQueue = &globalQueue,
              .mainBundle = bundle,
              .standardUserDefaults = &defaults,
              .scriptRunner = &scripts,
              .exceptionHandler = &exceptions,
              .log = keepLine}) {
    clock.add(bus);
    bus.addDevice(std::move(profile));
    const std::lock_guard lock(gLogMutex);
    gLog.clear();
}

SimulatedWorld::~SimulatedWorld() {
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
