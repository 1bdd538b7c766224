#pragma once

#include "WIN/WIN_Error.hpp"

#include <string>

namespace win {

/// Names a key of the emulated registry, whether it exists or not. A plain value. One thread at a time.
class RegKey_t {
  public:
    /// @param path  with backslashes, from the root
    RegKey_t(unsigned int root, const std::wstring& path) : mRoot(root), mPath(path) {}

    /// The key of that name below another one; an empty name gives the other key itself.
    RegKey_t(const RegKey_t& parent, const std::wstring& name);

    /// The index-th subkey.
    /// @throws win::RegException_t  there is none
    RegKey_t(const RegKey_t& parent, int index);

    unsigned int Root() const { return mRoot; }
    const std::wstring& Path() const { return mPath; }

    bool ValueExists(const std::wstring& name) const;
    int ValueCount() const;
    int SubKeyCount() const;

    /// @throws win::RegException_t  there is none of that index
    std::wstring ValueName(int index) const;
    std::wstring SubKeyName(int index) const;

    /// @param size  of the buffer, in bytes; it is filled only when the data fits
    /// @return the length of the data; 0xFFFFFFFF for no such value, which is no error: ask ValueExists() first
    /// @throws win::RegError_t  the value is empty or no data
    unsigned int GetBinaryValue(const std::wstring& name, void* buffer, unsigned int size) const;
    bool SetBinaryValue(const std::wstring& name, const void* data, unsigned int size) const;

    bool GetStringValue(const std::wstring& name, std::wstring& value) const;
    bool SetStringValue(const std::wstring& name, const std::wstring& value) const;

    bool Delete(const std::wstring& name) const;
    /// Deletes a subkey with all that is in it. An empty name means a subkey without a name, never this key.
    bool DeleteSubKey(const std::wstring& name) const;
    bool DeleteSubKey(int index) const;

  private:
    unsigned int mRoot;
    std::wstring mPath;
};

/// The well-known keys, each made at the first call. The path of the local machine's keeps its root's name in front and
/// that of the current user's doesn't: settings that users have depend on it. Any thread.
const RegKey_t& CurrentUserKey();
const RegKey_t& LocalMachineKey();
const RegKey_t& TrovikCurrentUserKey();
const RegKey_t& TrovikLocalMachineKey();
const RegKey_t& CommonCurrentUserKey();
const RegKey_t& SettingsKey();
const RegKey_t& DataKey();
const RegKey_t& SharedSettingsKey();

bool TrovikCurrentUserKeyExists();
bool TrovikLocalMachineKeyExists();
bool AppLocalMachineKeyExists();

}  // namespace win
