#include "WIN/WIN_RegKey.hpp"

#include "WIN/WIN_AppMetaData.hpp"
#include "WIN/WIN_CRegistry.hpp"
#include "WIN/WIN_Error.hpp"
#include "WIN/WIN_RegistryUtils.hpp"

namespace win {
namespace {

constexpr char cFile[] = "libs/WIN/WIN_RegKey";
constexpr wchar_t cTrovikPath[] = L"Software\\Trovik";

}  // namespace

RegKey_t::RegKey_t(RegKey_t const& parent, std::wstring const& name)
    : mRoot(parent.mRoot), mPath(name.empty() ? parent.mPath : parent.mPath + L'\\' + name) {}

RegKey_t::RegKey_t(RegKey_t const& parent, int index) : RegKey_t(parent, parent.SubKeyName(index)) {}

bool RegKey_t::ValueExists(std::wstring const& name) const {
    return RegistryUtils::KeyExists(static_cast<int>(mRoot), mPath, name);
}

int RegKey_t::ValueCount() const {
    return RegistryUtils::ValueCount(static_cast<int>(mRoot), mPath);
}
int RegKey_t::SubKeyCount() const {
    return RegistryUtils::SubKeyCount(static_cast<int>(mRoot), mPath);
}

std::wstring RegKey_t::ValueName(int index) const {
    std::wstring name;
    if (RegistryUtils::ValueName(static_cast<int>(mRoot), mPath, index, name)) return name;
    throw RegException_t(cFile, __LINE__, mPath);
}

std::wstring RegKey_t::SubKeyName(int index) const {
    std::wstring name;
    if (RegistryUtils::SubKeyName(static_cast<int>(mRoot), mPath, index, name)) return name;
    throw RegException_t(cFile, __LINE__, mPath);
}

unsigned int RegKey_t::GetBinaryValue(std::wstring const& name, void* buffer, unsigned int size) const {
    unsigned int const count =
        RegistryUtils::GetRegistryValue(static_cast<int>(mRoot), mPath, name, buffer, static_cast<int>(size));
    if (count == 0) throw RegError_t(cFile, __LINE__, name);
    return count;
}

bool RegKey_t::SetBinaryValue(std::wstring const& name, void const* data, unsigned int size) const {
    return RegistryUtils::SetRegistryValue(static_cast<int>(mRoot), mPath, name, data, static_cast<int>(size));
}

bool RegKey_t::GetStringValue(std::wstring const& name, std::wstring& value) const {
    return RegistryUtils::GetRegistryValue(static_cast<int>(mRoot), mPath, name, value);
}

bool RegKey_t::SetStringValue(std::wstring const& name, std::wstring const& value) const {
    return RegistryUtils::SetRegistryValue(static_cast<int>(mRoot), mPath, name, value);
}

bool RegKey_t::Delete(std::wstring const& name) const {
    return RegistryUtils::RemoveRegistryKeyAndValue(static_cast<int>(mRoot), mPath, name);
}

bool RegKey_t::DeleteSubKey(std::wstring const& name) const {
    return RegistryUtils::RemoveTerminlNodeOfPath(static_cast<int>(mRoot), mPath + L'\\' + name);
}

bool RegKey_t::DeleteSubKey(int index) const {
    return DeleteSubKey(SubKeyName(index));
}

RegKey_t const& CurrentUserKey() {
    static RegKey_t const key(gcRegistryCurrentUser, L"HKEY_CURRENT_USER");
    return key;
}

RegKey_t const& LocalMachineKey() {
    static RegKey_t const key(gcRegistryLocalMachine, L"HKEY_LOCAL_MACHINE");
    return key;
}

RegKey_t const& TrovikCurrentUserKey() {
    static RegKey_t const key(gcRegistryCurrentUser, cTrovikPath);
    return key;
}

RegKey_t const& TrovikLocalMachineKey() {
    static RegKey_t const key(LocalMachineKey(), cTrovikPath);
    return key;
}

RegKey_t const& CommonCurrentUserKey() {
    static RegKey_t const key(TrovikCurrentUserKey(), L"Common");
    return key;
}

RegKey_t const& SettingsKey() {
    static RegKey_t const key(RegKey_t(TrovikCurrentUserKey(), L""), L"Settings");
    return key;
}

RegKey_t const& DataKey() {
    static RegKey_t const key(RegKey_t(TrovikCurrentUserKey(), L""), L"Data");
    return key;
}

RegKey_t const& SharedSettingsKey() {
    static RegKey_t const key(TrovikCurrentUserKey(), L"SharedSettings");
    return key;
}

bool TrovikCurrentUserKeyExists() {
    return RegistryUtils::PathExists(gcRegistryCurrentUser, cTrovikPath);
}
bool TrovikLocalMachineKeyExists() {
    return RegistryUtils::PathExists(gcRegistryLocalMachine, cTrovikPath);
}

bool AppLocalMachineKeyExists() {
    return RegistryUtils::PathExists(gcRegistryLocalMachine, cTrovikPath + (L'\\' + AppMetaData().InternalName()));
}

}  // namespace win
