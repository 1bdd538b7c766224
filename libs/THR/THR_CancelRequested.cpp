#include "THR/THR_CancelRequested.hpp"

#include "GLO/GLO_Assert.hpp"
#include "platform/Clock.hpp"
#include "platform/Platform.hpp"

#include <type_traits>
#include <utility>

namespace thr {
namespace {

constexpr char gcFile[] = "libs/THR/THR_CancelRequested";

/// Sleeps until a moment that is fixed once, so that nothing that wakes the thread early stretches the wait.
int SleepFor(win::Duration_t duration) {
    platform::Clock& clock = platform::systemClock();
    glo::Assert(clock.MPDelayUntil(clock.CFAbsoluteTimeGetCurrent() + duration.Seconds()), gcFile, __LINE__);
    return 1;
}

/// A clone of a bound functor: forwards to it and can't be cloned again. That of a constant functor can only be asked.
template <typename Functor_t>
class Clone_t final : public CancelRequested_t {
  public:
    explicit Clone_t(Functor_t& original) : mOriginal(original) {}

    void Clear() override { Change(&CancelRequestedFunctor_t::Clear); }
    void Set() override { Change(&CancelRequestedFunctor_t::Set); }
    glo::AutoPtr<CancelRequested_t> Clone() override { return std::as_const(*this).Clone(); }
    glo::AutoPtr<CancelRequested_t> Clone() const override {
        glo::Assert(false, gcFile, __LINE__);
        return {};
    }
    int Wait(win::Duration_t duration) const override { return mOriginal.Wait(duration); }
    int Wait(const std::vector<int>& handles, win::Duration_t duration) const override {
        return mOriginal.Wait(handles, duration);
    }
    bool operator()() const override { return mOriginal(); }

  private:
    void Change(void (CancelRequestedFunctor_t::*change)()) {
        if constexpr (std::is_const_v<Functor_t>)
            glo::Assert(false, gcFile, __LINE__);
        else
            (mOriginal.*change)();
    }

    Functor_t& mOriginal;
};
using CancelRequestedClone_t = Clone_t<CancelRequestedFunctor_t>;
using ConstCancelRequestedClone_t = Clone_t<const CancelRequestedFunctor_t>;

}  // namespace

CancelRequested_t::~CancelRequested_t() = default;

CancelRequestedFunctor_t::CancelRequestedFunctor_t(const CancelRequestedFunctor_t& other)
    : mSource(other.mSource), mRequested(other.mRequested.load(std::memory_order_relaxed)) {}

CancelRequestedFunctor_t& CancelRequestedFunctor_t::operator=(const CancelRequestedFunctor_t& other) {
    if (this == &other) return *this;
    mSource = other.mSource;
    mRequested.store(other.mRequested.load(std::memory_order_relaxed), std::memory_order_relaxed);
    return *this;
}

CancelRequestedFunctor_t::~CancelRequestedFunctor_t() = default;

void CancelRequestedFunctor_t::Clear() {
    mRequested.store(false, std::memory_order_relaxed);
}

glo::AutoPtr<CancelRequested_t> CancelRequestedFunctor_t::Clone() {
    if (mSource) return glo::AutoPtr<CancelRequested_t>(new CancelRequestedClone_t(*this));
    return glo::AutoPtr<CancelRequested_t>(new CancelRequestedFunctor_t);
}

glo::AutoPtr<CancelRequested_t> CancelRequestedFunctor_t::Clone() const {
    if (mSource) return glo::AutoPtr<CancelRequested_t>(new ConstCancelRequestedClone_t(*this));
    return glo::AutoPtr<CancelRequested_t>(new CancelRequestedFunctor_t);
}

void CancelRequestedFunctor_t::Set() {
    mRequested.store(true, std::memory_order_relaxed);
}

int CancelRequestedFunctor_t::Wait(win::Duration_t duration) const {
    return SleepFor(duration);
}

int CancelRequestedFunctor_t::Wait(const std::vector<int>&, win::Duration_t duration) const {
    return SleepFor(duration);
}

bool CancelRequestedFunctor_t::operator()() const {
    if (mRequested.load(std::memory_order_relaxed)) return true;
    if (!mSource || !mSource->CancelRequested()) return false;
    mRequested.store(true, std::memory_order_relaxed);
    return true;
}

}  // namespace thr
