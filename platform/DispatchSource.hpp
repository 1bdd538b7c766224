#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace platform {

class DispatchQueue;

/// Something that the system tells of, delivered as a block on a queue. The maker owns it and keeps the queue alive as
/// long as the source.
class DispatchSource {
  public:
    /// Cancels. When called on the queue, or while nothing runs there, the handler never runs after this.
    virtual ~DispatchSource() = default;
};

/// Watches an open file: the handler runs once, when the file's last name has been removed or the file has been renamed
/// or moved. A name that was removed before this call counts too.
/// @param descriptor  an open descriptor of the file; borrowed until the source is destroyed
/// @return null when the system can't watch the file
/// Never blocks. Any thread; the handler runs on the queue.
std::unique_ptr<DispatchSource> dispatch_source_vnode(int descriptor, DispatchQueue& queue,
                                                      std::function<void()> handler);

/// Runs the handler once at a moment of the wall clock: later set clocks, time-zone changes and suspends included. A
/// moment that has passed fires at once.
/// @return null when the system has no timer left
/// Never blocks. Any thread; the handler runs on the queue.
std::unique_ptr<DispatchSource> dispatch_source_timer(std::chrono::system_clock::time_point fireDate,
                                                      DispatchQueue& queue, std::function<void()> handler);

}  // namespace platform
