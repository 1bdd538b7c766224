#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "WIN/WIN_RegValue.hpp"

#include <string>

namespace win {

/// The library's own switches, below the settings key. A switch whose byte is neither 0 nor 1 goes back to its default
/// when this is made. The local time, offset and zone have no reader in this program. One thread at a time.
class Registry_t : public glo::NonCopyable_t {
  public:
    explicit Registry_t(const RegKey_t& key);  ///< reads the switches below the key

    /// The switches, by the names that they have in the settings. The default is true for UseLocalTime, zero for the
    /// offset, and none for the others: unknown counts as off.
    /// @{
    RegValue_t<bool>& UseLocalTime() { return mUseLocalTime; }
    RegValue_t<glo::TimeSpan_t>& UserUtcOffset() { return mUserUtcOffset; }
    RegValue_t<std::wstring>& UserTimeZoneId() { return mUserTimeZoneId; }
    RegValue_t<bool>& ShowDebug() { return mShowDebug; }
    RegValue_t<bool>& ShowUsbDebug() { return mShowUsbDebug; }
    /// @}

  private:
    RegValue_t<bool> mUseLocalTime;
    RegValue_t<glo::TimeSpan_t> mUserUtcOffset;
    RegValue_t<std::wstring> mUserTimeZoneId;
    RegValue_t<bool> mShowDebug;
    RegValue_t<bool> mShowUsbDebug;
};

/// The process's switches, made on the settings key at the first call. Any thread.
Registry_t& Registry();

}  // namespace win
