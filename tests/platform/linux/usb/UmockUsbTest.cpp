#include "IOU/IOU_UsbLink.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/usb/OpenFailure.hpp"
#include "tests/support/UmockBackend.hpp"
#include "tests/support/UsbContract.hpp"

#include <gmock/gmock.h>
#include <libudev.h>

#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <utility>

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
using namespace testing;

std::vector<std::string> gLog;

/// Two devices on the emulated bus, both plugged; what the platform logs is kept.
struct UmockUsbTest : Test, support::UmockBackend {
    UmockUsbTest() {
        gLog.clear();
        usb.addDevice();
        usb.plug({0, 1});
        path = usb.registryPath(0);
    }

    void Send(std::uint16_t id) { send(contract::packetOfSize(20, id)); }
    void ExpectNotOpened() {
        EXPECT_THAT([&] { iou::UsbLink_t(mCancel, path); }, Throws<int>(1));
    }

    std::string path;
    thr::CancelRequestedFunctor_t mCancel;
    PlatformScope mScope{
        {.runLoops = &runLoops(),
         .masterPort = &registry(),
         .log = [](const std::string& line) { gLog.push_back(line); },
         .describeOpenFailure = [](const auto& where,
                                   IOReturn result) { return diagnoseOpenFailure(where, result).seen; }}};
};

TEST_F(UmockUsbTest, DevicesOfOneMomentComeInOneNotificationAndEachAttachOnce) {
    contract::Listener arrivals(registry()), departures(registry());
    ASSERT_EQ(arrivals.subscribe(), kIOReturnSuccess);
    ASSERT_EQ(departures.subscribe(kIOServiceTerminate), kIOReturnSuccess);
    EXPECT_EQ(contract::drain(*arrivals.iterator), contract::present(registry()));
    EXPECT_TRUE(contract::drain(*departures.iterator).empty());
    for (const bool loses : {false, true}) {
        SCOPED_TRACE(loses);
        gLosesEvents = loses;
        const auto before = contract::present(registry());
        ASSERT_EQ(before.size(), 2U);
        for (const std::size_t port : {0U, 1U}) usb.unplug(port);
        usb.plug({0, 1});
        usb.announceAgain(0);
        // Sources that are added late deliver what has come meanwhile.
        if (!loses) {
            for (auto* listener : {&arrivals, &departures}) listener->listen(loop());
        }
        EXPECT_TRUE(contract::runUntil(loop(), kCFRunLoopDefaultMode,
                                       [&] { return !arrivals.groups.empty() && !departures.groups.empty(); }));
        usb.announceAgain(0);
        loop().CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, false);
        EXPECT_THAT(std::exchange(arrivals.groups, {}), ElementsAre(contract::present(registry())));
        EXPECT_THAT(std::exchange(departures.groups, {}),
                    ElementsAre(ElementsAre(before[0].afterwards(), before[1].afterwards())));
    }
    gLosesEvents = false;
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
    for (std::size_t i = 1; i <= 4; ++i) {
        if (i <= 2) {
            EXPECT_THROW(opened.runUntilCompletions(i), std::runtime_error);
        } else {
            EXPECT_TRUE(opened.runUntilCompletions(i));
        }
        EXPECT_EQ(opened.completions.size(), i);
    }
}

TEST_F(UmockUsbTest, WhatTheKernelHasForUsComesBeforeATimeOutThatIsDue) {
    Opened opened(*this, path);
    for (int i = 0; i < 2; ++i) opened.read(opened.interruptIn);
    Send(78);
    usb.unplug();
    // The failure, which keeps out of the run of the success before it, is still in time.
    const auto timeOut = loop().CFRunLoopAddTimer("contract", CFAbsoluteTimeGetCurrent(), 0,
                                                  [&] { EXPECT_EQ(opened.completions.size(), 2U); });
    while (timeOut->CFRunLoopTimerIsValid()) loop().CFRunLoopRunInMode("contract", 10, true);
}

TEST_F(UmockUsbTest, InterfaceMayBeClosedByItsOwnCompletion) {
    Opened opened(*this, path);
    opened.read(opened.bulkIn);
    opened.onCompletion = [&] { opened.close(); };
    for (int i = 0; i < 2; ++i) opened.read(opened.interruptIn);
    for (std::uint16_t id = 1; id <= 2; ++id) Send(id);
    loop().CFRunLoopRunInMode("contract", 10, true);
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
    for (int i = 0; i < 50; ++i) {
        const std::jthread other([loop = &backend.loop()] {  // mostly finds the loop waiting for the device
            loop->CFRunLoopPerformBlock("contract", [loop] { loop->CFRunLoopStop(); });
        });
        ASSERT_EQ(backend.loop().CFRunLoopRunInMode("contract", 30, false), CFRunLoopRunResult::Stopped) << "not woken";
    }
    backend.unplug();
    ASSERT_TRUE(opened.runUntilCompletions(1));
    EXPECT_LE(served(), 2) << "gone";
}

}  // namespace
}  // namespace platform

INSTANTIATE_TYPED_TEST_SUITE_P(RealLibrariesOnQueue, UsbContract, support::UmockBackend);
INSTANTIATE_TYPED_TEST_SUITE_P(RealLibrariesOnTerminal, UsbContract, platform::OnTerminalNode);
