#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace platform {

class DispatchQueue;

/// Something that the system tells of, delivered as a block on a queue. The maker owns it and keeps the queue alive as
/// long as the source.
class DispatchSource {
  public:
    /// Cancels. When called on the queue, or while nothing runs there, the handler never runs after this.
    virtual ~DispatchSource() = default;
};

/// Makes sources. Any thread; a source's handler runs on its queue.
class DispatchSources {
  public:
    using Date = std::chrono::system_clock::time_point;  ///< a moment of the wall clock
    using Handler = std::function<void()>;               ///< what runs on the queue

    virtual ~DispatchSources() = default;

    /// Watches an open file: the handler runs once, when the path no longer names this file, because the name has been
    /// removed, renamed, moved or given to another file. Other names of the file don't matter. What happened to the
    /// path before this call counts too; that a folder above it is moved is not noticed at once.
    /// @param descriptor  an open descriptor of the file; borrowed for the call
    /// @param path        the name to watch
    /// @param queue       borrowed; must outlive the source
    /// @param handler     callback on the queue
    /// @return null when the system can't watch the file
    /// Never waits for the file to change.
    [[nodiscard]] virtual std::unique_ptr<DispatchSource> dispatch_source_vnode(int descriptor, const std::string& path,
                                                                                DispatchQueue& queue,
                                                                                Handler handler) = 0;

    /// Runs the handler once at a moment of the wall clock: later set clocks, time-zone changes and suspends included.
    /// A moment that has passed fires at once.
    /// @return null when the system has no timer left
    /// Never blocks.
    [[nodiscard]] virtual std::unique_ptr<DispatchSource> dispatch_source_timer(Date fireDate, DispatchQueue& queue,
                                                                                Handler handler) = 0;
};

}  // namespace platform
