#include "WIN/WIN_Registry.hpp"

#include "libs/WIN/impl/WIN_FirstUse.hpp"

namespace win {
namespace {

/// Resets a switch that somebody set to something else than off or on.
void Normalise(RegValue_t<bool>& value) {
    unsigned char byte = 0;
    if (value.IsKnown() && value.Key().GetBinaryValue(value.Name(), &byte, sizeof byte) == sizeof byte && byte > 1) {
        value.SetToDefault();
    }
}

}  // namespace

Registry_t::Registry_t(const RegKey_t& key)
    : mUseLocalTime(key, L"UseLocalTime", true),
      mUserUtcOffset(key, L"UserUtcOffset", glo::TimeSpan_t()),
      mUserTimeZoneId(key, L"UserTimeZoneId"),
      mShowDebug(key, L"ShowDebug"),
      mShowUsbDebug(key, L"ShowUsbDebug") {
    Normalise(mUseLocalTime);
    Normalise(mShowDebug);
    Normalise(mShowUsbDebug);
}

Registry_t& Registry() {
    static Registry_t registry = [] {
        const FirstUseScope_t firstUse;
        return Registry_t(SettingsKey());
    }();
    return registry;
}

}  // namespace win
