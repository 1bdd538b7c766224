#include "platform/linux/loop/LinuxDispatchSources.hpp"

#include "platform/Dispatch.hpp"
#include "platform/common/FileDescriptor.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <system_error>
#include <thread>
#include <utility>

namespace platform {
namespace {

/// A kernel object that becomes readable, and what it means when it does.
class Event {
  public:
    explicit Event(FileDescriptor descriptor) : mDescriptor(std::move(descriptor)) {}
    virtual ~Event() = default;
    int descriptor() const { return mDescriptor.get(); }
    virtual bool hasHappened() = 0;  ///< reads the descriptor; never blocks

  private:
    FileDescriptor mDescriptor;
};

class VnodeEvent final : public Event {
  public:
    VnodeEvent(FileDescriptor inotify, const struct stat& file, std::string path)
        : Event(std::move(inotify)), mDevice(file.st_dev), mInode(file.st_ino), mPath(std::move(path)) {}

    bool hasHappened() override {
        alignas(inotify_event) char buffer[4096];
        while (::read(descriptor(), buffer, sizeof buffer) > 0) {
        }
        return hasLostItsName();
    }

    // What the kernel tells is only that something may have happened to the name. It tells of a deletion once the last
    // descriptor is closed, and ours is open; and the count of a file's names says nothing of this one, since another
    // may have been added in the same moment.
    bool hasLostItsName() const {
        struct stat status {};
        if (::lstat(mPath.c_str(), &status) == 0) return status.st_dev != mDevice || status.st_ino != mInode;
        return errno == ENOENT || errno == ENOTDIR;
    }

  private:
    dev_t mDevice;
    ino_t mInode;
    std::string mPath;
};

class TimerEvent final : public Event {
  public:
    TimerEvent(FileDescriptor timer, const itimerspec& when) : Event(std::move(timer)), mWhen(when) {}

    bool arm() const {
        // Told of every step of the clock, so that no step can leave the timer behind.
        return ::timerfd_settime(descriptor(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &mWhen, nullptr) == 0;
    }

    bool hasHappened() override {
        std::uint64_t count = 0;
        if (::read(descriptor(), &count, sizeof count) == static_cast<ssize_t>(sizeof count)) return true;
        // The clock has been set. A moment that has passed meanwhile makes the timer readable again at once.
        if (errno == ECANCELED) return !arm();
        return false;
    }

  private:
    itimerspec mWhen;
};

struct Watched {
    std::unique_ptr<Event> event;
    DispatchQueue* queue;
    std::function<void()> block;
};

/// One thread that waits for all sources of the process; it exists while there is a source.
class SourceLoop {
  public:
    static std::shared_ptr<SourceLoop> shared() {
        // Never destroyed: sources may be cancelled until the very end of the process.
        static auto& lock = *new std::mutex;
        static auto& current = *new std::weak_ptr<SourceLoop>;
        const std::lock_guard guard(lock);
        std::shared_ptr<SourceLoop> loop = current.lock();
        if (!loop) current = loop = std::make_shared<SourceLoop>();
        return loop;
    }

    SourceLoop() : mEpoll(::epoll_create1(EPOLL_CLOEXEC)), mStop(::eventfd(0, EFD_CLOEXEC)) {
        epoll_event event{};
        event.events = EPOLLIN;
        if (!mEpoll || !mStop || ::epoll_ctl(mEpoll.get(), EPOLL_CTL_ADD, mStop.get(), &event) != 0)
            throw std::system_error(errno, std::generic_category(), "epoll");
        mThread = std::thread([this] { run(); });
    }

    ~SourceLoop() {
        const std::uint64_t one = 1;
        while (::write(mStop.get(), &one, sizeof one) < 0 && errno == EINTR) {
        }
        mThread.join();
    }

    /// @return 0 when the kernel refuses
    std::uint64_t add(Watched watched) {
        const std::lock_guard guard(mLock);
        const std::uint64_t id = ++mLastId;
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = id;
        if (::epoll_ctl(mEpoll.get(), EPOLL_CTL_ADD, watched.event->descriptor(), &event) != 0) return 0;
        mWatched.emplace(id, std::move(watched));
        return id;
    }

    void remove(std::uint64_t id) {
        decltype(mWatched)::node_type gone;  // destroyed, and its descriptor closed, outside of the lock
        const std::lock_guard guard(mLock);
        gone = mWatched.extract(id);
    }

