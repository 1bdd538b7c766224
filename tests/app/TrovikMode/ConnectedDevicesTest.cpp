#include "app/TrovikMode/ConnectedDevices.hpp"
#include "app/TrovikMode/UsbTrovikModeIoLink.hpp"
#include "simulator/world/SimulatedWorld.hpp"

#include <gmock/gmock.h>

#include <array>
#include <utility>
#include <vector>

namespace {

using simulator::BusOperation;
using simulator::Fault;
using testing::ElementsAre;
using testing::IsEmpty;
using List = std::vector<ConnectedDevice>;

TEST(ConnectedDevices, AreToldAfterEachChangeByTheirOwnNameAndThenByTheIdentifiedOne) {
    simulator::SimulatedWorld world;
    simulator::Profile nameless;
    nameless.productName.clear();
    const auto second = world.bus.addDevice(nameless);
    world.device().profile().productName = "Trovik USB";
    const ConnectedDevice first{world.path(), "1-1", "Trovik USB"}, other{world.path(second), "1-2", ""};
    ConnectedDevice identified = first;
    identified.name = "Trailmate 300";

    std::vector<List> told;
    ConnectedDevices devices([&](const List& list) { told.push_back(list); });
    devices.watch();
    const auto take = [&] {
        world.runUntilQuiet();
        return std::exchange(told, {});
    };
    EXPECT_THAT(take(), ElementsAre(IsEmpty()));
    world.plug();
    EXPECT_THAT(take(), ElementsAre(ElementsAre(first)));
    world.plug(second);
    EXPECT_THAT(take(), ElementsAre(ElementsAre(first, other)));
    world.unplug(second);
    world.plug(second);
    EXPECT_THAT(take(), IsEmpty()) << "to a person nothing has changed";
    EXPECT_THAT(world.device().record().received(), IsEmpty()) << "nothing is ever opened for this";

    {
        const auto link = UsbTrovikModeIoLink::initWithPath(first.path);
        EXPECT_TRUE(link->sendIopCommand(10, std::array<unsigned char, 2>{0x27, 0}, false, nullptr));
    }
    EXPECT_THAT(take(), ElementsAre(ElementsAre(identified, other)));
    world.unplug();
    EXPECT_THAT(take(), ElementsAre(ElementsAre(other)));
    world.plug();
    EXPECT_THAT(take(), ElementsAre(ElementsAre(first, other))) << "it may be another device";
}

TEST(ConnectedDevices, SayNothingWhereTheyCouldNotFollow) {
    simulator::SimulatedWorld world;
    for (const bool departures : {false, true}) {
        Fault refusal = Fault::onOperation(BusOperation::IOServiceAddMatchingNotification, platform::kIOReturnError);
        refusal.step.occurrence = departures ? 2 : 1;
        world.bus.addFault(refusal);
        bool hasTold = false;
        ConnectedDevices devices([&](const List&) { hasTold = true; });
        devices.watch();
        world.unplug();
        world.plug();
        world.runUntilQuiet();
        EXPECT_FALSE(hasTold) << "departures refused: " << departures;
    }
}

}  // namespace
