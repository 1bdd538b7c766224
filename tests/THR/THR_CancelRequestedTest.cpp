#include "GLO/GLO_Exception.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "THR/THR_Delay.hpp"
#include "platform/Platform.hpp"
#include "tests/support/ManualClock.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <thread>

namespace {

struct Source : thr::CancelSourceIntf_t {
    bool CancelRequested() const override { return requested; }
    bool requested = false;
};

struct FixedResult : thr::CancelRequestedFunctor_t {
    explicit FixedResult(int waitResult) : result(waitResult) {}
    using thr::CancelRequestedFunctor_t::Wait;
    int Wait(win::Duration_t) const override { return result; }
    int result;
};

struct CancelRequested : testing::Test {
    support::ManualClock clock;
    platform::PlatformScope scope{{.clock = &clock}};
    Source source;
    thr::CancelRequestedFunctor_t flag;
    thr::CancelRequestedFunctor_t bound{&source};
};

TEST_F(CancelRequested, SetFromAnotherThreadIsSeenAndNotInheritedByAClone) {
    std::jthread setter([this] { flag.Set(); });
    while (!flag()) std::this_thread::yield();
    EXPECT_FALSE((*flag.Clone())());
    EXPECT_FALSE((*std::as_const(flag).Clone())());
}

TEST_F(CancelRequested, BoundFunctorLatchesTheRequestUntilClearedAndItsClonesForwardToIt) {
    const auto clone = bound.Clone();
    const auto constClone = std::as_const(bound).Clone();
    EXPECT_FALSE(bound());
    clone->Set();
    EXPECT_TRUE(bound() && (*constClone)());
    clone->Clear();
    EXPECT_FALSE(bound());
    source.requested = true;
    EXPECT_TRUE((*constClone)());
    source.requested = false;
    EXPECT_TRUE(bound()) << "the request is latched in the original";
    EXPECT_EQ(clone->Wait(5), 1);
    EXPECT_EQ(constClone->Wait(std::vector<int>{1, 2}, 5), 1);
    EXPECT_EQ(clock.Sleeps().size(), 2U);
}

TEST_F(CancelRequested, DelaySleepsTheWholeTimeWithoutLookingAtTheFlag) {
    flag.Set();
    thr::Delay(200, flag);
    thr::Delay(0, flag);
    ASSERT_EQ(clock.Sleeps().size(), 2U);
    EXPECT_NEAR(clock.Sleeps()[0], 0.2, 1e-9);
    EXPECT_EQ(clock.Sleeps()[1], 0.0);
    EXPECT_THROW(thr::Delay(200, FixedResult(0)), glo::Terminate_t);
}

TEST_F(CancelRequested, ImpossibleRequestsStopTheProgram) {
    const auto clone = bound.Clone();
    const auto constClone = std::as_const(bound).Clone();
    clock.FailSleeps();
    const auto stops = testing::KilledBySignal(SIGILL);
    EXPECT_EXIT((void)clone->Clone(), stops, "libs/THR/THR_CancelRequested Line: ");
    EXPECT_EXIT((void)std::as_const(*constClone).Clone(), stops, "libs/THR/THR_CancelRequested Line: ");
    EXPECT_EXIT(constClone->Set(), stops, "libs/THR/THR_CancelRequested Line: ");
    EXPECT_EXIT(constClone->Clear(), stops, "libs/THR/THR_CancelRequested Line: ");
    EXPECT_EXIT(thr::Delay(1, FixedResult(2)), stops, "libs/THR/THR_Delay Line: ");
    EXPECT_EXIT(thr::Delay(1, flag), stops, "libs/THR/THR_CancelRequested Line: ");
}

}  // namespace
