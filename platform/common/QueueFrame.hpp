#pragma once

namespace platform {

/// Marks the calling thread as being inside a block of a queue while it lives; frames nest.
class QueueFrame {
  public:
    /// @param label  borrowed as long as the frame lives; null leaves currentLabel() as it is
    QueueFrame(const void* queue, const char* label);
    ~QueueFrame();
    QueueFrame(const QueueFrame&) = delete;
    QueueFrame& operator=(const QueueFrame&) = delete;

    /// True inside a block of that queue, at any depth. Any thread.
    static bool isInside(const void* queue);

    /// The label of the queue whose block the calling thread is in; outside of any, "main" on the main thread, whose
    /// loop is the main queue's, and empty on every other. Valid until that block ends.
    static const char* currentLabel();

  private:
    const void* const mQueue;
    const char* const mLabel;
    const QueueFrame* const mOuter;
};

}  // namespace platform
