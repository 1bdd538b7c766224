#include "platform/Platform.hpp"
#include "platform/linux/settings/UserDefaults.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <sys/fsuid.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {
std::vector<fs::path> gSynced;  // what was there under which name when it was synced
}

// Takes the place of the C library's.
extern "C" int fsync(int descriptor) {
    gSynced.push_back(fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor)));
    if (fs::is_directory(gSynced.back())) {
        for (const auto& entry : fs::directory_iterator(gSynced.back())) gSynced.push_back(entry.path());
    }
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

namespace platform {
namespace {

using Dictionary = PropertyList::Dictionary;

constexpr const char* kDomain = "org.example.App";
const std::string kBig(100'000, 'x');  // takes more than one page of the file

std::vector<std::string> gLog;
std::string gTemporary;  // the file that is the lock

class UserDefaultsTest : public ::testing::Test {
  protected:
    support::TemporaryFolder home;
    const std::string folder = home / "a/Trovik";
    const std::string file = folder + "/org.example.App.plist";
    UserDefaults defaults{kDomain, folder};

    UserDefaultsTest() {
        gLog.clear();
        gTemporary = folder + "/.org.example.App.plist.new";
    }

    std::ptrdiff_t FilesInFolder() const {
        return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
    }

    /// What another run of the program finds.
    Dictionary Stored() const { return UserDefaults(kDomain, folder).persistentDomainForName(kDomain); }

    template <typename Body>
    static pid_t Child(Body body) {
        const pid_t child = fork();
        if (child == 0) _exit(body() ? 0 : 1);
        return child;
    }

    const PlatformScope scope{{.log = [](const std::string& line) {
        gLog.push_back(line);  // which may take as long as a console likes
        EXPECT_FALSE(fs::exists(gTemporary)) << "the lock is held: " << line;
    }}};
};

TEST_F(UserDefaultsTest, ValuesAreReadByTheNextRunAndByTheirType) {
    const std::tuple<PropertyList, bool, std::int64_t> cases[] = {{{std::string("\xC3\xA4")}, false, 0},
                                                                  {{std::string("yEs")}, true, 0},
                                                                  {{std::string(" 12 x")}, false, 12},
                                                                  {{true}, true, 1},
                                                                  {{std::int64_t{7}}, true, 7},
                                                                  {{std::int64_t{0}}, false, 0},
                                                                  {{2.9}, true, 2},
                                                                  {{1e300}, true, INT64_MAX},
                                                                  {{PropertyList::Data{1}}, false, 0}};
    Dictionary all;
    for (const auto& c : cases) all[std::to_string(all.size())] = std::get<0>(c);
    ASSERT_TRUE(defaults.setPersistentDomain(all, kDomain));
    const UserDefaults next(kDomain, folder);
    for (std::size_t i = 0; i < all.size(); ++i) {
        const auto& [value, truth, number] = cases[i];
        EXPECT_EQ(next.objectForKey(std::to_string(i)), value);
        EXPECT_EQ(next.boolForKey(std::to_string(i)), truth) << i;
        EXPECT_EQ(next.integerForKey(std::to_string(i)), number) << i;
    }
    EXPECT_FALSE(next.objectForKey("missing") || next.boolForKey("missing") || next.integerForKey("missing"));
    EXPECT_EQ(FilesInFolder(), 1);
}

TEST_F(UserDefaultsTest, TheFolderIsThatOfTheUsersConfiguration) {
    setenv("XDG_CONFIG_HOME", home.path().c_str(), 1);
    ASSERT_TRUE(UserDefaults(kDomain).setPersistentDomain({{"a", {true}}}, kDomain));
    EXPECT_TRUE(fs::exists(home / "Trovik/org.example.App.plist"));
    for (const char* domain : {"", "../App", "/App"}) EXPECT_FALSE(defaults.setPersistentDomain({}, domain)) << domain;
}

TEST_F(UserDefaultsTest, WhatAnotherProcessWroteMeanwhileIsKept) {
    const PropertyList one{std::int64_t{1}}, two{std::int64_t{2}}, three{std::int64_t{3}};
    const Dictionary before = {{"mine", one}, {"theirs", one}, {"both", one}, {"dropped", one}};
    ASSERT_TRUE(defaults.setPersistentDomain(before, kDomain));
    ASSERT_EQ(defaults.persistentDomainForName(kDomain), before);
    Dictionary mine = {{"mine", three}, {"theirs", one}, {"both", three}};
    ASSERT_TRUE(UserDefaults(kDomain, folder)
                    .setPersistentDomain(
                        {{"mine", one}, {"theirs", two}, {"both", two}, {"dropped", one}, {"new", two}}, kDomain));
    for (int round = 0; round < 2; ++round) {  // again, without reading in between
        ASSERT_TRUE(defaults.setPersistentDomain(mine, kDomain));
        EXPECT_EQ(Stored(), (Dictionary{{"mine", three}, {"theirs", two}, {"both", three}, {"new", two}}));
    }
    mine["mine"] = one;  // as it was when the domain was last read
    ASSERT_TRUE(defaults.setPersistentDomain(mine, kDomain));
    EXPECT_EQ(Stored().at("mine"), one);
    ASSERT_TRUE(UserDefaults(kDomain, folder).setPersistentDomain({}, kDomain)) << "never read: replaced whole";
    EXPECT_EQ(Stored(), Dictionary{});
}

TEST_F(UserDefaultsTest, AFileThatIsNoPropertyListOrTheLinkToItIsSetAsideOnceAndNeverLost) {
    for (const char* damage : {"first damage", "<plist><array/></plist>", ""}) {
        support::WriteFile(file, damage);
        EXPECT_FALSE(defaults.boolForKey("a") || defaults.boolForKey("a"));
    }
    support::WriteFile(home / "kept", "behind a link");
    for (const bool isWriting : {false, true}) {
        fs::create_symlink(home / "kept", file);
        EXPECT_EQ(isWriting ? defaults.setPersistentDomain({}, kDomain) : defaults.boolForKey("a"), isWriting);
    }
    EXPECT_EQ(support::ReadFile(file), formatPropertyList({Dictionary()}));
    EXPECT_EQ(gLog.size(), 5u);
    EXPECT_EQ(support::ReadFile(file + ".damaged-1"), "first damage");
    EXPECT_EQ(fs::read_symlink(file + ".damaged-5"), home / "kept");
    EXPECT_EQ(support::ReadFile(home / "kept"), "behind a link");
    EXPECT_EQ(FilesInFolder(), 6);
}

TEST_F(UserDefaultsTest, ASoundFileBehindALinkIsReplacedThereAndItsPermissionsStay) {
    support::WriteFile(home / "kept", formatPropertyList({Dictionary()}));
    fs::permissions(home / "kept", fs::perms(0640));
    fs::create_directories(folder);
    fs::create_symlink(home / "kept", file);
    ASSERT_TRUE(defaults.setPersistentDomain({{"a", {true}}}, kDomain));
    EXPECT_EQ(fs::read_symlink(file), home / "kept");
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0640));
    EXPECT_TRUE(defaults.boolForKey("a"));
}

TEST_F(UserDefaultsTest, WhatCantBeReadOrWrittenStaysAsItIs) {
    fs::create_directories(folder);
    for (const auto& path : {home.path(), fs::path(home / "a"), fs::path(folder)})
        fs::permissions(path, fs::perms::all);
    mkfifo((home / "pipe").c_str(), 0);
    fs::permissions(home / "pipe", fs::perms::all);
    for (const std::string kind : {"folder", "link to a pipe", "forbidden"}) {
        SCOPED_TRACE(kind);
        if (kind == "folder") fs::create_directory(file);
        if (kind == "link to a pipe") fs::create_symlink(home / "pipe", file);
        if (kind == "forbidden") close(open(file.c_str(), O_CREAT | O_WRONLY, 0));
        struct stat before {
        }, after{};
        lstat(file.c_str(), &before);
        setfsuid(65534);  // root may read everything
        EXPECT_FALSE(defaults.boolForKey("a") || defaults.setPersistentDomain({{"a", {true}}}, kDomain));
        setfsuid(geteuid());
        EXPECT_TRUE(lstat(file.c_str(), &after) == 0 && after.st_ino == before.st_ino && FilesInFolder() == 1);
        fs::remove(file);
    }
    EXPECT_FALSE(UserDefaults(kDomain, home / "pipe/Trovik").setPersistentDomain({{"a", {true}}}, kDomain));
    for (const std::string& text : {std::string(4u << 20, 'x'), std::string("a\0b", 3)})
        EXPECT_FALSE(defaults.setPersistentDomain({{"a", {text}}}, kDomain)) << "could not be read back";
    EXPECT_EQ(FilesInFolder(), 0);
}

TEST_F(UserDefaultsTest, AFullDiskLeavesTheOldFileAndTheNextSaveIsWholeAndSynced) {
    ASSERT_TRUE(defaults.setPersistentDomain({{"a", {std::string("old")}}}, kDomain));
    const std::string before = support::ReadFile(file);
    for (const rlim_t size : {0u, 1u, 4096u, 50'000u}) {
        const auto save = [&] {
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{size, RLIM_INFINITY};
            setrlimit(RLIMIT_FSIZE, &limit);
            return defaults.setPersistentDomain({{"a", {kBig}}}, kDomain);
        };
        EXPECT_EXIT(_exit(save() ? 0 : 1), ::testing::ExitedWithCode(1), "") << size;
        EXPECT_EQ(support::ReadFile(file), before) << size;
    }
    EXPECT_EQ(FilesInFolder(), 1) << "a part of a file was left behind";
    support::WriteFile(gTemporary, kBig + kBig);  // left over
    gSynced.clear();
    EXPECT_TRUE(defaults.setPersistentDomain({{"a", {kBig}}}, kDomain));
    EXPECT_EQ(support::ReadFile(file), formatPropertyList({Dictionary{{"a", {kBig}}}}));
    EXPECT_EQ(gSynced, (std::vector<fs::path>{gTemporary, folder, file})) << "each after it was changed";
}

// The child is stopped at the beginning and at the end of each system call of one save in turn, and killed there.
TEST_F(UserDefaultsTest, AKillAtAnySystemCallOfASaveLeavesTheOldOrTheNewFileWhole) {
    const Dictionary contents[] = {{{"a", {kBig}}}, {{"a", {kBig + "new"}}}};
    int found[2] = {};  // how often the old contents were there after a kill, and the new ones
    for (int stops = 0, status = 0; !WIFEXITED(status) || stops == 0; ++stops) {
        ASSERT_LT(stops, 100'000);
        ASSERT_TRUE(defaults.setPersistentDomain(contents[0], kDomain));
        const pid_t child = Child([&] {
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            raise(SIGSTOP);
            return defaults.setPersistentDomain(contents[1], kDomain);
        });
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSTOPPED(status)) << "this system doesn't let a process trace its child";
        for (int i = 0; i < stops && WIFSTOPPED(status); ++i) {
            ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
            waitpid(child, &status, 0);
        }
        if (WIFSTOPPED(status)) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
        }
        const Dictionary stored = Stored();
        ASSERT_TRUE(stored == contents[0] || stored == contents[1]) << "after " << stops << " stops";
        ASSERT_TRUE(!WIFEXITED(status) || stored == contents[1]);
        ++found[stored == contents[1]];
    }
    EXPECT_GT(found[0], 10);
    EXPECT_GT(found[1], 3);
    EXPECT_TRUE(gLog.empty());
    ASSERT_TRUE(defaults.setPersistentDomain({}, kDomain));
    EXPECT_EQ(FilesInFolder(), 1) << "the next save takes over what a killed one left";
}

TEST_F(UserDefaultsTest, TwoProcessesThatWriteAllTheTimeLoseNothing) {
    constexpr std::int64_t kRounds = 60;
    const auto count = [&](const char* key) {
        bool isWritten = true;
        for (std::int64_t round = 1; round <= kRounds && isWritten; ++round) {
            Dictionary domain = defaults.persistentDomainForName(kDomain);
            domain[key] = {round};
            domain["big"] = {kBig};
            isWritten = defaults.setPersistentDomain(domain, kDomain);
        }
        return isWritten;
    };
    const pid_t child = Child([&] { return count("first"); });
    EXPECT_TRUE(count("second"));
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(defaults.integerForKey("first"), kRounds);
    EXPECT_EQ(defaults.integerForKey("second"), kRounds);
    EXPECT_EQ(FilesInFolder(), 1) << "a file was torn and set aside, or a temporary file left";
}

}  // namespace
}  // namespace platform
