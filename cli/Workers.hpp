#pragma once

#include <functional>
#include <memory>
#include <vector>

namespace twin {

/// Where openings of devices are done: each blocks, and each belongs to the thread that makes it. Main thread only.
class Workers {
  public:
    virtual ~Workers() = default;

    /// Has the work done beside what else is under way; never inside this call.
    /// @throws std::system_error  no thread is to be had
    virtual void start(std::function<void()> work) = 0;

    virtual void join() = 0;  ///< waits for all of it
};

/// A thread for each.
class ThreadWorkers final : public Workers {
  public:
    ThreadWorkers();
    ~ThreadWorkers() override;
    ThreadWorkers(const ThreadWorkers&) = delete;
    ThreadWorkers& operator=(const ThreadWorkers&) = delete;

    void start(std::function<void()> work) override;
    void join() override;

  private:
    struct Worker;
    std::vector<std::unique_ptr<Worker>> mWorkers;
};

/// One after the other on the calling thread's own run loop: for a world with one thread and simulated time.
class LoopWorkers final : public Workers {
  public:
    void start(std::function<void()> work) override;
    void join() override {}  // nobody waits for what does not run beside him
};

}  // namespace twin
