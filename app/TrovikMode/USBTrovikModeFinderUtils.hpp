#pragma once

#include "app/TrovikMode/USBRegistryInfo.hpp"
#include "platform/IORegistry.hpp"

#include <optional>
#include <string>
#include <vector>

/// Finds the maker's devices that are attached in Trovik mode, and reports those that come.
class USBTrovikModeFinderUtils {
  public:
    /// What a device in Trovik mode looks like in the registry: vendor, product 3 and release 1, all of them.
    static platform::MatchingDictionary createTMDeviceMatcher();

    /// The devices present now, in the registry's order. A device that readEntry() can't read is left out. Never waits
    /// for a device. Any thread.
    /// @return nothing when the registry can't be asked; an empty list when there is no device
    static std::optional<std::vector<USBRegistryInfo>> connectedPaths();

    /// Reads an entry of the registry into a record: its path, and then, where the path could be read (it has 511 bytes
    /// at most), its id. What can't be read stays as it was.
    /// @return whether both could be read
    static bool readEntry(platform::IOService& entry, USBRegistryInfo& info);

    /// True whenever the registry could be asked, also with no device attached.
    static bool tmDeviceConnected();

    /// Has the call-back told of each device that attaches from now on, for the life of the process, by the calling
    /// thread's run loop in its default mode. Devices present at this moment are not told of.
    /// @param type  platform::kIOServiceMatched
    /// @return false when the registry refuses
    /// Callback on the calling thread.
    static bool observeTMDevicesForType(const char* type, platform::IOServiceMatchingCallback callback, void* refCon);
};
