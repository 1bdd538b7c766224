#include "platform/common/CFMessagePort.hpp"

#include "platform/CFRunLoop.hpp"
#include "platform/Platform.hpp"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <utility>

namespace platform {

/// What the two sides share. Its lock covers the queue, the watchers, the loop and isValid together, and that closes
/// three races:
/// - A send against CFRunLoopAddSource. Whoever queues a message sees under the lock whether there is a loop yet, and
///   CFRunLoopAddSource counts under the lock what waits as it sets the loop. So each message has exactly one block
///   posted for it, by the one or by the other.
/// - A send that waits for room against CFMessagePortInvalidate. The end of the port is one of the things that the wait
///   looks for, so it can't be missed, and nothing is queued any more once isValid is false.
/// - CFMessagePortSetInvalidationCallBack against CFMessagePortInvalidate. A watcher is in the list before that is
///   taken, or it finds the port invalid and is told at once.
/// Nothing is posted or called with the lock held. A block may therefore come for a message that has been dropped, and
/// finds the queue empty.
struct CFMessagePort::Channel {
    struct Message {
        std::int32_t msgid;
        CFData data;
    };
    struct Watcher {
        std::shared_ptr<CFRunLoop> loop;
        std::weak_ptr<std::function<void()>> callback;

        void tell() const {
            loop->CFRunLoopPerformBlock(kCFRunLoopDefaultMode, [weak = callback] {
                if (const auto held = weak.lock()) (*held)();
            });
        }
    };

    const std::string name;
    const Callback callback;  // called on the receiving thread only

    std::mutex mutex;
    std::condition_variable room;
    bool isValid = true;              // mutex
    std::shared_ptr<CFRunLoop> loop;  // mutex; null until messages are wanted
    std::deque<Message> queue;        // mutex
    std::vector<Watcher> watchers;    // mutex

    Channel(std::string portName, Callback portCallback)
        : name(std::move(portName)), callback(std::move(portCallback)) {}

    /// Has one message delivered. The block must not keep the port alive: it may wait in a loop that is never run
    /// again.
    static void post(const std::shared_ptr<Channel>& channel, CFRunLoop& toLoop) {
        toLoop.CFRunLoopPerformBlock(kCFRunLoopDefaultMode, [weak = std::weak_ptr(channel)] {
            if (const auto held = weak.lock()) held->deliverOne();
        });
    }

    void deliverOne() {
        std::unique_lock lock(mutex);
        if (queue.empty()) return;
        const Message message = std::move(queue.front());
        queue.pop_front();
        lock.unlock();
        room.notify_one();
        callback(message.msgid, message.data);
    }
};

/// The local ports of the process by name.
struct CFMessagePort::Names {
    std::mutex mutex;
    std::map<std::string, std::weak_ptr<Channel>> channels;  // mutex

    // Never destroyed: a thread's port may go after the main thread's exit has begun.
    static Names& all() {
        static Names& names = *new Names;
        return names;
    }
};

CFMessagePort::CFMessagePort(std::shared_ptr<Channel> channel, bool isLocal)
    : mChannel(std::move(channel)), mIsLocal(isLocal) {}

CFMessagePort::~CFMessagePort() {
    if (mIsLocal) CFMessagePortInvalidate();
}

std::unique_ptr<CFMessagePort> CFMessagePort::CFMessagePortCreateLocal(const std::string& name, Callback callback) {
    auto channel = std::make_shared<Channel>(name, std::move(callback));
    const std::lock_guard lock(Names::all().mutex);
    if (!Names::all().channels.emplace(name, channel).second) return nullptr;
    return std::unique_ptr<CFMessagePort>(new CFMessagePort(std::move(channel), true));
}

std::unique_ptr<CFMessagePort> CFMessagePort::CFMessagePortCreateRemote(const std::string& name) {
    const std::lock_guard lock(Names::all().mutex);
    const auto it = Names::all().channels.find(name);
    auto channel = it == Names::all().channels.end() ? nullptr : it->second.lock();
    if (!channel) return nullptr;
    return std::unique_ptr<CFMessagePort>(new CFMessagePort(std::move(channel), false));
}

void CFMessagePort::CFRunLoopAddSource() {
    const auto loop = CFRunLoopGetCurrent();
    std::size_t waiting = 0;
    {
        const std::lock_guard lock(mChannel->mutex);
        mChannel->loop = loop;
        waiting = mChannel->queue.size();
    }
    while (waiting-- > 0) Channel::post(mChannel, *loop);
}

void CFMessagePort::CFMessagePortInvalidate() {
    {
        const std::lock_guard lock(Names::all().mutex);
        const auto it = Names::all().channels.find(mChannel->name);
        if (it != Names::all().channels.end() && it->second.lock() == mChannel) Names::all().channels.erase(it);
    }
    std::deque<Channel::Message> dropped;
    std::vector<Channel::Watcher> watchers;
    {
        const std::lock_guard lock(mChannel->mutex);
        mChannel->isValid = false;
        mChannel->loop.reset();
        dropped.swap(mChannel->queue);
        watchers.swap(mChannel->watchers);
    }
    mChannel->room.notify_all();
    for (const auto& watcher : watchers) watcher.tell();
}

bool CFMessagePort::CFMessagePortIsValid() const {
    const std::lock_guard lock(mChannel->mutex);
    return mChannel->isValid;
}

void CFMessagePort::CFMessagePortSetInvalidationCallBack(std::function<void()> callback) {
    mInvalidationCallBack = callback ? std::make_shared<std::function<void()>>(std::move(callback)) : nullptr;
    if (!mInvalidationCallBack) return;
    Channel::Watcher watcher{CFRunLoopGetCurrent(), mInvalidationCallBack};
    {
        const std::lock_guard lock(mChannel->mutex);
        std::erase_if(mChannel->watchers, [](const auto& other) { return other.callback.expired(); });
        if (mChannel->isValid) return mChannel->watchers.push_back(std::move(watcher));
    }
    watcher.tell();
}

std::int32_t CFMessagePort::CFMessagePortSendRequest(std::int32_t msgid, CFData data, CFTimeInterval sendTimeout) {
    std::unique_lock lock(mChannel->mutex);
    const auto hasRoomOrIsGone = [&] { return !mChannel->isValid || mChannel->queue.size() < kMessagePortQueueLimit; };
    if (!mChannel->room.wait_for(lock, std::chrono::duration<double>(sendTimeout), hasRoomOrIsGone)) {
        return kCFMessagePortSendTimeout;
    }
    if (!mChannel->isValid) return kCFMessagePortIsInvalid;
    mChannel->queue.push_back({msgid, std::move(data)});
    const auto loop = mChannel->loop;
    lock.unlock();
    // Senders may post in another order than they queued: each block delivers whichever message is first by then.
    if (loop) Channel::post(mChannel, *loop);
    return kCFMessagePortSuccess;
}

}  // namespace platform
