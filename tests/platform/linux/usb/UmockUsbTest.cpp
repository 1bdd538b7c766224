#include "IOU/IOU_UsbLink.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/usb/OpenFailure.hpp"
#include "tests/support/UmockBackend.hpp"
#include "tests/support/UsbContract.hpp"

#include <gmock/gmock.h>
#include <libudev.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <semaphore>
#include <stdexcept>
#include <thread>

namespace {
bool gLosesEvents = false;  // as a socket does that has overflowed; the emulated one can't
}

extern "C" udev_device* udev_monitor_receive_device(udev_monitor* monitor) {
    static const auto real =
        reinterpret_cast<decltype(&udev_monitor_receive_device)>(dlsym(RTLD_NEXT, "udev_monitor_receive_device"));
    udev_device* const device = real(monitor);
    if (!device || !gLosesEvents) return device;
    udev_device_unref(device);
    errno = ENOBUFS;
    return nullptr;
}

namespace platform {
namespace {

using contract::Opened;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

std::vector<std::string> gLog;

/// Two devices on the emulated bus, both plugged; what the platform logs is kept.
class UmockUsbTest : public ::testing::Test, public support::UmockBackend {
  protected:
    UmockUsbTest() {
        gLog.clear();
        usb.addDevice();
        usb.plug({0, 1});
        path = usb.registryPath(0);
    }

