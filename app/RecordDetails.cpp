#include "app/RecordDetails.hpp"

#include "IOU/IOU_DebugServer.hpp"
#include "WIN/WIN_DebugServer.hpp"
#include "WIN/WIN_RegKey.hpp"
#include "WIN/WIN_RegistryUtils.hpp"
#include "platform/NSBundle.hpp"
#include "platform/NSUserDefaults.hpp"
#include "platform/Platform.hpp"

#include <string>

namespace {

constexpr char kUsbSwitch[] = "ShowUsbDebug";
constexpr wchar_t kSwitch[] = L"ShowDebug";

}  // namespace

bool RecordDetails::isOn() {
    const win::RegKey_t& key = win::SettingsKey();
    unsigned char value = 0;
    const unsigned size =
        RegistryUtils::GetRegistryValue(static_cast<int>(key.Root()), key.Path(), kSwitch, &value, sizeof value);
    return size == sizeof value && value == 1 && platform::standardUserDefaults().boolForKey(kUsbSwitch);
}

bool RecordDetails::set(bool on) {
    // The traces look at their switches when they are first used, which may be at the first device. This run's are to
    // stay as they are, whenever that is.
    static_cast<void>(win::DefaultDebugToOn());
    static_cast<void>(iou::DebugServer());

    platform::NSUserDefaults& defaults = platform::standardUserDefaults();
    const std::string domain = platform::mainBundle().bundleIdentifier();
    auto preferences = defaults.persistentDomainForName(domain);
    preferences.insert_or_assign(kUsbSwitch, platform::PropertyList{on});
    if (!defaults.setPersistentDomain(preferences, domain)) return false;
    const unsigned char value = on ? 1 : 0;
    return win::SettingsKey().SetBinaryValue(kSwitch, &value, sizeof value);
}
