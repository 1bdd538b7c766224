#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "WIN/WIN_MacRegistryStore.hpp"
#include "WIN/WIN_TXString.hpp"

#include <string>

/// @file
/// The settings registry, emulated: one open key.

/// The registry's roots. Both open paths in the one tree; the number never selects another one.
/// @{
inline constexpr int gcRegistryCurrentUser = 1;
inline constexpr int gcRegistryLocalMachine = 2;
/// @}

/// One open key of the emulated registry. Failures come back as results. One thread at a time.
///
///     string    a property-list string
///     integer   data of 4 bytes, in host order; a number is read too
///     binary    data
///
/// Names and paths are made of keys with a backslash between them.
class CRegistry : public glo::NonCopyable_t {
  public:
    static constexpr unsigned int gcAbsent = 0xFFFFFFFF;  ///< what Read() of binary data answers for no such value

    /// @param root  one of the two numbers above
    explicit CRegistry(int root);

    /// Has the store saved when something was written or removed. A failure of that ends the process.
    ~CRegistry();

    /// Opens a key, from the root on. The one that was open stays open when this fails.
    /// @param path    an empty one is the root itself
    /// @param create  makes the keys that are missing; without it a path with a missing key fails and makes nothing
    /// @return false when there is no such path, or when it leads through a value
    bool OpenKeyPath(const TXString& path, bool create);
    void CloseKeyPath() { mOpenKey.reset(); }  ///< @plain

    /// Reads a value of the open key.
    /// @return false when there is none of that name and kind; the target is then unchanged
    /// @{
    bool Read(const TXString& name, TXString& value) const;
    bool Read(const TXString& name, int& value) const;
    /// @}

    /// Reads binary data of the open key.
    /// @param buffer  filled only when the data fits; may be null
    /// @param size    of the buffer, in bytes
    /// @return gcAbsent for no such value or no open key, 0 for one that is no data, else the length of the data
    unsigned int Read(const TXString& name, void* buffer, unsigned int size) const;

    /// Makes or replaces a value of the open key, whatever it was.
    /// @return false when no key is open, or for a null pointer with a size; nothing has changed
    /// @{
    bool Write(const TXString& name, const TXString& value);
    bool Write(const TXString& name, int value);
    bool Write(const TXString& name, const void* data, unsigned int size);
    /// @}

    /// Removes a value, or a subkey with all that is in it, from the open key.
    /// @return false when there is none
    bool Remove(const TXString& name);

    /// Removes the key that the path ends with from its parent. The path starts at the root, not at the open key.
    /// @return false when there is none
    bool RemoveTerminalNodeOfPath(const TXString& path);

    /// Values and subkeys of the open key are counted apart, each in one order that changes only with the entries.
    /// Without an open key there are none. A name is set only when there is one of that index; the result says so.
    /// @{
    int ValueCount() const { return CountOf(false); }
    int SubKeyCount() const { return CountOf(true); }
    bool ValueName(int index, TXString& name) const { return NameOf(index, false, name); }
    bool SubKeyName(int index, TXString& name) const { return NameOf(index, true, name); }
    /// @}

  private:
    using Subkey_t = win::RegistryDictionary_t::Subkey_t;

    enum class UserScope_t { CurrentUser, AnyUser };
    enum class HostScope_t { CurrentHost, AnyHost };

    Subkey_t Walk(const std::string& path, bool create) const;
    const platform::PropertyList* Find(const TXString& name) const;
    bool Store(const TXString& name, platform::PropertyList value);
    int CountOf(bool subkeys) const;
    bool NameOf(int index, bool subkeys, TXString& name) const;

    const TXString mStoreName = L"RegistryRoot";
    Subkey_t mOpenKey;
    bool mIsDirty = false;
    // What the platform would be asked for; nothing reads them, nor the store's name, with one file for each user.
    const UserScope_t mUserScope;
    const HostScope_t mHostScope;
    const std::wstring mBundleIdentifier;
};