  private:
    void run() {
        for (;;) {
            epoll_event event{};
            const int count = ::epoll_wait(mEpoll.get(), &event, 1, -1);
            if (count < 0 && errno != EINTR) return;
            if (count <= 0) continue;
            if (event.data.u64 == 0) return;
            fire(event.data.u64);
        }
    }

    void fire(std::uint64_t id) {
        try {
            hand(id);
        } catch (...) {
            // Not to the log: it may be waiting for a delivery that is giving up the last source, which waits for this
            // thread.
            std::fprintf(stderr, "Unknown exception caught at %s, %d\n", "DispatchSource", __LINE__);
        }
    }

    void hand(std::uint64_t id) {
        const std::lock_guard guard(mLock);
        const auto found = mWatched.find(id);
        if (found == mWatched.end() || !found->second.event->hasHappened()) return;
        ::epoll_ctl(mEpoll.get(), EPOLL_CTL_DEL, found->second.event->descriptor(), nullptr);
        // The lock is kept, since only it keeps the queue alive here; a queue's own lock is taken last everywhere.
        found->second.queue->dispatch_async(std::move(found->second.block));
    }

    FileDescriptor mEpoll;
    FileDescriptor mStop;
    std::mutex mLock;
    std::map<std::uint64_t, Watched> mWatched;  ///< behind mLock
    std::uint64_t mLastId = 0;                  ///< behind mLock
    std::thread mThread;
};

class LoopSource final : public DispatchSource {
  public:
    LoopSource(std::shared_ptr<SourceLoop> loop, std::uint64_t id, std::shared_ptr<std::atomic<bool>> cancelled)
        : mLoop(std::move(loop)), mId(id), mCancelled(std::move(cancelled)) {}
    ~LoopSource() override {
        *mCancelled = true;
        mLoop->remove(mId);
    }
    LoopSource(const LoopSource&) = delete;
    LoopSource& operator=(const LoopSource&) = delete;

  private:
    std::shared_ptr<SourceLoop> mLoop;
    std::uint64_t mId;
    std::shared_ptr<std::atomic<bool>> mCancelled;  ///< shared with a block that may still wait in the queue
};

std::unique_ptr<DispatchSource> makeSource(std::unique_ptr<Event> event, DispatchQueue& queue,
                                           std::function<void()> handler) {
    try {
        auto cancelled = std::make_shared<std::atomic<bool>>(false);
        auto loop = SourceLoop::shared();
        const std::uint64_t id = loop->add({std::move(event), &queue, [cancelled, handler = std::move(handler)] {
                                                if (!*cancelled) handler();
                                            }});
        if (id == 0) return nullptr;
        return std::make_unique<LoopSource>(std::move(loop), id, std::move(cancelled));
    } catch (const std::system_error&) {
        return nullptr;  // no descriptor or no thread left
    }
}

}  // namespace

std::unique_ptr<DispatchSource> LinuxDispatchSources::dispatch_source_vnode(int descriptor, const std::string& path,
                                                                            DispatchQueue& queue,
                                                                            std::function<void()> handler) {
    FileDescriptor inotify(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    struct stat file {};
    if (!inotify || ::fstat(descriptor, &file) != 0) return nullptr;
    // By way of the descriptor, so that it is this file that is watched, whatever its name stands for by now.
    const std::string opened = "/proc/self/fd/" + std::to_string(descriptor);
    if (::inotify_add_watch(inotify.get(), opened.c_str(), IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF) < 0) {
        if (errno != ENOENT) return nullptr;
    }
    auto event = std::make_unique<VnodeEvent>(std::move(inotify), file, path);
    if (event->hasLostItsName()) return dispatch_source_timer({}, queue, std::move(handler));
    return makeSource(std::move(event), queue, std::move(handler));
}

std::unique_ptr<DispatchSource> LinuxDispatchSources::dispatch_source_timer(
    std::chrono::system_clock::time_point fireDate, DispatchQueue& queue, std::function<void()> handler) {
    using namespace std::chrono;
    // Not before the first nanosecond: a zero time would disarm the timer.
    const nanoseconds since = std::max<nanoseconds>(fireDate.time_since_epoch(), nanoseconds(1));
    const seconds whole = floor<seconds>(since);
    itimerspec when{};
    when.it_value.tv_sec = static_cast<time_t>(whole.count());
    when.it_value.tv_nsec = static_cast<long>((since - whole).count());
    auto event = std::make_unique<TimerEvent>(
        FileDescriptor(::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC)), when);
    if (event->descriptor() < 0 || !event->arm()) return nullptr;
    return makeSource(std::move(event), queue, std::move(handler));
}

}  // namespace platform
