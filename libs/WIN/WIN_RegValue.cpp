#include "WIN/WIN_RegValue.hpp"

namespace win {
namespace {

/// Reads data of exactly the object's size.
template <typename Bytes_t>
bool ReadBytes(RegKey_t const& key, std::wstring const& name, Bytes_t& bytes) {
    return key.GetBinaryValue(name, &bytes, sizeof bytes) == sizeof bytes;
}

}  // namespace

template <>
glo::Optional_t<bool> ReadRegValue(RegKey_t const& key, std::wstring const& name) {
    unsigned char byte = 0;
    if (!ReadBytes(key, name, byte)) return {};
    return byte != 0;
}

template <>
glo::Optional_t<glo::TimeSpan_t> ReadRegValue(RegKey_t const& key, std::wstring const& name) {
    double seconds = 0;
    if (!ReadBytes(key, name, seconds)) return {};
    return glo::TimeSpan_t(seconds);
}

template <>
glo::Optional_t<std::wstring> ReadRegValue(RegKey_t const& key, std::wstring const& name) {
    std::wstring text;
    if (!key.GetStringValue(name, text)) return {};
    return text;
}

template <>
void WriteRegValue(RegKey_t const& key, std::wstring const& name, bool const& value) {
    unsigned char const byte = value ? 1 : 0;
    key.SetBinaryValue(name, &byte, sizeof byte);
}

template <>
void WriteRegValue(RegKey_t const& key, std::wstring const& name, glo::TimeSpan_t const& value) {
    double const seconds = value.Seconds();
    key.SetBinaryValue(name, &seconds, sizeof seconds);
}

template <>
void WriteRegValue(RegKey_t const& key, std::wstring const& name, std::wstring const& value) {
    key.SetStringValue(name, value);
}

}  // namespace win
