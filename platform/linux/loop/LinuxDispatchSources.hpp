#pragma once

#include "platform/DispatchSource.hpp"

namespace platform {

/// File watches by inotify and timers by timerfd.
class LinuxDispatchSources final : public DispatchSources {
  public:
    std::unique_ptr<DispatchSource> dispatch_source_vnode(int descriptor, const std::string& path, DispatchQueue& queue,
                                                          std::function<void()> handler) override;
    std::unique_ptr<DispatchSource> dispatch_source_timer(std::chrono::system_clock::time_point fireDate,
                                                          DispatchQueue& queue, std::function<void()> handler) override;
};

}  // namespace platform
