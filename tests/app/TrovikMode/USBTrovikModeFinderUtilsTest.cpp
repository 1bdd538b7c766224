#include "app/TrovikMode/USBTrovikModeFinderUtils.hpp"

#include <gtest/gtest.h>

#include "tests/support/UsbWorld.hpp"

namespace {

using namespace support;
using simulator::BusOperation;
using simulator::Fault;
using simulator::Profile;

/// A bus with devices on it that only look alike, and one that is meant.
class Finder : public SimulatedDevice, public testing::Test {
  protected:
    std::size_t add(void (*change)(Profile&)) {
        Profile profile;
        change(profile);
        return bus.addDevice(profile);
    }

    std::size_t otherProduct = add([](Profile& p) { p.productId = 4; });
    std::size_t otherRelease = add([](Profile& p) { p.releaseNumber = 2; });
    std::size_t otherVendor = add([](Profile& p) { p.vendorId ^= 1; });
    std::size_t second = add([](Profile&) {});
};

TEST_F(Finder, ListsTheDevicesInTrovikModeThatCanBeNamedAndTellsNoneFromNoAnswer) {
    bus.plug({otherProduct, otherRelease, otherVendor, second});
    auto const devices = USBTrovikModeFinderUtils::connectedPaths().value();
    ASSERT_EQ(devices.size(), 2U);
    EXPECT_EQ(devices[0].ioPath(), path());
    EXPECT_EQ(devices[1].ioPath(), path(second));
    EXPECT_NE(devices[0].ioId(), devices[1].ioId());

    for (auto const operation :
         {BusOperation::IORegistryEntryGetPath, BusOperation::IORegistryEntryGetRegistryEntryID}) {
        addFault(Fault::onOperation(operation, platform::kIOReturnNoDevice));
        auto const nameable = USBTrovikModeFinderUtils::connectedPaths().value();
        ASSERT_EQ(nameable.size(), 1U);
        EXPECT_EQ(nameable[0].ioPath(), path(second));
    }

    unplug();
    unplug(second);
    EXPECT_TRUE(USBTrovikModeFinderUtils::connectedPaths().value().empty());
    EXPECT_TRUE(USBTrovikModeFinderUtils::tmDeviceConnected());
    bus.addFault(Fault::onOperation(BusOperation::IOServiceGetMatchingServices, platform::kIOReturnError));
    EXPECT_FALSE(USBTrovikModeFinderUtils::tmDeviceConnected());
}

TEST(FinderPath, OfMoreThan511CharactersCannotBeRead) {
    ScriptedDevice world;
    world.usb.path.assign(511, 'x');
    EXPECT_EQ(USBTrovikModeFinderUtils::connectedPaths()->size(), 1U);
    world.usb.path.assign(512, 'x');
    EXPECT_TRUE(USBTrovikModeFinderUtils::connectedPaths()->empty());
}

TEST_F(Finder, ReportsOnlyDevicesInTrovikModeThatAttachFromNowOn) {
    int reported = 0;
    ASSERT_TRUE(USBTrovikModeFinderUtils::observeTMDevicesForType(
        platform::kIOServiceMatched,
        [](void* refCon, platform::IOIterator& iterator) {
            while (iterator.IOIteratorNext()) ++*static_cast<int*>(refCon);
        },
        &reported));
    runUntilQuiet();
    EXPECT_EQ(reported, 0) << "what is there already is not an attachment";
    bus.plug({otherProduct, otherRelease, otherVendor, second});
    runUntilQuiet();
    EXPECT_EQ(reported, 1);
}

}  // namespace
