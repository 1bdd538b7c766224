#pragma once

#include "cli/Devices.hpp"
#include "platform/CFRunLoop.hpp"
#include "platform/IORegistry.hpp"

#include <memory>
#include <optional>
#include <vector>

namespace twin {

/// Says when the registry is to be looked at: once a second, and soon after it has told of an arrival or a departure.
/// What it tells is not taken at its word; the look finds out. So an event that is late, lost or told twice costs
/// nothing. Belongs to the thread that makes it, whose loop's default mode brings the events.
class Lookout {
  public:
    static constexpr double kInterval = 1;             ///< seconds
    static constexpr double kShortestInterval = 0.05;  ///< seconds between looks: a hub brings many events at once
    static constexpr double kLeisure = 30;  ///< from one look to the next is at least this many times what a look
                                            ///< takes, up to kInterval

    Lookout();
    ~Lookout();
    Lookout(const Lookout&) = delete;
    Lookout& operator=(const Lookout&) = delete;

    /// When the next look is due; at once in the beginning.
    [[nodiscard]] double due() const { return mDue; }

    /// What is attached now; nothing when the registry can't be asked.
    [[nodiscard]] std::optional<std::vector<Device>> look(double now);

  private:
    static void changed(void* self, platform::IOIterator& iterator);

    const std::shared_ptr<platform::CFRunLoop> mLoop;
    const std::unique_ptr<platform::IONotificationPort> mPort;
    std::vector<std::unique_ptr<platform::IOIterator>> mNotifications;
    double mDue = 0;
    double mLast = 0;
    double mPause = kShortestInterval;
};

}  // namespace twin
