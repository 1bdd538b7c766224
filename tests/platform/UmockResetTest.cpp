// A whole reset, from discovery to the resumed boot, over real libusb and libudev on an emulated bus.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "app/TrovikMode/USBTrovikModeFinderUtils.hpp"
#include "app/TrovikMode/UsbTrovikModeIoLink.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/AsioRunLoop.hpp"
#include "platform/linux/UdevRegistry.hpp"
#include "simulator/umock/UmockUsb.hpp"
#include "simulator/world/SimulatedWorld.hpp"

namespace {

using simulator::Bytes;
using simulator::Fault;
using simulator::FaultKind;
using simulator::Pipe;

constexpr double kWatchdog = 20;  // seconds

simulator::Profile QuickProfile() {
    simulator::Profile profile;
    profile.rebootTime = simulator::Duration(0);
    profile.leaveDelay = simulator::Duration(0);  // the end of the reboot command's write and the unplug come together
    return profile;
}

/// The two halves of a reset as the workflow goes them, on whatever platform is installed.
class Workflow {
  public:
    Workflow() {
        EXPECT_TRUE(USBTrovikModeFinderUtils::observeTMDevicesForType(platform::kIOServiceMatched, &Attached, this));
    }
    bool Reboot() {
        const auto present = USBTrovikModeFinderUtils::connectedPaths();
        return present && !present->empty() && Send(present->front().ioPath(), {{10, {0xAE, 0x00}, false}});
    }
    bool Clear() {
        return WaitForAttach() && Send(mAttached, {{113, {}, true}, {10, {0x27, 0x00}, false}, {1500, {}, false}});
    }
    bool WaitForAttach() {
        mAttached.clear();
        const double end = platform::CFAbsoluteTimeGetCurrent() + kWatchdog;
        while (mAttached.empty() && platform::CFAbsoluteTimeGetCurrent() < end) {
            platform::CFRunLoopGetCurrent()->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, 0.5, true);
        }
        return !mAttached.empty();
    }

  private:
    struct Command {
        std::uint16_t number;
        Bytes data;
        bool awaitResponse;
    };
    static bool Send(const std::string& path, const std::vector<Command>& commands) try {
        const auto link = UsbTrovikModeIoLink::initWithPath(path);
        for (const auto& command : commands) {
            Error error;
            if (!link || !link->sendIopCommand(command.number, command.data, command.awaitResponse, &error))
                return false;
        }
        return true;
    } catch (int) {
        return false;  // the device could not be opened
    }
    static void Attached(void* refCon, platform::IOIterator& iterator) {
        while (const auto entry = iterator.IOIteratorNext()) {
            entry->IORegistryEntryGetPath(platform::kIOServicePlane, static_cast<Workflow*>(refCon)->mAttached);
        }
    }

    std::string mAttached;
};

class UmockReset : public ::testing::Test {
  protected:
    UmockReset() {
        usb.addDevice(QuickProfile());
        usb.plug();
        platform::Platform services;
        services.masterPort = &mRegistry;
        services.runLoops = &mLoops;
        mScope.emplace(services);
    }
    std::vector<Bytes> Received() {
        std::vector<Bytes> packets;
        usb.withDevice(0, [&](simulator::Device& device, simulator::Time) {
            packets = device.record().received();
            EXPECT_EQ(device.record().refused(), std::vector<std::string>{});
        });
        return packets;
    }
    bool StoreIsEmpty() {
        bool empty = false;
        usb.withDevice(0, [&](simulator::Device& device, simulator::Time) { empty = device.store().empty(); });
        return empty;
    }
    void ExpectNothingLeft() {
        EXPECT_TRUE(usb.waitUntilClosed());
        EXPECT_EQ(usb.pendingTransfers(), 0U);
    }

    simulator::UmockUsb usb;  // first: before any thread and any look at the devices

  private:
    platform::UdevRegistry mRegistry;
    platform::AsioRunLoops mLoops;
    std::optional<platform::PlatformScope> mScope;
};

TEST_F(UmockReset, SendsByteForByteWhatItSendsToTheDeviceInProcess) {
    std::vector<Bytes> expected;
    {
        simulator::SimulatedWorld world(QuickProfile());
        world.plug();
        Workflow inProcess;
        ASSERT_TRUE(inProcess.Reboot() && inProcess.Clear());
        expected = world.device().record().received();
        ASSERT_TRUE(world.device().store().empty());
    }
    Workflow workflow;
    ASSERT_TRUE(workflow.Reboot());
    ASSERT_TRUE(workflow.Clear());
    EXPECT_TRUE(StoreIsEmpty());
    EXPECT_EQ(Received(), expected);
    ExpectNothingLeft();
}

struct Mishap {
    std::string name;
    Fault fault;
    bool duringReboot = false;
};

class UmockResetMishap : public UmockReset, public ::testing::WithParamInterface<Mishap> {};

TEST_P(UmockResetMishap, FailsTheCommandAndTheNextAttemptSucceeds) {
    usb.withDevice(0, [](simulator::Device& device, simulator::Time) { device.addFault(GetParam().fault); });
    Workflow workflow;
    ASSERT_EQ(workflow.Reboot(), !GetParam().duringReboot);
    ASSERT_FALSE(!GetParam().duringReboot && workflow.Clear());
    EXPECT_FALSE(StoreIsEmpty());
    std::size_t pending = 1;
    usb.withDevice(0, [&](simulator::Device& device, simulator::Time) { pending = device.faults().size(); });
    EXPECT_EQ(pending, 0U) << "the mishap did not happen";
    ExpectNothingLeft();

    ASSERT_TRUE(GetParam().fault.kind != FaultKind::Unplug || workflow.WaitForAttach());
    ASSERT_TRUE(workflow.Reboot());
    ASSERT_TRUE(workflow.Clear());
    EXPECT_TRUE(StoreIsEmpty());
    ExpectNothingLeft();
}

constexpr std::chrono::milliseconds kSoon{5};

INSTANTIATE_TEST_SUITE_P(
    All, UmockResetMishap,
    ::testing::Values(
        Mishap{"StallOfTheOutPipeAtTheStart", Fault::onPacket(5, FaultKind::Stall).onLayer(0), true},
        Mishap{"StallOfTheInterruptPipe", Fault::onPacket(254, FaultKind::Stall).withPipe(Pipe::InterruptIn), true},
        Mishap{"StallOfTheBulkPipe", Fault::onAnswer(253, FaultKind::Stall).withPipe(Pipe::BulkIn), true},
        Mishap{"StallOfTheOutPipeAtHold", Fault::onPacket(113, FaultKind::Stall)},
        Mishap{"UnplugAtTheStart", Fault::onPacket(5, FaultKind::Unplug).onLayer(0).comingBackAfter(kSoon), true},
        Mishap{"UnplugDuringIdentification", Fault::onAnswer(255, FaultKind::Unplug).comingBackAfter(kSoon), true},
        Mishap{"UnplugAtHold", Fault::onPacket(113, FaultKind::Unplug).comingBackAfter(kSoon)},
        Mishap{"UnplugAtTheAnswerToHold", Fault::onAnswer(113, FaultKind::Unplug).comingBackAfter(kSoon)}),
    [](const auto& instance) { return instance.param.name; });

}  // namespace
