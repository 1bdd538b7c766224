#pragma once

#include "GLO/GLO_Optional.hpp"
#include "GLO/GLO_Time.hpp"
#include "WIN/WIN_Error.hpp"
#include "WIN/WIN_RegKey.hpp"

#include <string>

namespace win {

/// Reads a typed value: a boolean is kept as 1 byte, a time span as the 8 bytes of its seconds, a wide string as a
/// string.
/// @return unknown for data of any other length
/// @throws win::RegError_t  the value is there and of another kind
/// One thread at a time, as all settings.
template <typename Value_t>
glo::Optional_t<Value_t> ReadRegValue(const RegKey_t& key, const std::wstring& name);

/// Writes one, in the same form. A key that can't be made is not reported. One thread at a time, as all settings.
template <typename Value_t>
void WriteRegValue(const RegKey_t& key, const std::wstring& name, const Value_t& value);

/// @cond  the types that there are
template <>
glo::Optional_t<bool> ReadRegValue(const RegKey_t& key, const std::wstring& name);
template <>
glo::Optional_t<glo::TimeSpan_t> ReadRegValue(const RegKey_t& key, const std::wstring& name);
template <>
glo::Optional_t<std::wstring> ReadRegValue(const RegKey_t& key, const std::wstring& name);
template <>
void WriteRegValue(const RegKey_t& key, const std::wstring& name, const bool& value);
template <>
void WriteRegValue(const RegKey_t& key, const std::wstring& name, const glo::TimeSpan_t& value);
template <>
void WriteRegValue(const RegKey_t& key, const std::wstring& name, const std::wstring& value);
/// @endcond

/// A typed value of the registry, as it was last read. One thread at a time.
template <typename Value_t>
class ConstRegValue_t {
  public:
    /// Unknown until the first Refresh().
    ConstRegValue_t(const RegKey_t& key, const std::wstring& name) : mKey(key), mName(name) {}

    /// Reads it again; unknown when it isn't there.
    /// @throws win::RegError_t  it is there and of another kind; unchanged
    void Refresh() {
        if (mKey.ValueExists(mName))
            mCurrent.Assign(ReadRegValue<Value_t>(mKey, mName));
        else
            mCurrent.MakeUnknown();
    }

    bool IsKnown() const { return mCurrent.IsKnown(); }  ///< as of the last Refresh()

    /// What was read last, or set since.
    /// @throws win::RegException_t  it is unknown
    const Value_t& Get() const {
        if (!mCurrent.IsKnown()) throw RegException_t("headers/WIN/WIN_RegValue", __LINE__, L'\\' + mName);
        return mCurrent.Value();
    }

    /// @plain
    /// @{
    const RegKey_t& Key() const { return mKey; }
    const std::wstring& Name() const { return mName; }
    /// @}

  protected:
    /// @plain
    /// @{
    RegKey_t mKey;
    std::wstring mName;
    glo::Optional_t<Value_t> mCurrent;
    /// @}
};

/// A value that can be set. Reads itself when it is made; a value of another kind counts as unknown then.
template <typename Value_t>
class RegValue_t : public ConstRegValue_t<Value_t> {
  public:
    /// @param key           copied
    /// @param name          of the value
    /// @param defaultValue  for SetToDefault() only; a missing value stays unknown
    RegValue_t(const RegKey_t& key, const std::wstring& name, const glo::Optional_t<Value_t>& defaultValue = {})
        : ConstRegValue_t<Value_t>(key, name), mDefault(defaultValue) {
        try {
            this->Refresh();
        } catch (const RegException_t&) {
            this->mCurrent.MakeUnknown();
        }
    }

    /// Makes it known and writes it.
    void Set(const Value_t& value) {
        this->mCurrent.Value(value);
        Flush();
    }

    /// Writes it if it is known.
    void Flush() {
        if (this->mCurrent.IsKnown()) WriteRegValue(this->mKey, this->mName, this->mCurrent.Value());
    }

    /// Sets the default; without one the value is forgotten and deleted.
    void SetToDefault() {
        if (mDefault.IsKnown()) return Set(mDefault.Value());
        this->mCurrent.MakeUnknown();
        this->mKey.Delete(this->mName);
    }

  private:
    glo::Optional_t<Value_t> mDefault;
};

}  // namespace win
