#include "GLO/GLO_Assert.hpp"
#include "GLO/GLO_Blackbox.hpp"
#include "GLO/GLO_Exception.hpp"

#include <gtest/gtest.h>

extern "C" const char* __crashreporter_info__;

namespace {

constexpr std::size_t kFull = glo::Blackbox_t::gcBufferSize - 1;

/// Text whose every position can be told from its neighbours.
std::string Ramp(std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i < size; ++i) text += static_cast<char>('a' + i % 26);
    return text;
}

}  // namespace

TEST(Blackbox, PublishesItsTextAndTheSnapshotBehindItWhileItLives) {
    const char* published = "stale";
    {
        glo::Blackbox_t box(&published);
        EXPECT_STREQ(published, "");
        box.Add("one");
        EXPECT_STREQ(published, "one");
        box.Snapshot("busy");
        EXPECT_STREQ(published, "one\nSnapshot: busy");
        box.Add(" two");
        EXPECT_STREQ(published, "one two\nSnapshot: busy");
        box.Snapshot("idle");
        EXPECT_STREQ(published, "one two\nSnapshot: idle");
        box.Update("new");
        EXPECT_STREQ(published, "new\nSnapshot: idle");
        box.Snapshot("");
        EXPECT_STREQ(published, "new");
    }
    EXPECT_EQ(published, nullptr);
}

TEST(Blackbox, FullBoxDropsAsManyOldCharactersAsTheNewTextIsLongAndNeverGrows) {
    const char* published = nullptr;
    glo::Blackbox_t box(&published);
    box.Add(Ramp(kFull - 5));
    box.Add("0123456789");  // not full yet: it is cut, nothing is dropped
    EXPECT_EQ(box.CurrentText(), Ramp(kFull - 5) + "01234");
    box.Add("9876543210");
    EXPECT_EQ(box.CurrentText(), Ramp(kFull - 5).substr(10) + "012349876543210");
    box.Add(Ramp(3 * kFull));
    EXPECT_EQ(box.CurrentText(), Ramp(kFull));
    box.Snapshot("no room");
    EXPECT_EQ(box.CurrentText(), Ramp(kFull));
    box.Update(Ramp(2 * kFull));
    EXPECT_EQ(box.CurrentText(), Ramp(kFull));
    box.Update(Ramp(kFull - 5));
    EXPECT_EQ(box.CurrentText(), Ramp(kFull - 5) + "\nSnap");
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

TEST(Blackbox, ProcessWideOneIsFoundThroughTheProgramsSymbolAndAFailedAssertionAddsItsPlace) {
    glo::Blackbox().Update("");  // what other cases of the process have left
    const glo::OutOfRange_t e("libs/X/X_File", 7, L"too \x20AC\x4E00");
    EXPECT_STREQ(__crashreporter_info__, "File: libs/X/X_File Line: 7\ntoo \x80?");
    glo::Assert(true, "libs/X/X_File", 8);
    EXPECT_EXIT(glo::Assert(false, "libs/X/X_File", 9), testing::KilledBySignal(SIGILL),
                "too .\\?\nFile: libs/X/X_File Line: 9\n");
}
