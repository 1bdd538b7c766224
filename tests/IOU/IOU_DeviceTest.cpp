#include "IOU/IOU_Devices.hpp"
#include "IOU/IOU_Exception.hpp"
#include "tests/support/UsbWorld.hpp"

#include <gmock/gmock.h>

#include <vector>

namespace {

using namespace support;
using simulator::BusOperation;
using simulator::Fault;

/// Opening throws 1 and logs the code and the place.
void expectFailure(SimulatedDevice& world, platform::IOReturn code, const char* place) {
    EXPECT_THAT([&] { world.openLink(); }, testing::Throws<int>(1)) << place;
    char line[200];
    std::snprintf(line, sizeof line, "The USB device can't be used: %s (0x%08X) at libs/IOU/mac/IOU_%s\n",
                  code == 0 ? "not fit for it" : platform::IOReturnText(code), static_cast<unsigned>(code), place);
    EXPECT_THAT(SimulatedDevice::log(), testing::Contains(line));
}

TEST(Device, EachFailingStepOfOpeningIsReportedWithItsLineThrowsOneAndClosesEverything) {
    using enum BusOperation;
    // clang-format off
    const std::tuple<BusOperation, const char*, unsigned> cases[] = {
        {CreateDevicePlugIn, "Device, 51", 1}, {QueryDeviceInterface, "Device, 69", 1},
        {USBDeviceOpen, "Device, 81", 1}, {GetConfigurationDescriptorPtr, "Device, 91", 1},
        {SetConfiguration, "Device, 101", 1}, {GetDeviceVendor, "Device, 109", 1},
        {GetDeviceProduct, "Device, 117", 1}, {GetDeviceReleaseNumber, "Device, 126", 1},
        {CreateInterfaceIterator, "Device, 153", 1}, {InterfaceIteratorNext, "Device, 160", 1},
        {CreateInterfacePlugIn, "Device, 194", 1}, {QueryInterfaceInterface, "Device, 194", 1},
        {USBInterfaceOpen, "Device, 203", 1}, {CreateInterfaceAsyncEventSource, "Device, 217", 1},
        {GetNumEndpoints, "InPipe, 53", 1}, {GetPipeProperties, "InPipe, 72", 1},
        // After those for the interrupt pipe and for its bulk partner.
        {GetNumEndpoints, "OutPipe, 40", 3}, {GetPipeProperties, "OutPipe, 59", 4}};
    // clang-format on
    for (const auto& [step, place, occurrence] : cases) {
        SimulatedDevice world;
        world.addFault(Fault::onOperation(step, platform::kIOReturnNotPermitted, occurrence));
        const auto code = step == InterfaceIteratorNext ? 0 : platform::kIOReturnNotPermitted;  // it has none
        expectFailure(world, code, place);
        EXPECT_TRUE(world.isUntouched()) << place;
        EXPECT_NO_THROW(world.openLink()) << "the failure left something behind, " << place;
    }
}

TEST(Device, UnfitOneIsRefusedWithoutACodeAndOneThatHasGoneWithIt) {
    using simulator::Profile;
    const std::pair<void (*)(Profile&), const char*> cases[] = {
        {[](Profile& p) { p.releaseNumber = 2; }, "Device, 134"},
        {[](Profile& p) { p.productId = 4; }, "Device, 134"},
        {[](Profile& p) { p.vendorId ^= 1; }, "Device, 134"},
        {[](Profile& p) { p.pipes.erase(p.pipes.begin()); }, "InPipe, 84"},
        {[](Profile& p) { p.pipes.erase(p.pipes.begin() + 1); }, "InPipe, 84"},
        {[](Profile& p) { p.pipes.pop_back(); }, "OutPipe, 71"},
    };
    for (const auto& [change, place] : cases) {
        Profile profile = Profile::instant();
        change(profile);
        SimulatedDevice world(profile);
        expectFailure(world, 0, place);
        EXPECT_TRUE(world.isUntouched());
        world.unplug();
        expectFailure(world, platform::kIOReturnNoDevice, "Device, 51");
    }
}

TEST(Device, WhoseFirstReadOrWriteIsRefusedIsAnErrorOfTheSession) {
    for (const auto& [operation, site] : {std::pair(BusOperation::ReadPipeAsync, "libs/IOU/mac/IOU_InPipe 128"),
                                          {BusOperation::WritePipeAsync, "libs/IOU/mac/IOU_OutPipe 110"}}) {
        SimulatedDevice world;
        world.addFault(Fault::onOperation(operation, platform::kIOReturnNoMemory));
        EXPECT_EQ(raisedAt<iou::BadUsbDevice_t>([&] { world.openLink(); }), site);
        EXPECT_TRUE(world.isUntouched()) << site;
    }
}

TEST(AttachNotice, TellsOfEachAttachOnceWhatIsThereIncludedUntilItGoes) {
    SimulatedDevice world;
    world.plug();
    std::vector<iou::AttachedDevice_t> told;
    {
        const iou::AttachNotice_t notice([&](const iou::AttachedDevice_t& device) { told.push_back(device); });
        EXPECT_TRUE(told.empty()) << "before the loop was served";
        for (std::size_t attaches = 1; attaches <= 2; ++attaches) {
            world.runUntilQuiet();
            ASSERT_EQ(told.size(), attaches);
            EXPECT_THAT(iou::AttachedDevices(), testing::ElementsAre(told.back()));
            world.unplug();
            world.plug();
        }
    }
    world.runUntilQuiet();
    EXPECT_EQ(told.size(), 2U) << "a notice that has gone tells of nothing";
    world.bus.addFault(Fault::onOperation(BusOperation::IOServiceAddMatchingNotification, platform::kIOReturnError));
    EXPECT_THROW(iou::AttachNotice_t([](const auto&) {}), iou::Exception_t);
}

}  // namespace
