#include "WIN/WIN_RegistryUtils.hpp"

#include "GLO/GLO_String.hpp"
#include "WIN/WIN_CRegistry.hpp"
#include "WIN/WIN_Encoding.hpp"

namespace {

/// Opens the path, hands the open registry to the call and gives its result; `failure` when there is no such path.
template <typename Result_t, typename Call_t>
Result_t With(int root, const TXString& path, bool create, Result_t failure, Call_t call) {
    CRegistry registry(root);
    if (!RegistryUtils::PrepRegistry(registry, path, create)) return failure;
    const Result_t result = call(registry);
    registry.CloseKeyPath();
    return result;
}

template <typename Value_t>
bool Get(int root, const TXString& path, const TXString& name, Value_t& value) {
    return With(root, path, false, false, [&](const CRegistry& registry) { return registry.Read(name, value); });
}

}  // namespace

bool RegistryUtils::PrepRegistry(CRegistry& registry, const TXString& path, bool create) {
    return registry.OpenKeyPath(path, create);
}

bool RegistryUtils::PathExists(int root, const TXString& path) {
    return With(root, path, false, false, [](const CRegistry&) { return true; });
}

bool RegistryUtils::KeyExists(int root, const TXString& path, const TXString& name) {
    return GetRegistryValue(root, path, name, nullptr, 0) < CRegistry::gcAbsent;
}

unsigned int RegistryUtils::GetRegistryValue(int root, const TXString& path, const TXString& name, void* buffer,
                                             int size) {
    const auto room = size > 0 ? static_cast<unsigned int>(size) : 0U;
    return With(root, path, false, CRegistry::gcAbsent,
                [&](const CRegistry& registry) { return registry.Read(name, buffer, room); });
}

bool RegistryUtils::GetRegistryValue(int root, const TXString& path, const TXString& name, std::string& value) {
    TXString wide;
    if (!Get(root, path, name, wide)) return false;
    value = glo::string(wide, win::Utf8Encoding());
    return true;
}

bool RegistryUtils::GetRegistryValue(int root, const TXString& path, const TXString& name, TXString& value) {
    return Get(root, path, name, value);
}

bool RegistryUtils::GetRegistryValue(int root, const TXString& path, const TXString& name, bool& value) {
    int number = 0;
    if (!Get(root, path, name, number)) return false;
    value = number != 0;
    return true;
}

bool RegistryUtils::GetRegistryValue(int root, const TXString& path, const TXString& name, int& value) {
    return Get(root, path, name, value);
}

bool RegistryUtils::GetRegistryValue(int root, const TXString& path, const TXString& name, unsigned int& value) {
    int number = 0;
    if (!Get(root, path, name, number)) return false;
    value = static_cast<unsigned int>(number);
    return true;
}

bool RegistryUtils::SetRegistryValue(int root, const TXString& path, const TXString& name, const std::string& value) {
    return SetRegistryValue(root, path, name, glo::wstring(value, win::Utf8Encoding()));
}

bool RegistryUtils::SetRegistryValue(int root, const TXString& path, const TXString& name, const TXString& value) {
    return With(root, path, true, false, [&](CRegistry& registry) { return registry.Write(name, value); });
}

bool RegistryUtils::SetRegistryValue(int root, const TXString& path, const TXString& name, unsigned int value) {
    return With(root, path, true, false,
                [&](CRegistry& registry) { return registry.Write(name, static_cast<int>(value)); });
}

bool RegistryUtils::SetRegistryValue(int root, const TXString& path, const TXString& name, const void* data, int size) {
    if (size < 0) return false;
    return With(root, path, true, false,
                [&](CRegistry& registry) { return registry.Write(name, data, static_cast<unsigned int>(size)); });
}

bool RegistryUtils::RemoveRegistryKeyAndValue(int root, const TXString& path, const TXString& name) {
    return With(root, path, false, false, [&](CRegistry& registry) { return registry.Remove(name); });
}

bool RegistryUtils::RemoveTerminlNodeOfPath(int root, const TXString& path) {
    return CRegistry(root).RemoveTerminalNodeOfPath(path);
}

int RegistryUtils::ValueCount(int root, const TXString& path) {
    return With(root, path, false, 0, [](const CRegistry& registry) { return registry.ValueCount(); });
}

bool RegistryUtils::ValueName(int root, const TXString& path, int index, TXString& name) {
    return With(root, path, false, false, [&](const CRegistry& registry) { return registry.ValueName(index, name); });
}

int RegistryUtils::SubKeyCount(int root, const TXString& path) {
    return With(root, path, false, 0, [](const CRegistry& registry) { return registry.SubKeyCount(); });
}

bool RegistryUtils::SubKeyName(int root, const TXString& path, int index, TXString& name) {
    return With(root, path, false, false, [&](const CRegistry& registry) { return registry.SubKeyName(index, name); });
}
