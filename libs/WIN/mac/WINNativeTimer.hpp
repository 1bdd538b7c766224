#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

namespace platform {
class NSTimer;
}

namespace win {
class CallbackTimer_t;
}

/// At most one system timer on the main run loop, for the callback timer that owns this. Any thread but for the
/// destructor, which runs on the main thread or while no timer runs.
class WINNativeTimer_t {
  public:
    explicit WINNativeTimer_t(win::CallbackTimer_t& callback);  ///< the callback timer outlives this
    ~WINNativeTimer_t();
    WINNativeTimer_t(const WINNativeTimer_t&) = delete;
    WINNativeTimer_t& operator=(const WINNativeTimer_t&) = delete;

    /// Ends the previous system timer and starts another.
    void startTimerWithTimeInterval(double seconds, bool repeats);

    /// True from the start until stopped; a timer that does not repeat runs until its callback has returned.
    bool isTimerRunning() const;
    void stopTimer();

    /// The callback timer's expiry, if this runs. The handler may destroy both timers. Callback on the main thread.
    void runCallback();

  private:
    void Fired(std::uint64_t generation, bool repeats);

    win::CallbackTimer_t& mCallback;
    const std::shared_ptr<void> mSelf = std::make_shared<char>();  ///< tells an expiry under way that this is gone
    mutable std::mutex mLock;                                      ///< guards all below
    std::shared_ptr<platform::NSTimer> mTimer;                     ///< null while being made, although it runs already
    bool mIsRunning = false;
    std::uint64_t mGeneration =
        0;  ///< counts starts: an expiry of an earlier timer that is still on its way is dropped
};
