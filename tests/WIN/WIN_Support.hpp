#pragma once

#include "WIN/WIN_MacRegistryStore.hpp"
#include "platform/CFRunLoop.hpp"
#include "platform/Platform.hpp"
#include "platform/common/RunLoopMainQueue.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/settings/Bundle.hpp"
#include "platform/linux/settings/UserDefaults.hpp"
#include "tests/support/ManualClock.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace win {

/// A platform with preferences and a bundle that the test fills before the library's first use of them, a clock that
/// the test moves, and folders of its own.
class SettingsTest : public ::testing::Test {
  protected:
    using List = platform::PropertyList;

    SettingsTest() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        std::filesystem::create_directory(caches);
        setenv("XDG_CACHE_HOME", caches.c_str(), 1);
        ReadTree();
    }
    ~SettingsTest() override {
        MacRegistryStore().Stop();  // its timer is on this test's loop
        if (mOwnFolder) unsetenv(cFolder);
    }

    /// Does something in a process of its own, in which nobody has used the library yet. Its folders are this test's.
    void OnFirstUse(const std::function<void()>& action) {
        EXPECT_EXIT((action(), std::exit(HasFailure())), testing::ExitedWithCode(0), "");
    }

    List::Dictionary Stored() const { return mDefaults.UserDefaults::persistentDomainForName(cDomain); }
    void Store(const std::string& key, const List& value) {
        List::Dictionary domain = Stored();
        domain[key] = value;
        ASSERT_TRUE(mDefaults.UserDefaults::setPersistentDomain(domain, cDomain));
        ReadTree();
    }

    /// What the library keeps below "Software\\Trovik\\Settings".
    void StoreSettings(const List::Dictionary& settings) {
        const List trovik{List::Dictionary{{"Settings", {settings}}}};
        Store("RegistryRoot", {List::Dictionary{{"Software", {List::Dictionary{{"Trovik", trovik}}}}}});
    }
    List::Dictionary StoredSettings() const {
        return *Stored().at("RegistryRoot").find("Software")->find("Trovik")->find("Settings")->dictionary();
    }

    /// Lets the main run loop do what is due after so many milliseconds.
    void RunMainLoop(std::uint64_t milliseconds) {
        mClock.Advance(milliseconds);
        platform::CFRunLoopGetCurrent()->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, 0, false);
    }

  private:
    static constexpr char cDomain[] = "org.example.App", cFolder[] = "SETTINGS_TEST_FOLDER";

    /// The store of the process reads its tree once; this is for the tests that come later in the process.
    static void ReadTree() { MacRegistryStore().Root()->mEntries = MacRegistryStore_t().Root()->mEntries; }

    std::string MakeFolder() {
        if (!getenv(cFolder)) setenv(cFolder, mOwnFolder.emplace().path().c_str(), 1);
        return getenv(cFolder);
    }

    struct Bundle : platform::Bundle {
        explicit Bundle(const SettingsTest& test) : platform::Bundle(test.mFolder + "/nowhere"), mTest(test) {}
        std::string bundleIdentifier() const override { return cDomain; }
        const List::Dictionary& infoDictionary() const override {
            mTest.whenAsked();
            return mTest.info;
        }
        const SettingsTest& mTest;
    };
    struct Defaults : platform::UserDefaults {
        explicit Defaults(SettingsTest& test) : UserDefaults(cDomain, test.mFolder + "/preferences"), mTest(test) {}
        bool setPersistentDomain(const List::Dictionary& contents, const std::string& domain) override {
            ++mTest.writes;
            return UserDefaults::setPersistentDomain(contents, domain);
        }
        SettingsTest& mTest;
    };

    std::optional<support::TemporaryFolder> mOwnFolder;  ///< the parent's, where this is a child
    const std::string mFolder = MakeFolder();
    platform::AsioRunLoops mRunLoops;
    platform::RunLoopMainQueue mMainQueue{mRunLoops};
    support::ManualClock mClock;
    Bundle mBundle{*this};
    Defaults mDefaults{*this};
    const platform::PlatformScope mScope{platform::withLinuxFiles({.clock = &mClock,
                                                                   .runLoops = &mRunLoops,
                                                                   .mainQueue = &mMainQueue,
                                                                   .mainBundle = &mBundle,
                                                                   .standardUserDefaults = &mDefaults})};

  protected:
    const std::filesystem::path caches = mFolder + "/caches";
    List::Dictionary info = {{"CFBundleName", {std::string("Product")}},
                             {"CFBundleVersion", {std::string("1.2.3.4 Beta")}}};
    std::function<void()> whenAsked = [] {};  ///< called when the bundle is asked for what is in `info`
    int writes = 0;                           ///< of the preferences
};

}  // namespace win
