#include <gtest/gtest.h>

#include "IOU/IOU_Exception.hpp"
#include "tests/support/UsbWorld.hpp"

namespace {

using namespace support;
using simulator::BusOperation;
using simulator::Fault;

constexpr char kDeviceFile[] = "libs/IOU/mac/IOU_Device";
constexpr char kInPipeFile[] = "libs/IOU/mac/IOU_InPipe";
constexpr char kOutPipeFile[] = "libs/IOU/mac/IOU_OutPipe";

/// "code file, line" of the line that the last failed opening wrote to the system log.
std::string loggedFailure() {
    auto const lines = SimulatedDevice::log();
    if (lines.empty()) return "no line";
    std::string const line = lines.back();
    auto const from = line.find("(0x") + 1;
    return line.substr(from, line.size() - from - 1);
}

std::string expected(platform::IOReturn code, char const* file, int line) {
    char text[128];
    std::snprintf(text, sizeof text, "0x%08X) at %s, %d", static_cast<unsigned>(code), file, line);
    return text;
}

TEST(Device, EachFailingStepOfOpeningIsReportedWithItsLineThrowsOneAndClosesEverything) {
    struct {
        BusOperation operation;
        char const* file;
        int line;
        unsigned occurrence = 1;
    } const cases[] = {
        {BusOperation::CreateDevicePlugIn, kDeviceFile, 51},
        {BusOperation::QueryDeviceInterface, kDeviceFile, 69},
        {BusOperation::USBDeviceOpen, kDeviceFile, 81},
        {BusOperation::GetConfigurationDescriptorPtr, kDeviceFile, 91},
        {BusOperation::SetConfiguration, kDeviceFile, 101},
        {BusOperation::GetDeviceVendor, kDeviceFile, 109},
        {BusOperation::GetDeviceProduct, kDeviceFile, 117},
        {BusOperation::GetDeviceReleaseNumber, kDeviceFile, 126},
        {BusOperation::CreateInterfaceIterator, kDeviceFile, 153},
        {BusOperation::CreateInterfacePlugIn, kDeviceFile, 194},
        {BusOperation::QueryInterfaceInterface, kDeviceFile, 194},
        {BusOperation::USBInterfaceOpen, kDeviceFile, 203},
        {BusOperation::CreateInterfaceAsyncEventSource, kDeviceFile, 217},
        {BusOperation::GetNumEndpoints, kInPipeFile, 53},
        {BusOperation::GetPipeProperties, kInPipeFile, 72},
        {BusOperation::GetNumEndpoints, kInPipeFile, 53, 2},  // the bulk partner's
        {BusOperation::GetNumEndpoints, kOutPipeFile, 40, 3},
        {BusOperation::GetPipeProperties, kOutPipeFile, 59, 4},  // after 1 for interrupt, 2 for bulk in
    };
    for (auto const& c : cases) {
        SimulatedDevice world;
        world.addFault(Fault::onOperation(c.operation, platform::kIOReturnNotPermitted, c.occurrence));
        int thrown = 0;
        try {
            world.openLink();
        } catch (int number) {
            thrown = number;
        }
        EXPECT_EQ(thrown, 1) << c.line;
        EXPECT_EQ(loggedFailure(), expected(platform::kIOReturnNotPermitted, c.file, c.line));
        EXPECT_TRUE(world.isUntouched()) << c.line;
        EXPECT_NO_THROW(world.openLink()) << "the failure left something behind, " << c.line;
    }
}

TEST(Device, UnfitOneIsRefusedWithoutACode) {
    using simulator::Profile;
    struct {
        void (*change)(Profile&);
        char const* file;
        int line;
    } const cases[] = {
        {[](Profile& p) { p.releaseNumber = 2; }, kDeviceFile, 134},
        {[](Profile& p) { p.productId = 4; }, kDeviceFile, 134},
        {[](Profile& p) { p.vendorId ^= 1; }, kDeviceFile, 134},
        {[](Profile& p) { p.pipes.erase(p.pipes.begin()); }, kInPipeFile, 84},
        {[](Profile& p) { p.pipes.erase(p.pipes.begin() + 1); }, kInPipeFile, 84},
        {[](Profile& p) { p.pipes.pop_back(); }, kOutPipeFile, 71},
    };
    for (auto const& c : cases) {
        Profile profile = Profile::instant();
        c.change(profile);
        SimulatedDevice world(profile);
        EXPECT_THROW(world.openLink(), int) << c.line;
        EXPECT_EQ(loggedFailure(), expected(0, c.file, c.line));
        EXPECT_TRUE(world.isUntouched());
    }
}

TEST(Device, WithoutAnInterfaceOrNotThereAnyMoreFailsToOpen) {
    SimulatedDevice world;
    world.addFault(Fault::onOperation(BusOperation::InterfaceIteratorNext, platform::kIOReturnNoDevice));
    EXPECT_THROW(world.openLink(), int);
    EXPECT_EQ(loggedFailure(), expected(0, kDeviceFile, 160));

    world.unplug();
    EXPECT_THROW(world.openLink(), int);
    EXPECT_EQ(loggedFailure(), expected(platform::kIOReturnNoDevice, kDeviceFile, 51));
    EXPECT_TRUE(world.isUntouched());
}

TEST(Device, WhoseFirstReadIsRefusedIsAnErrorOfTheSession) {
    SimulatedDevice world;
    world.addFault(Fault::onOperation(BusOperation::ReadPipeAsync, platform::kIOReturnNoMemory));
    EXPECT_EQ(raisedAt<iou::BadUsbDevice_t>([&] { world.openLink(); }), std::string(kInPipeFile) + " 128");
    EXPECT_TRUE(world.isUntouched());
}

TEST(Device, PicksThePipesByTypeAndDirectionAndNotByPosition) {
    auto profile = simulator::Profile::instant();
    std::swap(profile.pipes.front(), profile.pipes.back());
    SimulatedDevice world(profile);
    auto link = world.openLink();
    EXPECT_EQ(link.UnitId(), profile.unitId);
}

}  // namespace
