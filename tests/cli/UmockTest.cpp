// The program over the real libusb and libudev, on an emulated bus.
#include "cli/Commands.hpp"
#include "cli/Scenario.hpp"
#include "cli/UsbGate.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/usb/UdevRegistry.hpp"
#include "simulator/umock/UmockUsb.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

TEST(TwinUmock, ThreeChosenDevicesAreResetAndTheFourthIsNotTouched) {
    simulator::UmockUsb usb;
    for (std::uint32_t unit = 1; unit <= 4; ++unit) {
        auto profile = simulator::Profile::handheld();
        profile.unitId = unit;
        profile.rebootTime = *(profile.bootTime = std::chrono::milliseconds(100));
        usb.addDevice(profile);
    }
    usb.plug({0, 1, 2, 3});
    const auto port = [&](std::size_t number) { return std::filesystem::path(usb.registryPath(number)).filename(); };

    platform::AsioRunLoops loops;
    platform::UdevRegistry devices{loops};
    twin::GatedRegistry registry{devices};
    twin::ThreadWorkers workers;
    twin::ScenarioScripts scripts{{}};
    const support::TemporaryFolder folder;
    const platform::PlatformScope scope({.runLoops = &loops,
                                         .masterPort = &registry,
                                         .scriptRunner = &scripts,
                                         .log = [](const std::string&) {},
                                         .lockFolder = folder.path()});
    std::stringstream text;
    auto status = twin::Status::Failed;
    const auto options = twin::parse({"reset", port(0), port(1), "unit:3", "--yes"}, "1.0", text, text, status);
    ASSERT_TRUE(options);
    status = twin::run(
        *options,
        {.out = text, .people = text, .workers = workers, .journalFolder = folder / "journal", .version = "1.0"});
    EXPECT_EQ(status, twin::Status::Done) << text.str();
    EXPECT_TRUE(usb.waitUntilClosed() && usb.pendingTransfers() == 0);
    for (std::size_t number = 0; number < 4; ++number)
        usb.withDevice(number, [&](auto& device, auto) { EXPECT_EQ(device.store().empty(), number < 3) << number; });
}
