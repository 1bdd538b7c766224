#include "app/TrovikMode/ConnectedDevices.hpp"
#include "app/TrovikMode/UsbTrovikModeIoLink.hpp"
#include "simulator/world/SimulatedWorld.hpp"
#include "tests/support/LogRecorder.hpp"

#include <gmock/gmock.h>

#include <optional>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using List = std::vector<ConnectedDevice>;

TEST(ConnectedDevices, AreToldAfterEachChangeByTheirOwnNameAndThenByTheIdentifiedOne) {
    simulator::SimulatedWorld world;
    const auto second = world.bus.addDevice();
    world.device(second).profile().productName.clear();
    world.device().profile().productName = "Trovik USB";
    world.device().profile().descriptions = {"T\u202E300 Software Version 2.30"};
    const ConnectedDevice first{world.path(), "1-1", "Trovik USB"},
        identified{world.path(), "1-1", "T\\xE2\\x80\\xAE300"};
    const ConnectedDevice other{world.path(second), "1-2", ""};

    support::LogRecorder log;
    std::vector<List> told;
    std::optional<ConnectedDevices> devices;
    const auto watch = [&] { devices.emplace([&](const List& list) { told.push_back(list); }).watch(); };
    const auto take = [&] {
        world.runUntilQuiet(simulator::Duration{0});  // a change is told when it happens, and not at the next look
        return std::exchange(told, {});
    };
    watch();
    EXPECT_THAT(take(), ElementsAre(IsEmpty()));
    world.plug();
    EXPECT_THAT(take(), ElementsAre(ElementsAre(first)));
    world.plug(second);
    EXPECT_THAT(take(), ElementsAre(ElementsAre(first, other)));
    EXPECT_THAT(log.take(), ElementsAre(testing::Field(&DDLogMessage::logMsg, testing::StartsWith("TRV-102 "))));
    EXPECT_THAT(world.device().record().received(), IsEmpty()) << "nothing is ever opened for this";

    const unsigned char clear[] = {0x27, 0};
    EXPECT_TRUE(UsbTrovikModeIoLink::initWithPath(first.path)->sendIopCommand(10, clear, false, nullptr));
    EXPECT_THAT(take(), ElementsAre(ElementsAre(identified, other)));
    log.take();
    world.unplug();
    EXPECT_THAT(take(), ElementsAre(ElementsAre(other)));
    EXPECT_THAT(log.take(), ElementsAre(testing::Field(&DDLogMessage::logMsg, "Device at port 1-1 was detached")));
    world.plug();
    EXPECT_THAT(take(), ElementsAre(ElementsAre(first, other))) << "it may be another device";

    const auto refused = simulator::BusOperation::IOServiceAddMatchingNotification;
    world.bus.addFault(simulator::Fault::onOperation(refused, platform::kIOReturnError, 2));
    watch();
    EXPECT_THAT(take(), IsEmpty()) << "departures would not be seen";
}

}  // namespace
