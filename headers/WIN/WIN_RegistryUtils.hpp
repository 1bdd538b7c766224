#pragma once

#include "WIN/WIN_TXString.hpp"

#include <string>

class CRegistry;

/// Each opens a path of the emulated registry, does one thing and closes it. Reads and removals make no keys, writes
/// make what is missing. Failures come back as results. One thread at a time.
class RegistryUtils {
  public:
    /// Opens a path on the given registry, as CRegistry::OpenKeyPath() does.
    static bool PrepRegistry(CRegistry& registry, const TXString& path, bool create);

    /// Whether there is such a key, or such a value or subkey in it.
    /// @{
    static bool PathExists(int root, const TXString& path);
    static bool KeyExists(int root, const TXString& path, const TXString& name);
    /// @}

    /// Reads binary data.
    /// @param root    1 or 2, see CRegistry
    /// @param path    of the key
    /// @param name    of the value
    /// @param buffer  filled only when the data fits; may be null
    /// @param size    of the buffer, in bytes
    /// @return as CRegistry::Read() of binary data
    static unsigned int GetRegistryValue(int root, const TXString& path, const TXString& name, void* buffer, int size);

    /// Reads a value. A narrow string is UTF-8; a boolean is an integer that isn't 0.
    /// @return false when there is none of that name and kind; the target is then unchanged
    /// @{
    static bool GetRegistryValue(int root, const TXString& path, const TXString& name, std::string& value);
    static bool GetRegistryValue(int root, const TXString& path, const TXString& name, TXString& value);
    static bool GetRegistryValue(int root, const TXString& path, const TXString& name, bool& value);
    static bool GetRegistryValue(int root, const TXString& path, const TXString& name, int& value);
    static bool GetRegistryValue(int root, const TXString& path, const TXString& name, unsigned int& value);
    /// @}

    /// Makes or replaces a value.
    /// @return false when the path leads through a value, or for a size below 0; nothing has been written
    /// @{
    static bool SetRegistryValue(int root, const TXString& path, const TXString& name, const std::string& value);
    static bool SetRegistryValue(int root, const TXString& path, const TXString& name, const TXString& value);
    static bool SetRegistryValue(int root, const TXString& path, const TXString& name, unsigned int value);
    static bool SetRegistryValue(int root, const TXString& path, const TXString& name, const void* data, int size);
    /// @}

    /// Removes a value of a key, or the key that a path ends with (the name is spelled so).
    /// @return false when there is none
    /// @{
    static bool RemoveRegistryKeyAndValue(int root, const TXString& path, const TXString& name);
    static bool RemoveTerminlNodeOfPath(int root, const TXString& path);
    /// @}

    /// Values and subkeys of a key, as CRegistry counts and names them.
    /// @{
    static int ValueCount(int root, const TXString& path);
    static bool ValueName(int root, const TXString& path, int index, TXString& name);
    static int SubKeyCount(int root, const TXString& path);
    static bool SubKeyName(int root, const TXString& path, int index, TXString& name);
    /// @}
};
