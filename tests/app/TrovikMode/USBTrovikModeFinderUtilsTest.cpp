#include "app/TrovikMode/USBTrovikModeFinderUtils.hpp"
#include "tests/support/UsbWorld.hpp"

#include <gtest/gtest.h>

namespace {

using namespace support;
using simulator::BusOperation;
using simulator::Fault;

TEST(Finder, ListsTheDevicesInTrovikModeThatCanBeNamedAndTellsNoneFromNoAnswer) {
    SimulatedDevice world;
    simulator::Profile otherProduct, otherRelease, otherVendor;
    otherProduct.productId = 4;
    otherRelease.releaseNumber = 2;
    otherVendor.vendorId ^= 1;
    for (const simulator::Profile& lookalike : {otherProduct, otherRelease, otherVendor})
        world.plug(world.bus.addDevice(lookalike));
    const auto second = world.bus.addDevice({});
    world.plug(second);
    const auto devices = USBTrovikModeFinderUtils::connectedPaths().value();
    ASSERT_EQ(devices.size(), 2U);
    EXPECT_EQ(devices[0].ioPath(), world.path());
    EXPECT_EQ(devices[1].ioPath(), world.path(second));
    EXPECT_NE(devices[0].ioId(), devices[1].ioId());

    world.addFault(Fault::onOperation(BusOperation::IORegistryEntryGetPath, platform::kIOReturnNoDevice));
    const auto nameable = USBTrovikModeFinderUtils::connectedPaths().value();
    ASSERT_EQ(nameable.size(), 1U);
    EXPECT_EQ(nameable[0].ioPath(), world.path(second));

    world.unplug();
    world.unplug(second);
    EXPECT_TRUE(USBTrovikModeFinderUtils::connectedPaths().value().empty());
    EXPECT_TRUE(USBTrovikModeFinderUtils::tmDeviceConnected());
    world.bus.addFault(Fault::onOperation(BusOperation::IOServiceGetMatchingServices, platform::kIOReturnError));
    EXPECT_FALSE(USBTrovikModeFinderUtils::tmDeviceConnected());
}

TEST(FinderPath, OfMoreThan511CharactersCannotBeRead) {
    ScriptedDevice world;
    world.usb.path.assign(511, 'x');
    EXPECT_EQ(USBTrovikModeFinderUtils::connectedPaths()->size(), 1U);
    world.usb.path.assign(512, 'x');
    EXPECT_TRUE(USBTrovikModeFinderUtils::connectedPaths()->empty());
}

}  // namespace
