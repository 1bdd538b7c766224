#include "platform/linux/usb/OpenFailure.hpp"
#include "platform/linux/usb/UsbNode.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>
#include <utility>
#include <vector>

namespace platform {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

/// A folder of its own that stands for a device's folder in sysfs, /proc and the rules' folder.
class OpenFailureTest : public ::testing::Test {
  protected:
    OpenFailureTest() {
        support::WriteFile(device / "uevent", "MAJOR=189\nDEVNAME=" + node.string() + "\n");
        support::WriteFile(node, "");
        fs::permissions(node, fs::perms(0664));
        fs::create_directories(folder / "proc");
    }
    std::string Describe(IOReturn result) {
        return describeOpenFailure(device, result, {folder / "proc", {folder / "none", folder / "rules.d"}});
    }

    /// Opens that fail with the given errors one after the other; then the node is opened really.
    NodeOpener FailsWith(std::vector<int> errors) {
        attempts = 0;
        return [this, errors = std::move(errors)](const std::string& path) {
            const std::size_t attempt = attempts++;
            if (attempt >= errors.size()) return openReadWrite(path);
            // From the second attempt on the folder is being watched: only then does a change count as one to wait for.
            if (attempt > 0) fs::permissions(node, fs::perms(0666));
            errno = errors[attempt];
            return -1;
        };
    }

    const support::TemporaryFolder temporary;
    const fs::path folder = temporary.path(), device = folder / "1-1", node = folder / "node";
    std::size_t attempts = 0;  ///< to open the node
    FileDescriptor descriptor;
};

TEST_F(OpenFailureTest, DeniedAccessNamesNodeOwnerModeAndTheMissingRuleAndANodeThatHasGoneIsCalledGone) {
    const std::string text = Describe(kIOReturnNotPermitted);
    const std::string start = node.string() + " can't be opened: access denied.";
    for (const char* const part :
         {start.c_str(), "mode 0664", "60-trovik-reset-tool.rules is not installed", "udevadm control --reload",
          "No other program of this user holds the device.", ::geteuid() == 0 ? "root:root" : ":"}) {
        EXPECT_THAT(text, HasSubstr(part));
    }
    EXPECT_THAT(text, Not(HasSubstr("\n")));
    support::WriteFile(folder / "rules.d" / kUdevRuleFile, "");
    EXPECT_THAT(Describe(kIOReturnNotPermitted), HasSubstr("rules.d/60-trovik-reset-tool.rules is installed"));
    fs::remove(node);
    EXPECT_THAT(Describe(kIOReturnNoDevice), HasSubstr("The node is not there."));
}

TEST_F(OpenFailureTest, HeldDeviceNamesTheProgramsAndTheKernelDriver) {
    support::WriteFile(folder / "proc/4321/comm", "virt manager\n");
    support::WriteFile(folder / "proc/4322/comm", "bystander\n");
    for (const char* process : {"4321", "4322", "self"}) fs::create_directories(folder / "proc" / process / "fd");
    fs::create_symlink(node, folder / "proc/4321/fd/7");
    fs::create_symlink("/dev/null", folder / "proc/4322/fd/7");
    fs::create_symlink(node, folder / "proc/self/fd/7");
    fs::create_directories(device / "1-1:1.2");
    fs::create_symlink("../../drivers/cdc_acm", device / "1-1:1.2/driver");
    const std::string text = Describe(kIOReturnExclusiveAccess);
    EXPECT_THAT(text, HasSubstr("It is held by virt manager (process 4321)."));
    EXPECT_THAT(text, HasSubstr("kernel driver cdc_acm (interface 2)."));
    EXPECT_THAT(text, Not(HasSubstr("bystander")));
}

TEST_F(OpenFailureTest, DeniedAccessToANewNodeIsTriedAgainAtEachChangeOfItAndNothingElseIs) {
    EXPECT_EQ(openUsbNode(node, descriptor, FailsWith({EACCES, EACCES, EACCES})), kIOReturnSuccess);
    EXPECT_TRUE(descriptor);
    EXPECT_EQ(attempts, 4U);
    EXPECT_EQ(openUsbNode(node, descriptor, FailsWith({EBUSY})), kIOReturnExclusiveAccess);
    EXPECT_EQ(attempts, 1U);
    // Gone while permissions were waited for.
    EXPECT_EQ(openUsbNode(node, descriptor, FailsWith({EACCES, EACCES, ENODEV})), kIOReturnNoDevice);

    const timespec longAgo[2] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, node.c_str(), longAgo, 0), 0);
    EXPECT_EQ(openUsbNode(node, descriptor, FailsWith({EACCES, EACCES, EACCES})), kIOReturnNotPermitted);
    EXPECT_FALSE(descriptor);

    const timespec ahead{::time(nullptr) + 3600, 0}, inAnHour[2] = {ahead, ahead};
    ASSERT_EQ(::utimensat(AT_FDCWD, node.c_str(), inAnHour, 0), 0);
    EXPECT_EQ(permissionGraceLeft(node), std::chrono::seconds(2)) << "the clock was set back";
}

}  // namespace
}  // namespace platform
