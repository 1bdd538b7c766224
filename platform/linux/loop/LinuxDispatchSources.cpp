#include "platform/linux/loop/LinuxDispatchSources.hpp"

#include "platform/Dispatch.hpp"
#include "platform/common/Boundary.hpp"
#include "platform/common/FileDescriptor.hpp"

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/thread_pool.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <mutex>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <utility>

namespace platform {
namespace {

using boost::asio::posix::stream_descriptor;

/// Never destroyed, nor is its thread ended: sources may be made and cancelled until the very end of the process.
boost::asio::thread_pool& eventThread() {
    static auto& thread = *new boost::asio::thread_pool(1);
    return thread;
}

/// Reads a descriptor and tells whether what a source waits for has happened. Never blocks.
using HasHappened = std::function<bool(int descriptor)>;

/// A kernel object that becomes readable, what it means when it does, and whom to tell. A source shares it with a block
/// that waits in the queue, and for moments with the event thread.
class Event : public std::enable_shared_from_this<Event> {
  public:
    /// @throws boost::system::system_error  no descriptor or no thread is left
    Event(FileDescriptor descriptor, HasHappened hasHappened, DispatchQueue& queue, std::function<void()> handler)
        : mHasHappened(std::move(hasHappened)),
          mHandler(std::move(handler)),
          mDescriptor(eventThread(), descriptor.get()),
          mQueue(&queue) {
        descriptor.release();
    }

    void start() {
        const std::lock_guard lock(mLock);
        wait();
    }

    void cancel() noexcept {
        const std::lock_guard lock(mLock);
        mQueue = nullptr;
        boost::system::error_code ignored;
        mDescriptor.close(ignored);
    }

  private:
    void wait() {  // mLock held
        mDescriptor.async_wait(stream_descriptor::wait_read, [weak = weak_from_this()](const auto& error) {
            if (const auto self = weak.lock(); self && !error)
                runGuarded([&] { self->look(); }, "LinuxDispatchSources", __LINE__);
        });
    }

    void look() {
        const std::lock_guard lock(mLock);
        if (!mQueue) return;
        if (!mHasHappened(mDescriptor.native_handle())) return wait();
        // The lock is kept, since only it keeps the queue alive here; a queue's own lock is taken last everywhere.
        mQueue->dispatch_async([self = shared_from_this()] {
            if (const std::unique_lock isWanted(self->mLock); !self->mQueue) return;
            self->mHandler();
        });
    }

    const HasHappened mHasHappened;
    const std::function<void()> mHandler;
    std::mutex mLock;
    stream_descriptor mDescriptor;  ///< behind mLock
    DispatchQueue* mQueue;          ///< behind mLock; null once nobody wants to know any more
};

class Source final : public DispatchSource {
  public:
    explicit Source(std::shared_ptr<Event> event) : mEvent(std::move(event)) { mEvent->start(); }
    ~Source() override { mEvent->cancel(); }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

  private:
    const std::shared_ptr<Event> mEvent;
};

std::unique_ptr<DispatchSource> makeSource(FileDescriptor descriptor, HasHappened hasHappened, DispatchQueue& queue,
                                           std::function<void()> handler) {
    try {
        return std::make_unique<Source>(
            std::make_shared<Event>(std::move(descriptor), std::move(hasHappened), queue, std::move(handler)));
    } catch (const boost::system::system_error&) {
        return nullptr;
    }
}

/// Whether a path no longer names a file. What the kernel tells is only that something may have happened to the name.
/// It tells of a deletion once the last descriptor is closed, and the watcher's is open; and the count of a file's
/// names says nothing of this one, since another may have been added in the same moment.
bool hasLostItsName(const struct stat& file, const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0) return status.st_dev != file.st_dev || status.st_ino != file.st_ino;
    return errno == ENOENT || errno == ENOTDIR;
}

/// The timer is told of every step of the clock, so that no step can leave it behind.
bool arm(int timer, const itimerspec& when) {
    return ::timerfd_settime(timer, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &when, nullptr) == 0;
}

}  // namespace

std::unique_ptr<DispatchSource> LinuxDispatchSources::dispatch_source_vnode(int descriptor, const std::string& path,
                                                                            DispatchQueue& queue, Handler handler) {
    FileDescriptor inotify(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    struct stat file {};
    if (!inotify || ::fstat(descriptor, &file) != 0) return nullptr;
    // By way of the descriptor, so that it is this file that is watched, whatever its name stands for by now.
    const std::string opened = "/proc/self/fd/" + std::to_string(descriptor);
    if (::inotify_add_watch(inotify.get(), opened.c_str(), IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF) < 0) {
        if (errno != ENOENT) return nullptr;
    }
    if (hasLostItsName(file, path)) return dispatch_source_timer({}, queue, std::move(handler));
    const auto hasHappened = [file, path](int events) {
        alignas(inotify_event) char buffer[4096];
        while (::read(events, buffer, sizeof buffer) > 0) {
        }
        return hasLostItsName(file, path);
    };
    return makeSource(std::move(inotify), hasHappened, queue, std::move(handler));
}

std::unique_ptr<DispatchSource> LinuxDispatchSources::dispatch_source_timer(Date fireDate, DispatchQueue& queue,
                                                                            Handler handler) {
    using namespace std::chrono;
    // Not before the first nanosecond: a zero time would disarm the timer.
    const nanoseconds since = std::max<nanoseconds>(fireDate.time_since_epoch(), nanoseconds(1));
    const seconds whole = floor<seconds>(since);
    const itimerspec when{{}, {static_cast<time_t>(whole.count()), static_cast<long>((since - whole).count())}};
    FileDescriptor timer(::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC));
    if (!timer || !arm(timer.get(), when)) return nullptr;
    const auto hasHappened = [when](int expirations) {
        std::uint64_t count = 0;
        if (::read(expirations, &count, sizeof count) == static_cast<ssize_t>(sizeof count)) return true;
        // The clock has been set. A moment that has passed meanwhile makes the timer readable again at once.
        return errno == ECANCELED && !arm(expirations, when);
    };
    return makeSource(std::move(timer), hasHappened, queue, std::move(handler));
}

}  // namespace platform
