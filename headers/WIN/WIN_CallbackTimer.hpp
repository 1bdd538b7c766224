#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "WIN/WIN_Duration.hpp"

#include <atomic>
#include <cstdint>
#include <memory>

class WINNativeTimer_t;

namespace win {

/// Who is told when a callback timer expires.
class TimerEventIntf_t {
  public:
    virtual ~TimerEventIntf_t() = default;

    /// Called on each expiry. It may destroy the timer; what it throws is logged. Callback on the main thread.
    virtual void HandleTimeout() = 0;
};

/// Periodic or deferred work on the main run loop. CallbackTimer_t says what each operation does.
class CallbackTimerIntf_t {
  public:
    virtual ~CallbackTimerIntf_t() = default;
    /// @plain
    /// @{
    virtual void SetHandler(TimerEventIntf_t& handler) = 0;
    virtual void OneShot(Duration_t delay) = 0;
    virtual void Start(Duration_t period) = 0;
    virtual void Stop() = 0;
    virtual void Duration(Duration_t period) = 0;
    /// @}
};

/// The callback timer. Its operations may be called on any thread, one at a time; the handler always runs on the main
/// thread. A handler never runs after Stop() or the destructor when these are called on the main thread; on another
/// thread a call that has begun may still be under way, so destroy a timer there only while it is stopped.
class CallbackTimer_t : public CallbackTimerIntf_t, public glo::NonCopyable_t {
  public:
    CallbackTimer_t();
    ~CallbackTimer_t() override;

    /// Says who is told; without a handler an expiry does nothing.
    /// @param handler  not owned; must outlive this timer
    void SetHandler(TimerEventIntf_t& handler) override;

    /// Expires once. The period that Duration() compares with stays as it is.
    /// @param delay  milliseconds
    void OneShot(Duration_t delay) override;

    /// Expires again and again, anew if it runs.
    /// @param period  milliseconds
    void Start(Duration_t period) override;

    void Stop() override;  ///< nothing when it doesn't run

    /// Restarts a running timer whose period differs; leaves any other alone.
    void Duration(Duration_t period) override;

    /// The native timer's expiry. Callback on the main thread.
    void TimerElapsed();

  private:
    std::unique_ptr<WINNativeTimer_t> mNativeTimer;
    std::atomic<std::uint64_t> mPeriod{0};  ///< milliseconds
    std::atomic<TimerEventIntf_t*> mHandler{nullptr};
};

}  // namespace win
