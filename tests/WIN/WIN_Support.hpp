#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "platform/CFRunLoop.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/AsioRunLoop.hpp"
#include "platform/linux/Bundle.hpp"
#include "platform/linux/Dispatch.hpp"
#include "platform/linux/UserDefaults.hpp"
#include "tests/support/ManualClock.hpp"
#include "tests/support/TemporaryFolder.hpp"

namespace win {

/// A platform with preferences and a bundle that the test fills before the library's first use of them, a clock that
/// the test moves, and folders of its own.
class SettingsTest : public ::testing::Test {
  protected:
    using List = platform::PropertyList;

    support::TemporaryFolder caches;
    List::Dictionary info;
    std::function<void()> whenAsked = [] {};  ///< called when the bundle is asked for what is in `info`
    int writes = 0;                           ///< of the preferences

    SettingsTest() { setenv("XDG_CACHE_HOME", caches.path().c_str(), 1); }

    List::Dictionary Stored() const { return mDefaults.UserDefaults::persistentDomainForName(cDomain); }
    void Store(const std::string& key, const List& value) {
        List::Dictionary domain = Stored();
        domain[key] = value;
        ASSERT_TRUE(mDefaults.UserDefaults::setPersistentDomain(domain, cDomain));
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
    static constexpr char cDomain[] = "org.example.App";

    struct Bundle : platform::Bundle {
        explicit Bundle(const SettingsTest& test) : platform::Bundle(test.caches / "nowhere"), mTest(test) {}
        std::string bundleIdentifier() const override { return cDomain; }
        const List::Dictionary& infoDictionary() const override {
            mTest.whenAsked();
            return mTest.info;
        }
        const SettingsTest& mTest;
    };
    struct Defaults : platform::UserDefaults {
        explicit Defaults(SettingsTest& test) : UserDefaults(cDomain, test.mPreferences.path()), mTest(test) {}
        bool setPersistentDomain(const List::Dictionary& contents, const std::string& domain) override {
            ++mTest.writes;
            return UserDefaults::setPersistentDomain(contents, domain);
        }
        SettingsTest& mTest;
    };

    platform::AsioRunLoops mRunLoops;
    platform::RunLoopMainQueue mMainQueue{mRunLoops};
    support::ManualClock mClock;
    support::TemporaryFolder mPreferences;
    Bundle mBundle{*this};
    Defaults mDefaults{*this};
    const platform::PlatformScope mScope{{.clock = &mClock,
                                          .runLoops = &mRunLoops,
                                          .mainQueue = &mMainQueue,
                                          .mainBundle = &mBundle,
                                          .standardUserDefaults = &mDefaults}};
};

}  // namespace win
