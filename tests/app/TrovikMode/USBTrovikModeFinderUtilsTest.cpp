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

    std::vector<std::string> paths() {
        std::vector<std::string> found;
        auto const devices = USBTrovikModeFinderUtils::connectedPaths();
        for (auto const& device : devices.value()) found.push_back(device.ioPath());
        return found;
    }

    static void attached(void* refCon, platform::IOIterator& iterator) {
        auto& groups = *static_cast<std::vector<std::vector<std::string>>*>(refCon);
        groups.emplace_back();
        while (auto const entry = iterator.IOIteratorNext()) {
            std::string path;
            entry->IORegistryEntryGetPath(platform::kIOServicePlane, path);
            groups.back().push_back(path);
        }
    }

    std::size_t otherProduct = add([](Profile& p) { p.productId = 4; });
    std::size_t otherRelease = add([](Profile& p) { p.releaseNumber = 2; });
    std::size_t otherVendor = add([](Profile& p) { p.vendorId ^= 1; });
    std::size_t second = add([](Profile&) {});
};

TEST_F(Finder, ListsTheDevicesInTrovikModeAndNoOthers) {
    bus.plug({otherProduct, otherRelease, otherVendor, second});
    auto const devices = USBTrovikModeFinderUtils::connectedPaths().value();
    ASSERT_EQ(devices.size(), 2U);
    EXPECT_EQ(devices[0].ioPath(), path());
    EXPECT_EQ(devices[1].ioPath(), path(second));
    EXPECT_NE(devices[0].ioId(), devices[1].ioId());
}

TEST_F(Finder, TellsNoDeviceFromNoAnswer) {
    unplug();
    EXPECT_TRUE(paths().empty());
    EXPECT_TRUE(USBTrovikModeFinderUtils::tmDeviceConnected());
    bus.addFault(Fault::onOperation(BusOperation::IOServiceGetMatchingServices, platform::kIOReturnError));
    EXPECT_FALSE(USBTrovikModeFinderUtils::tmDeviceConnected());
}

TEST_F(Finder, SkipsADeviceWhosePathOrIdCannotBeRead) {
    plug(second);
    for (auto const operation :
         {BusOperation::IORegistryEntryGetPath, BusOperation::IORegistryEntryGetRegistryEntryID}) {
        addFault(Fault::onOperation(operation, platform::kIOReturnNoDevice));
        EXPECT_EQ(paths(), std::vector<std::string>{path(second)});
    }
}

TEST(FinderPath, OfMoreThan511CharactersCannotBeRead) {
    ScriptedDevice world;
    world.usb.path.assign(511, 'x');
    EXPECT_EQ(USBTrovikModeFinderUtils::connectedPaths()->size(), 1U);
    world.usb.path.assign(512, 'x');
    EXPECT_TRUE(USBTrovikModeFinderUtils::connectedPaths()->empty());
}

TEST_F(Finder, ReportsWhatAttachesFromNowOnInTheGroupsInWhichItComes) {
    std::vector<std::vector<std::string>> groups;
    ASSERT_TRUE(USBTrovikModeFinderUtils::observeTMDevicesForType(platform::kIOServiceMatched, attached, &groups));
    auto const loop = loops.CFRunLoopGetCurrent();
    loop->CFRunLoopRun();
    EXPECT_TRUE(groups.empty()) << "what is there already is not an attachment";

    bus.plug({otherProduct, otherRelease, otherVendor});
    loop->CFRunLoopRun();
    EXPECT_TRUE(groups.empty());

    unplug();
    bus.plug({0, second});
    loop->CFRunLoopRun();
    using Groups = std::vector<std::vector<std::string>>;
    EXPECT_EQ(groups, (Groups{{path(), path(second)}}));
}

TEST_F(Finder, SaysWhenTheRegistryRefusesToReport) {
    EXPECT_FALSE(USBTrovikModeFinderUtils::observeTMDevicesForType("IOServiceTerminate", attached, nullptr));
    bus.addFault(Fault::onOperation(BusOperation::IOServiceAddMatchingNotification, platform::kIOReturnError));
    EXPECT_FALSE(USBTrovikModeFinderUtils::observeTMDevicesForType(platform::kIOServiceMatched, attached, nullptr));
}

}  // namespace
