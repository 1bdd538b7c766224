#include "platform/common/OneLine.hpp"
#include "platform/linux/usb/AccessList.hpp"
#include "platform/linux/usb/OpenFailure.hpp"
#include "platform/linux/usb/UsbNode.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace platform {
namespace {

namespace fs = std::filesystem;
using namespace ::testing;

/// A folder of its own that stands for a device's folder in sysfs, /proc and the rules' folder.
struct OpenFailureTest : Test {
    OpenFailureTest() {
        support::WriteFile(device / "uevent", "MAJOR=189\nDEVNAME=" + node.string() + "\n");
        support::WriteFile(node, "");
        fs::permissions(node, fs::perms(0664));
        fs::create_directories(folder / "proc");
    }
    OpenFailure Diagnose(IOReturn result, int may) {
        return diagnoseOpenFailure(device, result,
                                   {folder / "proc",
                                    {folder / "none", folder / "rules.d"},
                                    [may](const std::string&, int mode) { return (may & mode) == mode; }});
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

TEST_F(OpenFailureTest, CauseFitsTheResultAndWhatIsFoundAboutTheDevice) {
    using enum OpenFailureCause;
    const fs::path rule = folder / "rules.d" / kUdevRuleFile, holder = folder / "proc/4321/fd/7",
                   driverLink = device / "1-1:1.2/driver";
    fs::create_directory(folder / "rules.d");
    for (const char* process : {"4321", "4322", "self"}) fs::create_directories(folder / "proc" / process / "fd");
    support::WriteFile(folder / "proc/4321/comm", "virt\rmanager\n");
    support::WriteFile(folder / "proc/4322/comm", "bystander\n");
    fs::create_symlink("/dev/null", folder / "proc/4322/fd/7");
    fs::create_symlink(node, folder / "proc/self/fd/7");
    fs::create_directories(device / "1-1:1.2");
    const std::string noRule = "60-trovik-reset-tool.rules is not installed.",
                      hasRule = rule.string() + " is installed.", driver = "cdc_acm (interface 2).";
    enum { OldRule = 1, YoungRule = 2, Holder = 4, Driver = 8 };  // older or younger than the node
    const auto denied = kIOReturnNotPermitted, held = kIOReturnExclusiveAccess;
    const struct {
        const char* name;
        IOReturn result;
        OpenFailureCause cause;
        std::vector<std::string> says = {};  ///< besides the node and the result
        int has = 0, may = 0;                ///< what is there; what access(2) allows
    } rows[] = {
        {"no rule", denied, RuleNotInstalled, {noRule, "mode 0664", " not read and not write it."}},
        {"young rule", denied, NotAttachedSinceRule, {hasRule}, YoungRule},
        {"another's seat", denied, UserNotInAccessList, {hasRule, " read, but not write it."}, OldRule, R_OK},
        {"sandbox", denied, DeniedBeyondPermissions, {" read and write it."}, 0, R_OK | W_OK},
        {"program", held, HeldByProgram, {"held by virt\\x0Dmanager (process 4321).", driver}, Holder | Driver},
        {"driver", held, HeldByDriver, {driver}, Driver},
        {"nobody seen", held, HeldByProgram, {"No other program of this user"}},
        {"bus", kIOReturnIOError, IOFailure},
        {"endpoint", kIOUSBPipeStalled, IOFailure},
        {"going", kIOReturnNoDevice, Gone},
        {"memory", kIOReturnNoMemory, Other},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        for (const fs::path& file : {rule, holder, driverLink}) fs::remove(file);
        if (row.has & Holder) fs::create_symlink(node, holder);
        if (row.has & Driver) fs::create_symlink("../../drivers/cdc_acm", driverLink);
        if (row.has & (OldRule | YoungRule)) support::WriteFile(rule, "");
        // A change time can't be set: one of the two is changed until the clock has gone on.
        const auto changeTime = [](const fs::path& file) {
            struct stat status {};
            ::stat(file.c_str(), &status);
            return std::pair(status.st_ctim.tv_sec, status.st_ctim.tv_nsec);
        };
        const auto [older, younger] = row.has & YoungRule ? std::pair(node, rule) : std::pair(rule, node);
        while (fs::exists(rule) && changeTime(younger) <= changeTime(older)) fs::permissions(younger, fs::perms(0664));

        const OpenFailure failure = Diagnose(row.result, row.may);
        EXPECT_EQ(failure.cause, row.cause) << failure.seen;
        EXPECT_THAT(failure.seen, StartsWith("Opening " + node.string() + " gave: " + IOReturnText(row.result) + "."));
        for (const std::string& word : row.says) EXPECT_THAT(failure.seen, HasSubstr(word));
        // An I/O failure and a rule have nothing to do with each other.
        EXPECT_EQ(failure.seen.find("rule") != std::string::npos, row.result == kIOReturnNotPermitted) << failure.seen;
        EXPECT_THAT(failure.seen, Not(AnyOf(HasSubstr("\n"), HasSubstr("\r"), HasSubstr("bystander"))));
    }
    fs::remove(node);
    EXPECT_EQ(Diagnose(kIOReturnNotPermitted, 0).cause, OpenFailureCause::Gone);
}

TEST_F(OpenFailureTest, AccessListReadsAsGetfaclWritesIt) {
    const std::string header("\2\0\0\0", 4), nobody("\xFF\xFF\xFF\xFF", 4);
    const std::string list = header + std::string("\1\0\6\0", 4) + nobody + std::string("\2\0\4\0\0\0\0\0", 8) +
                             std::string("\4\0\0\0", 4) + nobody + std::string("\x10\0\6\0", 4) + nobody +
                             std::string("\x20\0\0\0", 4) + nobody;
    const std::string text = "user::rw-,user:root:r--,group::---,mask::rw-,other::---";
    EXPECT_EQ(accessListText(list), text);
    EXPECT_EQ(accessListText(std::string("\2\0\0\0\x08\0\7\0\xFE\xFF\xFF\x7F", 12)), "group:2147483646:rwx");
    for (const auto& other : {std::string(), list.substr(1), list.substr(0, list.size() - 1), "\3" + list.substr(1)})
        EXPECT_EQ(accessListText(other), "") << other.size();

    EXPECT_THAT(permissionsText(node), HasSubstr("without an access list"));
    if (::setxattr(node.c_str(), "system.posix_acl_access", list.data(), list.size(), 0) < 0)
        GTEST_SKIP() << "this file system keeps no access lists";
    EXPECT_THAT(permissionsText(node), HasSubstr("with the access list " + text + "."));
}

TEST(OneLine, HoldsNoLineBreakNorAnythingElseThatActsOrIsNoText) {
    const std::pair<std::string, std::string> rows[] = {
        {"Handheld 2 – größer 手", "Handheld 2 – größer 手"},
        {"a\nb\r\tc\x1B[2J\x7F" + std::string(1, '\0'), "a\\x0Ab\\x0D\\x09c\\x1B[2J\\x7F\\x00"},
        {"\xC2\x85|\u2028|\u2029|\u202E|\u200F|\uFEFF",
         "\\xC2\\x85|\\xE2\\x80\\xA8|\\xE2\\x80\\xA9|\\xE2\\x80\\xAE|\\xE2\\x80\\x8F|\\xEF\\xBB\\xBF"},
        {"\xFF|\x80|\xC3", "\\xFF|\\x80|\\xC3"},                                    // no first byte; alone; cut short
        {"\xC0\x8A|\xE0\x80\x8A", "\\xC0\\x8A|\\xE0\\x80\\x8A"},                    // overlong line breaks
        {"\xED\xA0\x80|\xF4\x90\x80\x80", "\\xED\\xA0\\x80|\\xF4\\x90\\x80\\x80"},  // surrogate; beyond the end
        {std::string(201, 'x'), std::string(200, 'x') + "…"},
        {std::string(199, 'x') + "é", std::string(199, 'x') + "…"},
    };
    for (const auto& [text, line] : rows) EXPECT_EQ(oneLine(text), line);
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
