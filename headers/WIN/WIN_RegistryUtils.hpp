#pragma once

#include "WIN/WIN_TXString.hpp"

#include <string>

class CRegistry;

/// Each opens a path of the emulated registry, does one thing and closes it. Reads and removals make no keys, writes
/// make what is missing. Failures come back as results. One thread at a time.
class RegistryUtils {
  public:
    static bool PrepRegistry(CRegistry& registry, const TXString& path, bool create);

    static bool PathExists(int root, const TXString& path);
    static bool KeyExists(int root, const TXString& path, const TXString& name);

    /// @param size  of the buffer, in bytes
    /// @return as CRegistry::Read of binary data
    static unsigned int GetRegistryValue(int root, const TXString& path, const TXString& name, void* buffer, int size);
    static bool GetRegistryValue(int root, const TXString& path, const TXString& name, std::string& value);
    static bool GetRegistryValue(int root, const TXString& path, const TXString& name, TXString& value);
    static bool GetRegistryValue(int root, const TXString& path, const TXString& name, bool& value);
    static bool GetRegistryValue(int root, const TXString& path, const TXString& name, int& value);
    static bool GetRegistryValue(int root, const TXString& path, const TXString& name, unsigned int& value);

    static bool SetRegistryValue(int root, const TXString& path, const TXString& name, const std::string& value);
    static bool SetRegistryValue(int root, const TXString& path, const TXString& name, const TXString& value);
    static bool SetRegistryValue(int root, const TXString& path, const TXString& name, unsigned int value);
    static bool SetRegistryValue(int root, const TXString& path, const TXString& name, const void* data, int size);

    static bool RemoveRegistryKeyAndValue(int root, const TXString& path, const TXString& name);
    static bool RemoveTerminlNodeOfPath(int root, const TXString& path);

    static int ValueCount(int root, const TXString& path);
    static bool ValueName(int root, const TXString& path, int index, TXString& name);
    static int SubKeyCount(int root, const TXString& path);
    static bool SubKeyName(int root, const TXString& path, int index, TXString& name);
};
