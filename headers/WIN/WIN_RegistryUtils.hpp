#pragma once

#include <string>

#include "WIN/WIN_TXString.hpp"

class CRegistry;

/// Each opens a path of the emulated registry, does one thing and closes it. Reads and removals make no keys, writes
/// make what is missing. Failures come back as results. One thread at a time.
class RegistryUtils {
  public:
    static bool PrepRegistry(CRegistry& registry, TXString const& path, bool create);

    static bool PathExists(int root, TXString const& path);
    static bool KeyExists(int root, TXString const& path, TXString const& name);

    /// @param size  of the buffer, in bytes
    /// @return as CRegistry::Read of binary data
    static unsigned int GetRegistryValue(int root, TXString const& path, TXString const& name, void* buffer, int size);
    static bool GetRegistryValue(int root, TXString const& path, TXString const& name, std::string& value);
    static bool GetRegistryValue(int root, TXString const& path, TXString const& name, TXString& value);
    static bool GetRegistryValue(int root, TXString const& path, TXString const& name, bool& value);
    static bool GetRegistryValue(int root, TXString const& path, TXString const& name, int& value);
    static bool GetRegistryValue(int root, TXString const& path, TXString const& name, unsigned int& value);

    static bool SetRegistryValue(int root, TXString const& path, TXString const& name, std::string const& value);
    static bool SetRegistryValue(int root, TXString const& path, TXString const& name, TXString const& value);
    static bool SetRegistryValue(int root, TXString const& path, TXString const& name, unsigned int value);
    static bool SetRegistryValue(int root, TXString const& path, TXString const& name, void const* data, int size);

    static bool RemoveRegistryKeyAndValue(int root, TXString const& path, TXString const& name);
    static bool RemoveTerminlNodeOfPath(int root, TXString const& path);

    static int ValueCount(int root, TXString const& path);
    static bool ValueName(int root, TXString const& path, int index, TXString& name);
    static int SubKeyCount(int root, TXString const& path);
    static bool SubKeyName(int root, TXString const& path, int index, TXString& name);
};
