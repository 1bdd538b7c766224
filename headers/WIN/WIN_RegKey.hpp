#pragma once

#include <string>

#include "WIN/WIN_Error.hpp"

namespace win {

/// Names a key of the emulated registry, whether it exists or not. A plain value. One thread at a time.
class RegKey_t {
  public:
    /// @param path  with backslashes, from the root
    RegKey_t(unsigned int root, std::wstring const& path) : mRoot(root), mPath(path) {}

    /// The key of that name below another one; an empty name gives the other key itself.
    RegKey_t(RegKey_t const& parent, std::wstring const& name);

    /// The index-th subkey.
    /// @throws win::RegException_t  there is none
    RegKey_t(RegKey_t const& parent, int index);

    unsigned int Root() const { return mRoot; }
    std::wstring const& Path() const { return mPath; }

    bool ValueExists(std::wstring const& name) const;
    int ValueCount() const;
    int SubKeyCount() const;

    /// @throws win::RegException_t  there is none of that index
    std::wstring ValueName(int index) const;
    std::wstring SubKeyName(int index) const;

    /// @param size  of the buffer, in bytes; it is filled only when the data fits
    /// @return the length of the data; 0xFFFFFFFF for no such value, which is no error: ask ValueExists() first
    /// @throws win::RegError_t  the value is empty or no data
    unsigned int GetBinaryValue(std::wstring const& name, void* buffer, unsigned int size) const;
    bool SetBinaryValue(std::wstring const& name, void const* data, unsigned int size) const;

    bool GetStringValue(std::wstring const& name, std::wstring& value) const;
    bool SetStringValue(std::wstring const& name, std::wstring const& value) const;

    bool Delete(std::wstring const& name) const;
    /// Deletes a subkey with all that is in it. An empty name means a subkey without a name, never this key.
    bool DeleteSubKey(std::wstring const& name) const;
    bool DeleteSubKey(int index) const;

  private:
    unsigned int mRoot;
    std::wstring mPath;
};

/// The well-known keys, each made at the first call. The path of the local machine's keeps its root's name in front and
/// that of the current user's doesn't: settings that users have depend on it. Any thread.
RegKey_t const& CurrentUserKey();
RegKey_t const& LocalMachineKey();
RegKey_t const& TrovikCurrentUserKey();
RegKey_t const& TrovikLocalMachineKey();
RegKey_t const& CommonCurrentUserKey();
RegKey_t const& SettingsKey();
RegKey_t const& DataKey();
RegKey_t const& SharedSettingsKey();

bool TrovikCurrentUserKeyExists();
bool TrovikLocalMachineKeyExists();
bool AppLocalMachineKeyExists();

}  // namespace win
