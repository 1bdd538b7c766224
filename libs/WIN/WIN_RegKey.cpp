#include "WIN/WIN_RegKey.hpp"

#include "WIN/WIN_AppMetaData.hpp"
#include "WIN/WIN_CRegistry.hpp"
#include "WIN/WIN_Error.hpp"
#include "WIN/WIN_RegistryUtils.hpp"

namespace win {
namespace {

constexpr char gcFile[] = "libs/WIN/WIN_RegKey";
constexpr wchar_t gcTrovikPath[] = L"Software\\Trovik";

}  // namespace

RegKey_t::RegKey_t(const RegKey_t& parent, const std::wstring& name)
    : mRoot(parent.mRoot), mPath(name.empty() ? parent.mPath : parent.mPath + L'\\' + name) {}

RegKey_t::RegKey_t(const RegKey_t& parent, int index) : RegKey_t(parent, parent.SubKeyName(index)) {}

bool RegKey_t::ValueExists(const std::wstring& name) const {
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
    throw RegException_t(gcFile, __LINE__, mPath);
}

std::wstring RegKey_t::SubKeyName(int index) const {
    std::wstring name;
    if (RegistryUtils::SubKeyName(static_cast<int>(mRoot), mPath, index, name)) return name;
    throw RegException_t(gcFile, __LINE__, mPath);
}

unsigned int RegKey_t::GetBinaryValue(const std::wstring& name, void* buffer, unsigned int size) const {
    const unsigned int count =
        RegistryUtils::GetRegistryValue(static_cast<int>(mRoot), mPath, name, buffer, static_cast<int>(size));
    if (count == 0) throw RegError_t(gcFile, __LINE__, name);
    return count;
}

bool RegKey_t::SetBinaryValue(const std::wstring& name, const void* data, unsigned int size) const {
    return RegistryUtils::SetRegistryValue(static_cast<int>(mRoot), mPath, name, data, static_cast<int>(size));
}

bool RegKey_t::GetStringValue(const std::wstring& name, std::wstring& value) const {
    return RegistryUtils::GetRegistryValue(static_cast<int>(mRoot), mPath, name, value);
}

bool RegKey_t::SetStringValue(const std::wstring& name, const std::wstring& value) const {
    return RegistryUtils::SetRegistryValue(static_cast<int>(mRoot), mPath, name, value);
}

bool RegKey_t::Delete(const std::wstring& name) const {
    return RegistryUtils::RemoveRegistryKeyAndValue(static_cast<int>(mRoot), mPath, name);
}

bool RegKey_t::DeleteSubKey(const std::wstring& name) const {
    return RegistryUtils::RemoveTerminlNodeOfPath(static_cast<int>(mRoot), mPath + L'\\' + name);
}

bool RegKey_t::DeleteSubKey(int index) const {
    return DeleteSubKey(SubKeyName(index));
}

const RegKey_t& CurrentUserKey() {
    static const RegKey_t key(gcRegistryCurrentUser, L"HKEY_CURRENT_USER");
    return key;
}

const RegKey_t& LocalMachineKey() {
    static const RegKey_t key(gcRegistryLocalMachine, L"HKEY_LOCAL_MACHINE");
    return key;
}

const RegKey_t& TrovikCurrentUserKey() {
    static const RegKey_t key(gcRegistryCurrentUser, gcTrovikPath);
    return key;
}

const RegKey_t& TrovikLocalMachineKey() {
    static const RegKey_t key(LocalMachineKey(), gcTrovikPath);
    return key;
}

const RegKey_t& CommonCurrentUserKey() {
    static const RegKey_t key(TrovikCurrentUserKey(), L"Common");
    return key;
}

const RegKey_t& SettingsKey() {
    static const RegKey_t key(RegKey_t(TrovikCurrentUserKey(), L""), L"Settings");
    return key;
}

const RegKey_t& DataKey() {
    static const RegKey_t key(RegKey_t(TrovikCurrentUserKey(), L""), L"Data");
    return key;
}

const RegKey_t& SharedSettingsKey() {
    static const RegKey_t key(TrovikCurrentUserKey(), L"SharedSettings");
    return key;
}

bool TrovikCurrentUserKeyExists() {
    return RegistryUtils::PathExists(gcRegistryCurrentUser, gcTrovikPath);
}
bool TrovikLocalMachineKeyExists() {
    return RegistryUtils::PathExists(gcRegistryLocalMachine, gcTrovikPath);
}

bool AppLocalMachineKeyExists() {
    return RegistryUtils::PathExists(gcRegistryLocalMachine, gcTrovikPath + (L'\\' + AppMetaData().InternalName()));
}

}  // namespace win
