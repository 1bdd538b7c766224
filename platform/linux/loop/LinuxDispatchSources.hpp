#pragma once

#include "platform/DispatchSource.hpp"

namespace platform {

/// File watches by inotify and timers by timerfd, on Boost.Asio. One thread waits for all sources of the process. It is
/// made with the first of them and is there until the process ends; no more than a look at its descriptor and the
/// submission of the handler runs on it.
class LinuxDispatchSources final : public DispatchSources {
  public:
    std::unique_ptr<DispatchSource> dispatch_source_vnode(int descriptor, const std::string& path, DispatchQueue& queue,
                                                          Handler handler) override;
    std::unique_ptr<DispatchSource> dispatch_source_timer(Date fireDate, DispatchQueue& queue,
                                                          Handler handler) override;
};

}  // namespace platform
