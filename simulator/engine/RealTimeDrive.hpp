#pragma once

#include "simulator/engine/Types.hpp"

#include <condition_variable>
#include <mutex>
#include <stop_token>
#include <thread>

namespace simulator {

/// Drives a bus in real time, with one thread of its own that sleeps until something is due and is never woken without
/// need: a device with nothing to do costs nothing. Owned by whoever owns the bus; start, requestStop and join are
/// three steps, in that order, on the owner's thread.
class RealTimeDrive final : public Drive {
  public:
    RealTimeDrive() = default;
    ~RealTimeDrive() override = default;  ///< stops and joins if that has not been done
    RealTimeDrive(const RealTimeDrive&) = delete;
    RealTimeDrive& operator=(const RealTimeDrive&) = delete;

    /// @param work  must live until join()
    void start(TimedWork& work);
    void requestStop() { mThread.request_stop(); }
    void join() {
        if (mThread.joinable()) mThread.join();
    }

    Time now() override;
    void dueChanged() override;

  private:
    void run(const std::stop_token& stop, TimedWork& work);

    std::mutex mMutex;
    std::condition_variable_any mWake;
    bool mChanged = false;  ///< under mMutex
    std::jthread mThread;   ///< last: it uses the others until it is joined
};

}  // namespace simulator
