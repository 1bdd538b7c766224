#include "platform/common/QueueFrame.hpp"

#include <thread>
#include <utility>

namespace platform {
namespace {

const std::thread::id kMainThread = std::this_thread::get_id();
thread_local const QueueFrame* tInnermost = nullptr;

}  // namespace

QueueFrame::QueueFrame(const void* queue, const char* label)
    : mQueue(queue), mLabel(label), mOuter(std::exchange(tInnermost, this)) {}

QueueFrame::~QueueFrame() {
    tInnermost = mOuter;
}

bool QueueFrame::isInside(const void* queue) {
    for (const QueueFrame* frame = tInnermost; frame; frame = frame->mOuter)
        if (frame->mQueue == queue) return true;
    return false;
}

const char* QueueFrame::currentLabel() {
    for (const QueueFrame* frame = tInnermost; frame; frame = frame->mOuter)
        if (frame->mLabel) return frame->mLabel;
    return std::this_thread::get_id() == kMainThread ? "main" : "";
}

}  // namespace platform
