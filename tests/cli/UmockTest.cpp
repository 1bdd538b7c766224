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

#include <sstream>
#include <string>
#include <vector>

namespace {

using std::chrono::milliseconds;
using twin::Status;

struct TwinUmock : testing::Test {
    TwinUmock() {
        for (std::uint32_t unit = 1; unit <= 4; ++unit) {
            auto profile = simulator::Profile::handheld();
            profile.unitId = unit;
            profile.rebootTime = *(profile.bootTime = milliseconds(100));
            usb.addDevice(profile);
        }
        usb.plug({0, 1, 2, 3});
    }

    Status run(const std::vector<std::string>& arguments) {
        Status status = Status::Done;
        const auto options = twin::parse(arguments, "1.0", text, text, status);
        if (!options) return status;
        twin::ScenarioScripts scripts{{}};
        const platform::PlatformScope scope({.runLoops = &loops,
                                             .masterPort = &registry,
                                             .scriptRunner = &scripts,
                                             .log = [](const std::string&) {},
                                             .lockFolder = folder.path()});
        return twin::run(
            *options,
            {.out = text, .people = text, .workers = workers, .journalFolder = folder / "journal", .version = "1.0"});
    }
    std::string port(std::size_t number) {
        const std::string path = usb.registryPath(number);
        return path.substr(path.find_last_of('/') + 1);
    }
    bool storeIsEmpty(std::size_t number) {
        bool isEmpty = false;
        usb.withDevice(number, [&](auto& device, auto) { isEmpty = device.store().empty(); });
        return isEmpty;
    }

    simulator::UmockUsb usb;
    platform::AsioRunLoops loops;
    platform::UdevRegistry devices{loops};
    twin::GatedRegistry registry{devices};
    twin::ThreadWorkers workers;
    support::TemporaryFolder folder;
    std::stringstream text;
};

TEST_F(TwinUmock, ThreeChosenDevicesAreResetAndTheFourthIsNotTouched) {
    EXPECT_EQ(run({"reset", port(0), port(1), "unit:3", "--yes"}), Status::Done) << text.str();
    EXPECT_TRUE(usb.waitUntilClosed() && usb.pendingTransfers() == 0);
    for (const std::size_t number : {0U, 1U, 2U}) EXPECT_TRUE(storeIsEmpty(number));
    EXPECT_FALSE(storeIsEmpty(3));
}

}  // namespace
