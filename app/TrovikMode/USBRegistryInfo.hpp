#pragma once

#include <cstdint>
#include <string>
#include <utility>

/// One attached device in Trovik mode: its id in the device registry, and the registry path by which it is opened. The
/// path names the port and stays the same when the device leaves and comes back; the id does not.
class USBRegistryInfo {
  public:
    USBRegistryInfo() = default;
    USBRegistryInfo(std::uint64_t ioId, std::string ioPath) : mIoId(ioId), mIoPath(std::move(ioPath)) {}

    static USBRegistryInfo infoWithId(std::uint64_t ioId, std::string ioPath) { return {ioId, std::move(ioPath)}; }

    std::uint64_t ioId() const { return mIoId; }
    void setIoId(std::uint64_t ioId) { mIoId = ioId; }
    const std::string& ioPath() const { return mIoPath; }
    void setIoPath(std::string ioPath) { mIoPath = std::move(ioPath); }

    bool operator==(const USBRegistryInfo&) const = default;

  private:
    std::uint64_t mIoId = 0;
    std::string mIoPath;
};
