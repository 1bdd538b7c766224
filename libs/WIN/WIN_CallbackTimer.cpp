#include "WIN/WIN_CallbackTimer.hpp"

#include "libs/WIN/mac/WINNativeTimer.hpp"

namespace win {

CallbackTimer_t::CallbackTimer_t() : mNativeTimer(std::make_unique<WINNativeTimer_t>(*this)) {}
CallbackTimer_t::~CallbackTimer_t() = default;

void CallbackTimer_t::SetHandler(TimerEventIntf_t& handler) {
    mHandler = &handler;
}

void CallbackTimer_t::OneShot(Duration_t delay) {
    if (mNativeTimer->isTimerRunning()) mNativeTimer->stopTimer();
    mNativeTimer->startTimerWithTimeInterval(delay.Seconds(), false);
}

void CallbackTimer_t::Start(Duration_t period) {
    if (mNativeTimer->isTimerRunning()) mNativeTimer->stopTimer();
    mPeriod = period;
    mNativeTimer->startTimerWithTimeInterval(period.Seconds(), true);
}

void CallbackTimer_t::Stop() {
    mNativeTimer->stopTimer();
}

void CallbackTimer_t::Duration(Duration_t period) {
    if (mNativeTimer->isTimerRunning() && mPeriod != period) Start(period);
}

void CallbackTimer_t::TimerElapsed() {
    if (!mNativeTimer->isTimerRunning()) return;
    if (TimerEventIntf_t* handler = mHandler) handler->HandleTimeout();
}

}  // namespace win
