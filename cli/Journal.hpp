#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace twin {

/// Which devices are held in their boot loader by this program: one small file for each, on the disk before the device
/// is told to wait and gone when it starts. What is found at the next start was left behind by a run that was killed.
/// Any thread; a device at a time.
class Journal {
  public:
    struct Entry {
        std::string port;
        std::uint32_t unit = 0;  ///< 0: the device reports none
        bool operator==(const Entry&) const = default;
    };

    /// @param folder  made if need be, its parent too; empty for a journal that keeps nothing
    explicit Journal(std::string folder) : mFolder(std::move(folder)) {}

    /// Notes a device, or strikes it out; the disk has it when this returns.
    /// @return false when it could not be written
    [[nodiscard]] bool held(const Entry& entry) const;
    void released(const Entry& entry) const;
    [[nodiscard]] bool has(const Entry& entry) const;  ///< a device with a unit id: under whichever port

    [[nodiscard]] std::vector<Entry> entries() const;

    /// The user's state folder, else the runtime folder, else none (empty).
    [[nodiscard]] static std::string usualFolder();

  private:
    std::string pathOf(const Entry& entry) const;

    const std::string mFolder;
};

}  // namespace twin