    void Send(std::uint16_t id) { send(contract::packetOfSize(20, id)); }
    iou::UsbLink_t OpenAsLink() { return {mCancel, path, iou::UsbLink_t::PacketCheckingModeDefault, 30'000}; }
    void ExpectNotOpened() {
        EXPECT_THAT([&] { OpenAsLink(); }, testing::Throws<int>(1));
    }

    std::string path;

  private:
    thr::CancelRequestedFunctor_t mCancel;
    static void Log(const std::string& line) { gLog.push_back(line); }
    static std::string Diagnose(const std::string& registryPath, IOReturn result) {
        return diagnoseOpenFailure(registryPath, result).seen;
    }
    PlatformScope mScope{
        {.runLoops = &runLoops(), .masterPort = &registry(), .log = Log, .describeOpenFailure = Diagnose}};
};

TEST_F(UmockUsbTest, DevicesOfOneMomentComeInOneNotificationAndEachAttachOnce) {
    usb.unplug(0);
    usb.unplug(1);
    contract::Listener listener(registry());
    ASSERT_EQ(listener.subscribe(), kIOReturnSuccess);
    EXPECT_TRUE(contract::drain(*listener.iterator).empty());
    usb.plug({0, 1});
    // A source that is added late delivers what has come meanwhile.
    const auto source = listener.port->IONotificationPortGetRunLoopSource();
    loop().CFRunLoopAddSource(source, kCFRunLoopDefaultMode);
    loop().CFRunLoopRunInMode(kCFRunLoopDefaultMode, 10, true);
    const auto present = contract::present(registry());
    ASSERT_EQ(present.size(), 2U);
    EXPECT_EQ(listener.groups, decltype(listener.groups){present});

    contract::Listener departures(registry());
    ASSERT_EQ(departures.subscribe(kIOServiceTerminate), kIOReturnSuccess);
    loop().CFRunLoopAddSource(departures.port->IONotificationPortGetRunLoopSource(), kCFRunLoopDefaultMode);

    for (const bool loses : {false, true}) {
        SCOPED_TRACE(loses);
        gLosesEvents = loses;
        const auto before = contract::present(registry());
        listener.groups.clear();
        departures.groups.clear();
        usb.announceAgain(0);
        usb.unplug(1);
        usb.plug(1);
        EXPECT_TRUE(contract::runUntil(loop(), kCFRunLoopDefaultMode,
                                       [&] { return !listener.groups.empty() && !departures.groups.empty(); }));
        const auto now = contract::present(registry());
        EXPECT_NE(now.at(1).id, before.at(1).id);
        EXPECT_THAT(departures.groups, ElementsAre(ElementsAre(before[1].afterwards())));
        EXPECT_THAT(listener.groups, ElementsAre(ElementsAre(now[1]))) << "not the one that was only announced again";
    }
    gLosesEvents = false;
    loop().CFRunLoopRemoveSource(source);
}

TEST_F(UmockUsbTest, KernelDriverIsDetachedAndGivenBack) {
    usb.unplug();
    usb.withDevice(0, [](simulator::Device& device, simulator::Time) { device.profile().interfaces = 2; });
    usb.plug();
    usb.setDriver("cdc_acm");
    usb.setDriver("cdc_ether", 1);
    {
        Opened opened(*this, path);
        EXPECT_EQ(usb.driver() + usb.driver(1), "");
        opened.read(opened.interruptIn);
    }
    EXPECT_EQ(usb.driver() + " " + usb.driver(1), "cdc_acm cdc_ether");
    EXPECT_TRUE(gLog.empty());
}

TEST_F(UmockUsbTest, DeviceOfAnotherProgramIsLeftAloneAndTheLogSaysSo) {
    usb.setDriver("usbfs");
    ExpectNotOpened();
    EXPECT_EQ(usb.driver(), "usbfs");
    EXPECT_THAT(gLog, ElementsAre(AllOf(HasSubstr("Opening /dev/bus/usb/001/002 gave: held by another program."),
                                        EndsWith(" (0xE00002C5) at libs/IOU/mac/IOU_Device, 101\n"))));
}

TEST_F(UmockUsbTest, DeviceThatIsGoingOrHasGoneIsNotOpenedNorTheNextOneOnItsPort) {
    const auto device = contract::deviceAt(registry(), path);
    ASSERT_TRUE(std::filesystem::remove(getenv("UMOCKDEV_DIR") + std::string("/dev/bus/usb/001/002")));
    EXPECT_EQ(device->USBDeviceOpen(), kIOReturnNoDevice);
    EXPECT_TRUE(isAtRest());
    usb.unplug();
    EXPECT_EQ(device->USBDeviceOpen(), kIOReturnNoDevice);
    ExpectNotOpened();
    EXPECT_THAT(gLog, ElementsAre(HasSubstr("There is no device at ")));
    usb.plug();
    EXPECT_EQ(device->USBDeviceOpen(), kIOReturnNoDevice);
}

TEST_F(UmockUsbTest, CompletionThatThrowsLosesNoneOfThoseBehindItAndAFailureStillGetsARunOfItsOwn) {
    Opened opened(*this, path);
    opened.onCompletion = [&] {
        if (opened.completions.size() <= 2) throw std::runtime_error("from a completion");
    };
    for (int i = 0; i < 4; ++i) opened.read(opened.interruptIn);
    // All four have ended by the time the mode runs.
    for (std::uint16_t id = 0; id < 3; ++id) Send(id);
    usb.unplug();
    int thrown = 0;
    for (std::size_t i = 1; i <= 4; ++i) {
        try {
            opened.runUntilCompletions(i);
        } catch (const std::runtime_error&) {
            ++thrown;
        }
        EXPECT_EQ(opened.completions.size(), i);
    }
    EXPECT_EQ(thrown, 2);
}

TEST_F(UmockUsbTest, WhatTheKernelHasForUsComesBeforeATimeOutThatIsDue) {
    {
        auto link = OpenAsLink();
        Send(77);
        EXPECT_EQ(link.GetFrameWithTimeout(0).Id(), 77);
    }
    // A failure that keeps out of the run of the success before it is still in time.
    Opened opened(*this, path);
    for (int i = 0; i < 2; ++i) opened.read(opened.interruptIn);
    Send(78);
    usb.unplug();
    const auto timeOut = loop().CFRunLoopAddTimer("contract", CFAbsoluteTimeGetCurrent(), 0,
                                                  [&] { EXPECT_EQ(opened.completions.size(), 2U); });
    while (timeOut->CFRunLoopTimerIsValid()) loop().CFRunLoopRunInMode("contract", 10, true);
}

TEST_F(UmockUsbTest, InterfaceMayBeClosedByItsOwnCompletion) {
    Opened opened(*this, path);
    opened.read(opened.bulkIn);
    opened.onCompletion = [&] { opened.close(); };
    for (int i = 0; i < 2; ++i) opened.read(opened.interruptIn);
    Send(1);
    Send(2);
    loop().CFRunLoopRunInMode("contract", 10, true);
    EXPECT_FALSE(opened.interface);
    EXPECT_EQ(opened.completions.size(), 1U) << "reported after the close";
    EXPECT_EQ(gLog, std::vector<std::string>{}) << "no transfer was left behind";
    EXPECT_TRUE(isAtRest());
}

/// A node that hangs up, as a real one does.
struct OnTerminalNode : support::UmockBackend {
    OnTerminalNode() : UmockBackend(Node::Terminal) {}
};
using UmockHangUpTest = contract::UsbContract<OnTerminalNode>;

TEST_F(UmockHangUpTest, DeviceThatIsSilentOrHasGoneDoesNotKeepItsLoopBusyNorFromItsBlocks) {
    Opened opened = open();
    opened.read(opened.interruptIn);
    // What libusb tells itself is served once; then there is nothing more.
    const auto served = [&] {
        int runs = 0;
        while (runs < 10 && backend.loop().CFRunLoopRunInMode("contract", 0.05, true) != CFRunLoopRunResult::TimedOut)
            ++runs;
        return runs;
    };
    EXPECT_LE(served(), 2) << "silent";
    std::binary_semaphore isServed(0);
    std::thread other([&, loop = &backend.loop()] {  // mostly finds the loop waiting for the device
        bool goesOn = true;
        for (int i = 0; i < 50 && goesOn; ++i) {
            loop->CFRunLoopPerformBlock("contract", [&] { isServed.release(); });
            goesOn = isServed.try_acquire_for(std::chrono::seconds(30));
        }
        EXPECT_TRUE(goesOn) << "not woken";
        loop->CFRunLoopPerformBlock("contract", [loop] { loop->CFRunLoopStop(); });
    });
    EXPECT_EQ(backend.loop().CFRunLoopRunInMode("contract", 60, false), CFRunLoopRunResult::Stopped);
    other.join();
    backend.unplug();
    ASSERT_TRUE(opened.runUntilCompletions(1));
    EXPECT_LE(served(), 2) << "gone";
}

}  // namespace
}  // namespace platform

INSTANTIATE_TYPED_TEST_SUITE_P(RealLibrariesOnQueue, UsbContract, support::UmockBackend);
INSTANTIATE_TYPED_TEST_SUITE_P(RealLibrariesOnTerminal, UsbContract, platform::OnTerminalNode);
