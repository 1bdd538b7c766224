#include "WIN/WIN_RegValue.hpp"

namespace win {
namespace {

/// Reads data of exactly the object's size.
template <typename Bytes_t>
bool ReadBytes(const RegKey_t& key, const std::wstring& name, Bytes_t& bytes) {
    return key.GetBinaryValue(name, &bytes, sizeof bytes) == sizeof bytes;
}

}  // namespace

template <>
glo::Optional_t<bool> ReadRegValue(const RegKey_t& key, const std::wstring& name) {
    unsigned char byte = 0;
    if (!ReadBytes(key, name, byte)) return {};
    return byte != 0;
}

template <>
glo::Optional_t<glo::TimeSpan_t> ReadRegValue(const RegKey_t& key, const std::wstring& name) {
    double seconds = 0;
    if (!ReadBytes(key, name, seconds)) return {};
    return glo::TimeSpan_t(seconds);
}

template <>
glo::Optional_t<std::wstring> ReadRegValue(const RegKey_t& key, const std::wstring& name) {
    std::wstring text;
    if (!key.GetStringValue(name, text)) return {};
    return text;
}

template <>
void WriteRegValue(const RegKey_t& key, const std::wstring& name, const bool& value) {
    const unsigned char byte = value ? 1 : 0;
    key.SetBinaryValue(name, &byte, sizeof byte);
}

template <>
void WriteRegValue(const RegKey_t& key, const std::wstring& name, const glo::TimeSpan_t& value) {
    const double seconds = value.Seconds();
    key.SetBinaryValue(name, &seconds, sizeof seconds);
}

template <>
void WriteRegValue(const RegKey_t& key, const std::wstring& name, const std::wstring& value) {
    key.SetStringValue(name, value);
}

}  // namespace win
