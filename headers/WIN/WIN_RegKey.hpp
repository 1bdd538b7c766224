#pragma once

#include "WIN/WIN_Error.hpp"

#include <string>

namespace win {

/// Names a key of the emulated registry, whether it exists or not. A plain value. One thread at a time.
class RegKey_t {
  public:
    /// @param root  gcRegistryCurrentUser or gcRegistryLocalMachine
    /// @param path  with backslashes, from the root
    RegKey_t(unsigned int root, const std::wstring& path) : mRoot(root), mPath(path) {}

    /// The key of that name below another one; an empty name gives the other key itself.
    RegKey_t(const RegKey_t& parent, const std::wstring& name);

    /// The index-th subkey.
    /// @throws win::RegException_t  there is none
    RegKey_t(const RegKey_t& parent, int index);

    /// @plain
    /// @{
    unsigned int Root() const { return mRoot; }
    const std::wstring& Path() const { return mPath; }
    /// @}

    /// What there is, as CRegistry tells it. A key that doesn't exist has nothing in it.
    /// @{
    bool ValueExists(const std::wstring& name) const;
    int ValueCount() const;
    int SubKeyCount() const;
    /// @}

    /// The name by its index, from 0 on.
    /// @throws win::RegException_t  there is none of that index
    /// @{
    std::wstring ValueName(int index) const;
    std::wstring SubKeyName(int index) const;
    /// @}

    /// Reads data.
    /// @param name    of the value
    /// @param buffer  may be null
    /// @param size    of the buffer, in bytes; it is filled only when the data fits
    /// @return the length of the data; 0xFFFFFFFF for no such value, which is no error: ask ValueExists() first
    /// @throws win::RegError_t  the value is empty or no data
    unsigned int GetBinaryValue(const std::wstring& name, void* buffer, unsigned int size) const;

    /// Makes the key if it is missing, and makes or replaces the value. It reaches the disk a little later.
    /// @return false when it can't be: the path leads through a value
    /// @{
    bool SetBinaryValue(const std::wstring& name, const void* data, unsigned int size) const;
    bool SetStringValue(const std::wstring& name, const std::wstring& value) const;
    /// @}

    /// Reads a string.
    /// @return false when there is no string of that name; the target is then unchanged
    bool GetStringValue(const std::wstring& name, std::wstring& value) const;

    /// Deletes a value.
    /// @return false when there is none
    bool Delete(const std::wstring& name) const;

    /// Deletes a subkey with all that is in it. An empty name means a subkey without a name, never this key.
    /// @return false when there is none
    bool DeleteSubKey(const std::wstring& name) const;

    /// The same by its index.
    /// @throws win::RegException_t  there is none of that index
    bool DeleteSubKey(int index) const;

  private:
    unsigned int mRoot;
    std::wstring mPath;
};

/// The well-known keys, each made at the first call. The path of the local machine's keeps its root's name in front and
/// that of the current user's doesn't: settings that users have depend on it. Any thread.
/// @{
const RegKey_t& CurrentUserKey();
const RegKey_t& LocalMachineKey();
const RegKey_t& TrovikCurrentUserKey();
const RegKey_t& TrovikLocalMachineKey();
const RegKey_t& CommonCurrentUserKey();
const RegKey_t& SettingsKey();
const RegKey_t& DataKey();
const RegKey_t& SharedSettingsKey();
/// @}

/// Whether "Software\\Trovik", or in it a key of the application's internal name, is there. One thread at a time.
/// @{
bool TrovikCurrentUserKeyExists();
bool TrovikLocalMachineKeyExists();
bool AppLocalMachineKeyExists();
/// @}

}  // namespace win
