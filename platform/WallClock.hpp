#pragma once

#include <chrono>

namespace platform {

/// The time of day, for what people read and for what is to follow the calendar. Unlike the Clock, it steps whenever
/// the system's clock is set. Any thread.
class WallClock {
  public:
    using Date = std::chrono::system_clock::time_point;  ///< @plain
    virtual ~WallClock() = default;
    virtual Date now() = 0;  ///< @plain
};

}  // namespace platform
