#include "GLO/GLO_AutoPtr.hpp"
#include "GLO/GLO_Optional.hpp"
#include "GLO/GLO_SmartPtr.hpp"

#include <gtest/gtest.h>

#include <thread>
#include <utility>

namespace {

int gLiving = 0;

struct Base {
    Base() { ++gLiving; }
    Base(const Base&) { ++gLiving; }
    virtual ~Base() { --gLiving; }
};
struct Derived : Base {};

struct Counted : glo::RefCounter_t, Base {};

struct LeakCheckedTest : testing::Test {
    void TearDown() override { EXPECT_EQ(gLiving, 0); }
};
using AutoPtr = LeakCheckedTest;
using SmartPtr = LeakCheckedTest;

}  // namespace

TEST_F(AutoPtr, OwnsOneObjectAtATime) {
    glo::AutoPtr<Base> pointer(new Base);
    pointer.reset(pointer.get());
    EXPECT_EQ(gLiving, 1) << "the held object is not deleted for itself";
    pointer.reset(new Derived);
    EXPECT_EQ(gLiving, 1);
    glo::AutoPtr<Derived> other(new Derived);
    pointer = std::move(other);
    EXPECT_EQ(gLiving, 1);
    EXPECT_FALSE(other);
    delete pointer.release();
    EXPECT_EQ(gLiving, 0);
    pointer = glo::AutoPtr<Base>(new Base);
}

TEST_F(SmartPtr, DeletesTheObjectWithTheLastOfItsPointers) {
    glo::SmartPtr_t<Counted> first(new Counted);
    glo::SmartPtr_t<Counted> second(first);
    glo::SmartPtr_t<Counted> third(second.get());
    EXPECT_TRUE(first == third);
    first = nullptr;
    second = std::move(third);
    EXPECT_FALSE(third);
    EXPECT_EQ(gLiving, 1);
    glo::SmartPtr_t<Counted> copied(new Counted(*second));
    EXPECT_EQ(gLiving, 2);
    copied = second;
    EXPECT_EQ(gLiving, 1);
}

TEST_F(SmartPtr, CountsAcrossThreads) {
    const glo::SmartPtr_t<Counted> shared(new Counted);
    const auto copyOften = [mine = shared] {  // long enough for the two to meet
        for (int n = 0; n < 300'000; ++n) glo::SmartPtr_t<Counted> copy(mine);
    };
    std::thread other(copyOften);
    copyOften();
    other.join();
    EXPECT_EQ(gLiving, 1);
}

TEST(Optional, KeepsItsStateThroughCopyAndAssignmentInBothStorageForms) {
    const auto keepsItsState = [](auto value) {
        const decltype(value) unknown;
        EXPECT_FALSE(unknown.IsKnown());
        auto copy = value;
        value.Value(6);
        value.Assign(value);
        EXPECT_EQ(value.Value(), 6U);
        EXPECT_EQ(copy.Value(), 5U) << "a copy is deep";
        copy = value;
        EXPECT_EQ(copy.Value(), 6U);
        copy.Assign(unknown);
        EXPECT_FALSE(copy.IsKnown());
        value.MakeUnknown();
        EXPECT_FALSE(value.IsKnown());
    };
    keepsItsState(glo::Optional_t<unsigned int>(5));
    keepsItsState(glo::Optional_t<unsigned long>(5));
}

TEST(EmptyUse, StopsTheProcessAtItsOwnLine) {
    const std::pair<void (*)(), const char*> cases[] = {
        {[] { static_cast<void>(*glo::AutoPtr<int>()); }, "GLO_AutoPtr.hpp Line: 138\n"},
        {[] { static_cast<void>(glo::AutoPtr<int>().operator->()); }, "GLO_AutoPtr.hpp Line: 151\n"},
        {[] { static_cast<void>(glo::SmartPtr_t<Counted>().operator->()); }, "GLO_SmartPtr.hpp Line: 104\n"},
        {[] { static_cast<void>(glo::Optional_t<bool>().Value()); }, "GLO_Optional.hpp Line: 105\n"},
        {[] { static_cast<void>(glo::Optional_t<float>().Value()); }, "GLO_Optional.hpp Line: 581\n"}};
    for (const auto& [use, place] : cases) EXPECT_EXIT(use(), testing::KilledBySignal(SIGILL), place);
}
