// The whole tool with its real threads, and a device in real time that answers at once.
#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"
#include "tests/app/RealTimeApp.hpp"
#include "tests/support/ProcessResources.hpp"
#include "tests/support/RealTimeBackend.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <string>

namespace app_test {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

struct ResetTest : testing::Test {
    support::RealTimeBackend usb{simulator::Profile::instant()};
    RealTimeApp app{usb};
};

TEST_F(ResetTest, WholeResetFromTheButtonToTheCompleteScreen) {
    EXPECT_EQ(app.exceptions.delegate, &app.controller);
    EXPECT_EQ(app.exceptions.mask, 255U);

    app.plug();
    app.reset();

    const std::string version = platform::mainBundle().infoText("CFBundleShortVersionString");
    EXPECT_THAT(version, MatchesRegex("[0-9]+[.][0-9]+[.][0-9]+(~dev.*)?"));
    EXPECT_THAT(app.lines(),
                ElementsAre("I Trovik Reset Tool " + version + " has started.", "I Device detected but no action taken",
                            "I Device found, rebooting", "I Device rebooted", "I Hold in bootloader sent",
                            "I Nonvol cleared", "I Boot resumed"));

    // With the switches off no trace is made.
    for (const auto& file : std::filesystem::recursive_directory_iterator(RealTimeApp::folder().path()))
        EXPECT_NE(file.path().extension(), ".log") << file.path();
}

TEST_F(ResetTest, ManyResetsLeaveNothingBehind) {
    app.resetsLeaveNothingBehind(support::soakRounds(20));
}

}  // namespace
}  // namespace app_test
