// The whole tool with its real threads, and a device in real time that answers at once.
#include "tests/app/RealTimeApp.hpp"
#include "tests/support/ProcessResources.hpp"
#include "tests/support/RealTimeBackend.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace app_test {
namespace {

struct ResetTest : testing::Test {
    support::RealTimeBackend usb{simulator::Profile::instant()};
    RealTimeApp app{usb};
};

TEST_F(ResetTest, ManyResetsLeaveNothingBehind) {
    EXPECT_EQ(app.exceptions.delegate, &app.controller);
    EXPECT_EQ(app.exceptions.mask, 255U);
    app.resetsLeaveNothingBehind(support::soakRounds(20));
    // With the switches off no trace is made.
    for (const auto& file : std::filesystem::recursive_directory_iterator(RealTimeApp::folder().path()))
        EXPECT_NE(file.path().extension(), ".log") << file.path();
}

}  // namespace
}  // namespace app_test
