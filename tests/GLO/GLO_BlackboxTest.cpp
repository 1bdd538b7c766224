#include "GLO/GLO_Blackbox.hpp"

#include <gtest/gtest.h>

#include "GLO/GLO_Assert.hpp"
#include "GLO/GLO_Exception.hpp"

extern "C" const char* __crashreporter_info__;

namespace {

constexpr std::size_t kFull = glo::Blackbox_t::gcBufferSize - 1;

struct Box {
    const char* published = nullptr;
    glo::Blackbox_t box{&published};
};

/// Text whose every position can be told from its neighbours.
std::string Ramp(std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i < size; ++i) text += static_cast<char>('a' + i % 26);
    return text;
}

}  // namespace

TEST(Blackbox, PublishesItsTextWhileItLives) {
    const char* published = "stale";
    {
        glo::Blackbox_t box(&published);
        EXPECT_STREQ(published, "");
        box.Add("one");
        EXPECT_STREQ(published, "one");
    }
    EXPECT_EQ(published, nullptr);
}

TEST(Blackbox, SnapshotTrailsTheHistoryUntilItIsRemoved) {
    Box b;
    b.box.Add("one");
    b.box.Snapshot("busy");
    EXPECT_EQ(b.box.CurrentText(), "one\nSnapshot: busy");
    b.box.Add(" two");
    EXPECT_EQ(b.box.CurrentText(), "one two\nSnapshot: busy");
    b.box.Snapshot("idle");
    EXPECT_EQ(b.box.CurrentText(), "one two\nSnapshot: idle");
    b.box.Update("new");
    EXPECT_EQ(b.box.CurrentText(), "new\nSnapshot: idle");
    b.box.Snapshot("");
    EXPECT_EQ(b.box.CurrentText(), "new");
}

TEST(Blackbox, FullBoxDropsAsManyOldCharactersAsTheNewTextIsLong) {
    Box b;
    b.box.Add(Ramp(kFull));
    b.box.Add("0123456789");
    EXPECT_EQ(b.box.CurrentText(), Ramp(kFull).substr(10) + "0123456789");
}

TEST(Blackbox, NothingGrowsBeyondTheBuffer) {
    Box b;
    b.box.Add(Ramp(kFull - 5));
    b.box.Add("0123456789");  // not full yet: it is cut, nothing is dropped
    EXPECT_EQ(b.box.CurrentText(), Ramp(kFull - 5) + "01234");
    b.box.Add(Ramp(3 * kFull));
    EXPECT_EQ(b.box.CurrentText(), Ramp(kFull));
    b.box.Snapshot("no room");
    EXPECT_EQ(b.box.CurrentText(), Ramp(kFull));
    b.box.Update(Ramp(2 * kFull));
    EXPECT_EQ(b.box.CurrentText(), Ramp(kFull));
    b.box.Update(Ramp(kFull - 5));
    EXPECT_EQ(b.box.CurrentText(), Ramp(kFull - 5) + "\nSnap");
}

TEST(Blackbox, IsInertWithoutASymbolAndSaysSoOnce) {
    testing::internal::CaptureStderr();
    glo::Blackbox_t box(nullptr);
    box.Add("one");
    box.Update("two");
    box.Snapshot("three");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR: Unable to set black box up\n");
    EXPECT_FALSE(box.IsActive());
}

TEST(Blackbox, ProcessWideOneIsFoundThroughTheProgramsSymbol) {
    ASSERT_TRUE(glo::Blackbox().IsActive());
    EXPECT_EQ(&glo::Blackbox(), &glo::Blackbox());
    const glo::OutOfRange_t e("libs/X/X_File", 7, L"too \x20AC\x4E00");
    EXPECT_STREQ(__crashreporter_info__, "File: libs/X/X_File Line: 7\ntoo \x80?");
}

TEST(Assert, HoldingConditionHasNoEffect) {
    const std::string before = glo::Blackbox().CurrentText();
    glo::Assert(true, "libs/X/X_File", 7);
    EXPECT_EQ(glo::Blackbox().CurrentText(), before);
}

TEST(Assert, FailedConditionLeavesItsPlaceAndTraps) {
    EXPECT_EXIT(
        {
            glo::Blackbox().Add("before");
            glo::Assert(false, "libs/X/X_File", 7);
        },
        testing::KilledBySignal(SIGILL), "before\nFile: libs/X/X_File Line: 7\n");
}
