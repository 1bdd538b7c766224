#pragma once

#include <string>
#include <utility>
#include <vector>

namespace simulator {

/// The device's non-volatile settings, as a person would see them: names and values in a fixed order. A plain value.
class SettingsStore {
  public:
    using Entry = std::pair<std::string, std::string>;

    SettingsStore() = default;
    explicit SettingsStore(std::vector<Entry> entries) : mEntries(std::move(entries)) {}

    /// What somebody who has used the device for a while would have in it.
    static SettingsStore wellUsed();

    const std::vector<Entry>& entries() const { return mEntries; }
    bool empty() const { return mEntries.empty(); }
    void clear() { mEntries.clear(); }

  private:
    std::vector<Entry> mEntries;
};

}  // namespace simulator
