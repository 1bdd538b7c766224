#include "cli/Workers.hpp"

#include "platform/CFRunLoop.hpp"
#include "platform/Platform.hpp"
#include "platform/common/Boundary.hpp"

#include <atomic>
#include <memory>
#include <thread>
#include <utility>

namespace twin {

struct ThreadWorkers::Worker {
    std::atomic<bool> isDone = false;
    std::thread thread;
};

ThreadWorkers::ThreadWorkers() = default;
ThreadWorkers::~ThreadWorkers() {
    ThreadWorkers::join();
}

void ThreadWorkers::start(std::function<void()> work) {
    std::erase_if(mWorkers, [](const auto& worker) {
        if (!worker->isDone) return false;
        worker->thread.join();  // it has nothing left to do
        return true;
    });
    auto worker = std::make_unique<Worker>();
    worker->thread = std::thread([work = std::move(work), self = worker.get()] {
        platform::runGuarded(work, "trovik-reset", __LINE__);
        self->isDone = true;
    });
    mWorkers.push_back(std::move(worker));
}

void ThreadWorkers::join() {
    for (const auto& worker : std::exchange(mWorkers, {})) worker->thread.join();
}

void LoopWorkers::start(std::function<void()> work) {
    platform::CFRunLoopGetCurrent()->CFRunLoopPerformBlock(platform::kCFRunLoopDefaultMode, std::move(work));
}

}  // namespace twin
