// The whole tool with its real threads, and a device in real time that answers at once.
#include "tests/app/RealTimeApp.hpp"
#include "tests/support/ProcessResources.hpp"
#include "tests/support/RealTimeBackend.hpp"

#include <gmock/gmock.h>

#include <filesystem>

namespace app_test {
namespace {

using testing::ElementsAre;

struct ResetTest : testing::Test {
    support::RealTimeBackend usb{simulator::Profile::instant()};
    RealTimeApp app{usb};
};

TEST_F(ResetTest, WholeResetFromTheButtonToTheCompleteScreen) {
    EXPECT_EQ(app.exceptions.delegate, &app.controller);
    EXPECT_EQ(app.exceptions.mask, 255U);

    app.plug();
    app.reset();

    EXPECT_THAT(app.lines(),
                ElementsAre("I Trovik Reset Tool 1.0.0 has started.", "I Device detected but no action taken",
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
