// The whole tool with its real threads, and a device in real time that answers at once.
#include "tests/app/RealTimeApp.hpp"
#include "tests/support/ProcessResources.hpp"
#include "tests/support/RealTimeBackend.hpp"

#include <gtest/gtest.h>

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
}

}  // namespace
}  // namespace app_test
