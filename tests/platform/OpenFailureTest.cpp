#include "platform/linux/OpenFailure.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <vector>

#include "platform/linux/UsbErrors.hpp"
#include "platform/linux/UsbNode.hpp"
#include "tests/support/TemporaryFolder.hpp"

namespace platform {
namespace {

namespace fs = std::filesystem;

/// A folder of its own that stands for a device's folder in sysfs, /proc and the rules' folder.
class OpenFailureTest : public ::testing::Test {
  protected:
    OpenFailureTest() {
        Write(device / "uevent", "MAJOR=189\nDEVNAME=" + node.string() + "\n");
        Write(node, "");
        fs::permissions(node, fs::perms(0664));
        fs::create_directories(folder / "proc");
    }
    static void Write(const fs::path& file, const std::string& text) { support::WriteFile(file, text); }
    std::string Describe(IOReturn result) {
        return DescribeOpenFailure(device, result, {folder / "proc", {folder / "none", folder / "rules.d"}});
    }

    const support::TemporaryFolder temporary;
    const fs::path folder = temporary.path(), device = folder / "1-1", node = folder / "node";
};

TEST_F(OpenFailureTest, DeniedAccessNamesNodeOwnerModeAndTheMissingRule) {
    const std::string text = Describe(kIOReturnNotPermitted);
    const std::string who = ::geteuid() == 0 ? "root:root" : std::to_string(::getegid());
    for (const std::string& part :
         {node.string() + " can't be opened: access denied.", who, std::string("mode 0664"),
          std::string("60-trovik-reset-tool.rules is not installed"), std::string("udevadm control --reload"),
          std::string("No other program of this user holds the device.")}) {
        if (part == who && ::geteuid() != 0) continue;  // any account's name
        EXPECT_NE(text.find(part), std::string::npos) << part << " in: " << text;
    }
    EXPECT_EQ(text.find('\n'), std::string::npos);
    Write(folder / "rules.d" / kUdevRuleFile, "");
    EXPECT_NE(Describe(kIOReturnNotPermitted).find("rules.d/60-trovik-reset-tool.rules is installed"),
              std::string::npos);
}

TEST_F(OpenFailureTest, HeldDeviceNamesTheProgramsAndTheKernelDriver) {
    Write(folder / "proc/4321/comm", "virt manager\n");
    Write(folder / "proc/4322/comm", "bystander\n");
    for (const char* process : {"4321", "4322", "self"}) fs::create_directories(folder / "proc" / process / "fd");
    fs::create_symlink(node, folder / "proc/4321/fd/7");
    fs::create_symlink("/dev/null", folder / "proc/4322/fd/7");
    fs::create_symlink(node, folder / "proc/self/fd/7");
    fs::create_directories(device / "1-1:1.2");
    fs::create_symlink("../../drivers/cdc_acm", device / "1-1:1.2/driver");
    const std::string text = Describe(kIOReturnExclusiveAccess);
    EXPECT_NE(text.find("It is held by virt manager (process 4321)."), std::string::npos) << text;
    EXPECT_NE(text.find("kernel driver cdc_acm (interface 2)."), std::string::npos) << text;
    EXPECT_EQ(text.find("bystander"), std::string::npos);
}

TEST_F(OpenFailureTest, DeviceThatHasGoneIsCalledGone) {
    fs::remove_all(device);
    EXPECT_EQ(DeviceNodeOfPath(device), "");
    EXPECT_NE(Describe(kIOReturnNoDevice).find("it has gone"), std::string::npos);
    fs::remove(node);
    Write(device / "uevent", "DEVNAME=" + node.string() + "\n");
    EXPECT_NE(Describe(kIOReturnNoDevice).find("The node is not there."), std::string::npos);
}

/// Opens that fail with the given errors one after the other; then the node is opened really.
class ScriptedOpener {
  public:
    ScriptedOpener(fs::path node, std::vector<int> errors) : mNode(std::move(node)), mErrors(std::move(errors)) {}
    int operator()(const std::string& node) {
        const std::size_t attempt = attempts++;
        if (attempt >= mErrors.size()) return OpenReadWrite(node);
        // From the second attempt on the folder is being watched: only then does a change count as one to wait for.
        if (attempt > 0) ::chmod(mNode.c_str(), 0666);
        errno = mErrors[attempt];
        return -1;
    }
    std::size_t attempts = 0;

  private:
    const fs::path mNode;
    const std::vector<int> mErrors;
};

TEST_F(OpenFailureTest, DeniedAccessIsTriedAgainAtEachChangeOfTheNode) {
    ScriptedOpener opener(node, {EACCES, EACCES, EACCES});
    FileDescriptor descriptor;
    EXPECT_EQ(OpenUsbNode(node, descriptor, std::ref(opener)), kIOReturnSuccess);
    EXPECT_TRUE(descriptor);
    EXPECT_EQ(opener.attempts, 4U);
}

TEST_F(OpenFailureTest, DeniedAccessToANodeThatHasBeenThereLongCountsAtOnce) {
    const timespec longAgo[2] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, node.c_str(), longAgo, 0), 0);
    const auto denied = [](const std::string&) { return errno = EACCES, -1; };
    FileDescriptor descriptor;
    EXPECT_EQ(OpenUsbNode(node, descriptor, denied), kIOReturnNotPermitted);
    EXPECT_FALSE(descriptor);
}

TEST_F(OpenFailureTest, OtherFailuresAreNotTriedAgain) {
    ScriptedOpener busy(node, {EBUSY});
    FileDescriptor descriptor;
    EXPECT_EQ(OpenUsbNode(node, descriptor, std::ref(busy)), kIOReturnExclusiveAccess);
    EXPECT_EQ(busy.attempts, 1U);
    EXPECT_EQ(OpenUsbNode(folder / "nothing", descriptor), kIOReturnNoDevice);
    // Gone while permissions were waited for.
    ScriptedOpener leaving(node, {EACCES, EACCES, ENODEV});
    EXPECT_EQ(OpenUsbNode(node, descriptor, std::ref(leaving)), kIOReturnNoDevice);
}

TEST(UsbErrors, EveryResultOfLibusbHasItsMeaning) {
    for (int error = LIBUSB_ERROR_OTHER; error < 0; ++error) {
        EXPECT_NE(IOReturnOfLibusb(error), kIOReturnSuccess) << error;
        EXPECT_STRNE(IOReturnText(IOReturnOfLibusb(error)), "unknown result") << error;
    }
    EXPECT_EQ(IOReturnOfLibusb(LIBUSB_ERROR_ACCESS), kIOReturnNotPermitted);
    EXPECT_EQ(IOReturnOfLibusb(LIBUSB_ERROR_BUSY), kIOReturnExclusiveAccess);
    EXPECT_EQ(IOReturnOfLibusb(LIBUSB_ERROR_NO_DEVICE), kIOReturnNoDevice);
    EXPECT_EQ(IOReturnOfErrno(EACCES), kIOReturnNotPermitted);
    EXPECT_EQ(IOReturnOfErrno(ENOENT), kIOReturnNoDevice);
    EXPECT_EQ(IOReturnOfErrno(E2BIG), kIOReturnError);
}

}  // namespace
}  // namespace platform
