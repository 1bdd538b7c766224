#include "THR/THR_CancelRequested.hpp"

#include "GLO/GLO_Assert.hpp"
#include "platform/Clock.hpp"
#include "platform/Platform.hpp"

namespace thr {
namespace {

constexpr char gcFile[] = "libs/THR/THR_CancelRequested";

/// Sleeps until a moment that is fixed once, so that nothing that wakes the thread early stretches the wait.
int SleepFor(win::Duration_t duration) {
    platform::Clock& clock = platform::systemClock();
    glo::Assert(clock.MPDelayUntil(clock.CFAbsoluteTimeGetCurrent() + duration.Seconds()), gcFile, __LINE__);
    return 1;
}

/// What both clones of a bound functor share: they forward to it and can't be cloned again.
class Clone_t : public CancelRequested_t {
  public:
    glo::AutoPtr<CancelRequested_t> Clone() override { return NoClone(); }
    glo::AutoPtr<CancelRequested_t> Clone() const override { return NoClone(); }

  private:
    static glo::AutoPtr<CancelRequested_t> NoClone() {
        glo::Assert(false, gcFile, __LINE__);
        return {};
    }
};

class CancelRequestedClone_t final : public Clone_t {
  public:
    explicit CancelRequestedClone_t(CancelRequestedFunctor_t& original) : mOriginal(original) {}

    void Clear() override { mOriginal.Clear(); }
    void Set() override { mOriginal.Set(); }
    int Wait(win::Duration_t duration) const override { return mOriginal.Wait(duration); }
    int Wait(const std::vector<int>& handles, win::Duration_t duration) const override {
        return mOriginal.Wait(handles, duration);
    }
    bool operator()() const override { return mOriginal(); }

  private:
    CancelRequestedFunctor_t& mOriginal;
};

class ConstCancelRequestedClone_t final : public Clone_t {
  public:
    explicit ConstCancelRequestedClone_t(const CancelRequestedFunctor_t& original) : mOriginal(original) {}

    void Clear() override { glo::Assert(false, gcFile, __LINE__); }
    void Set() override { glo::Assert(false, gcFile, __LINE__); }
    int Wait(win::Duration_t duration) const override { return mOriginal.Wait(duration); }
    int Wait(const std::vector<int>& handles, win::Duration_t duration) const override {
        return mOriginal.Wait(handles, duration);
    }
    bool operator()() const override { return mOriginal(); }

  private:
    const CancelRequestedFunctor_t& mOriginal;
};

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
