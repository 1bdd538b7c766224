#pragma once

#include "platform/Dispatch.hpp"

#include <memory>
#include <string>

namespace platform {

/// A thin serial queue: one block at a time, in the order of submission. A synchronous submission to an idle queue runs
/// on the caller's thread, without a hop; everything else runs on one thread that starts with the first block it is
/// needed for. The owner is whoever made it; its end runs what was submitted and joins the thread
/// (from a block of its own it lets the thread finish by itself).
class SerialQueue final : public DispatchQueue {
  public:
    explicit SerialQueue(std::string label);
    ~SerialQueue() override;
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void dispatch_async(std::function<void()> block) override;
    /// The block must not let go of the queue, as one of dispatch_async may.
    void dispatch_sync(const std::function<void()>& block) override;

    /// True inside a block of this queue. Any thread.
    bool isCurrent() const;

  private:
    struct State;
    std::shared_ptr<State> mState;  ///< shared with the thread, which may outlive the queue for the rest of one block
};

}  // namespace platform
