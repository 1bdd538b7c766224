#include "GLO/GLO_Exception.hpp"
#include "WIN/WIN_CriticalSection.hpp"
#include "WIN/WIN_DebugServer.hpp"
#include "libs/WIN/impl/WIN_TimeStamp.hpp"
#include "tests/WIN/WIN_Support.hpp"

#include <gmock/gmock.h>

#include <thread>

namespace win {
namespace {

using ::testing::MatchesRegex;

const std::string kBanner =
    "[0-9]+-[0-9]+-[0-9]+ [0-9]+:[0-9]+:[0-9]+ \\*{17} New Run \\*{28}\n"
    "Application Version: 1\\.2\\.3\\.4 Beta\n";
const std::string kStamp = "[0-9]{2}:[0-9]{2}:[0-9]{2}: ";

class DebugServerTest : public SettingsTest {
  protected:
    std::string Traced(const std::string& name) const { return support::ReadFile(caches / ("Trovik/" + name)); }
};

/// Does something in the middle of each of its prints.
class BusyServer_t : public DebugServer_t {
  public:
    using DebugServer_t::DebugServer_t;
    std::function<void()> mInside;
    void PrintTime() override {
        DebugServer_t::PrintTime();
        if (mInside) mInside();
    }
};

TEST_F(DebugServerTest, TheFirstPrintWritesTheBannerAndALineHasOneTimeStampAndValuesEndNone) {
    whenAsked = [] {  // nobody holds the lock while the metadata is made: another thread can take it
        std::thread([] { const SmartCriticalSection_t guard(DebugServerCriticalSection()); }).join();
    };
    std::filesystem::create_directory(caches / "Trovik");
    std::filesystem::permissions(caches / "Trovik", std::filesystem::perms(0755));  // as an earlier version left it
    OnFirstUse([&] {
        DebugServer_t server(L"Name.txt", true);
        EXPECT_EQ(Traced("Name.txt.log"), "") << "no file before the first print";
        server.PrintStr("a");
        server.PrintStr(L"b\u00E4\nc");
        enum class Layer : unsigned char { Application = 20 };
        const auto print = [&](const auto&... values) { (server.PrintData(values), ...); };
        print(1.5F, 'c', -3, 4000000000U, static_cast<unsigned short>(65535), -5L, 6UL, std::string("text\n"),
              Duration_t(3000), gcDurationInfinite, Layer::Application);
        server.PrintStr("|\n");
    });
    EXPECT_EQ(std::filesystem::status(caches / "Trovik/Name.txt.log").permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(std::filesystem::status(caches / "Trovik").permissions(), std::filesystem::perms(0700));
    const std::string run =
        kBanner + kStamp + "ab\xC3\xA4\nc" + kStamp + "1\\.5c-3400000000065535-56text\n3000429496729520\\|\n";
    EXPECT_THAT(Traced("Name.txt.log"), MatchesRegex(run));
    DebugServer_t(L"Name.txt", true).PrintStr("\n");
    EXPECT_THAT(Traced("Name.txt.log"), MatchesRegex(run + kBanner + kStamp + "\n")) << "a run is appended";
}

// Reading the switch raises an exception, which announces itself on the server that asks for the switch. Without care
// the first use of the server would wait for itself for ever.
TEST_F(DebugServerTest, AServerThatIsOffOrHasNoFlagForASwitchMakesNoFileButItsFolder) {
    StoreSettings({{"ShowDebug", {std::string("not a flag")}}});
    OnFirstUse([&] {
        EXPECT_FALSE(DebugServer().IsEnabled());
        DebugServer_t server(L"Off", false);
        server.PrintStr("x\n");
        server.PrintStr(L"x\n");
        server.PrintData(1);
        server.PrintTime();
        server.PrintException(glo::Timeout_t("f", 1));
        EXPECT_TRUE(std::filesystem::is_empty(caches / "Trovik"));
        EXPECT_EQ(DebugServer().FilePath(), DebugFileDirectory() + L"Product.log");
        EXPECT_EQ(DebugFilePath(L"-x", L"") + DebugFilePath(L"-x", L"n"),
                  DebugFileDirectory() + L"Product-x.log" + DebugFileDirectory() + L"n.log");
    });
}

TEST_F(DebugServerTest, ExceptionsAnnounceThemselvesWhenShowDebugIsOnAndANormalExitWritesTheLineThatHasNoEndYet) {
    StoreSettings({{"ShowDebug", {List::Data{1}}}});
    EXPECT_EXIT(glo::Assert(false, "libs/A", 9), testing::KilledBySignal(SIGILL), "File: libs/A Line: 9\n");
    OnFirstUse([] {
        const glo::Timeout_t timeout("libs/X", 7);
        DebugServer().PrintException(timeout, "context");
        const glo::Exception_t zeros("libs/X", 8, std::string("a\0b", 3), std::string("s\0t", 3));
        DebugServer().PrintException(zeros, std::string("c\0d", 3));
        DebugServer().PrintStr("half");
    });
    EXPECT_THAT(Traced("Product.log"),
                MatchesRegex(kBanner + kStamp + "Error: libs/A 9 SubId:  \n" +  // of the process that died
                             kBanner + kStamp + "Error: libs/X 7 SubId:  \n" + kStamp +
                             "Error: libs/X 7 SubId:    context\n" + kStamp + "Error: libs/X 8 SubId: s a\n" + kStamp +
                             "Error: libs/X 8 SubId: s a  c\n" + kStamp + "half"));
}

TEST_F(DebugServerTest, APrintWithinAPrintIsDropped) {
    StoreSettings({{"ShowDebug", {List::Data{1}}}});
    OnFirstUse([] {
        DebugServer_t other(L"Other", true);
        BusyServer_t server(L"Busy", true);
        server.mInside = [&] {
            const glo::Timeout_t announcesItself("libs/X", 7);
            server.PrintStr("nested\n");
            std::thread([&] { other.PrintStr("another thread, another server\n"); }).join();
        };
        server.PrintStr("text\n");
        server.mInside = [] { throw 1; };
        server.PrintStr("lost\n");
        server.mInside = nullptr;
        server.PrintStr("after\n");
    });
    EXPECT_THAT(Traced("Busy.log"), MatchesRegex(kBanner + kStamp + "text\n" + kStamp + "after\n"));
    EXPECT_EQ(Traced("Other.log") + Traced("Product.log"), "");
}

TEST_F(DebugServerTest, TwoThreadsTearNoLine) {
    DebugServer_t server(L"Shared", true);
    const auto print = [&] {
        for (int line = 0; line < 400; ++line) server.PrintStr("whole line\n");
    };
    std::thread other(print);
    print();
    other.join();
    EXPECT_THAT(Traced("Shared.log"), MatchesRegex(kBanner + "(" + kStamp + "whole line\n)+"));
}

TEST_F(DebugServerTest, ResetMovesTheFileAsideOverThePreviousOne) {
    support::WriteFile(caches / "Trovik/R.log.previous", "older");
    DebugServer_t(L"R", true).PrintStr("text\n");
    DebugServer_t(L"R", true).Reset();
    EXPECT_FALSE(std::filesystem::exists(caches / "Trovik/R.log"));
    EXPECT_THAT(Traced("R.log.previous"), MatchesRegex(kBanner + kStamp + "text\n"));
}

TEST_F(DebugServerTest, OutputThatCantBeWrittenIsLostSilently) {
    setenv("XDG_CACHE_HOME", (caches / "missing/parent").c_str(), 1);
    DebugServer_t(L"X", true).PrintStr("lost\n");
    EXPECT_TRUE(std::filesystem::is_empty(caches)) << "missing parents are not made";
}

TEST(TimeStamp, AMomentWithoutACalendarDateHasAStandIn) {
    EXPECT_EQ(TimeStampText(glo::Time_t(std::int64_t{1} << 62), glo::Time_t::DateFlag_t::NoDate), "00:00:00  ");
}

}  // namespace
}  // namespace win
