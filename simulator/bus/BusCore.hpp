#pragma once

#include "platform/CFRunLoop.hpp"
#include "platform/IORegistry.hpp"
#include "platform/IOUSB.hpp"
#include "simulator/engine/Device.hpp"
#include "simulator/engine/Types.hpp"

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

namespace simulator {

class BusCore;

/// One mode of one run loop, as a source was told it. Its identity tells blocks posted for it from those of a later
/// one.
struct Schedule {
    const std::shared_ptr<platform::CFRunLoop> loop;
    const std::string mode;
    std::size_t onTheWay = 0;  ///< a connection's blocks that have not been run yet; under the bus's lock
};

/// What is to be done once the bus's lock has been released: blocks for run loops, the drive, the observer.
class DeferredWork {
  public:
    void post(std::shared_ptr<const Schedule> schedule, std::function<void()> block) {
        mPosts.push_back({std::move(schedule), std::move(block)});
    }
    void wake(Drive* drive) { mDrive = drive; }
    void tell(std::shared_ptr<const std::function<void()>> observer) { mObserver = std::move(observer); }
    void run();

  private:
    struct Post {
        std::shared_ptr<const Schedule> schedule;
        std::function<void()> block;
    };
    std::vector<Post> mPosts;
    Drive* mDrive = nullptr;
    std::shared_ptr<const std::function<void()>> mObserver;
};

/// An opened interface: its transfers, the completions on their way to the owner's loop, and the source that brings
/// them there. Shared by the interface object, the port, the loop and the blocks on their way. Guarded by the bus's
/// lock.
///
/// A transfer waits in its pipe until the device serves it; then it is a completion, which waits in one line with those
/// of the other pipes. For each completion one block is posted, so that a loop that returns after one source returns
/// after one completion. The blocks are only turns: each reports whatever stands first by then, and one whose schedule
/// is over reports nothing.
class Connection final : public platform::CFRunLoopSource, public std::enable_shared_from_this<Connection> {
  public:
    struct Transfer {
        Bytes bytes;                      ///< to write, or read so far
        std::size_t written = 0;          ///< of a write
        std::span<unsigned char> buffer;  ///< of a read
        platform::IOAsyncCallback1 callback = nullptr;
        void* refCon = nullptr;
    };

    explicit Connection(std::shared_ptr<BusCore> core) : mCore(std::move(core)) {}

    /// Starts transfers waiting on one pipe, by its index within the interface.
    std::deque<Transfer>& pending(std::size_t pipe) { return mPending[pipe]; }

    /// Ends a transfer: its completion is due from now on.
    void complete(Transfer transfer, platform::IOReturn result, DeferredWork& after);
    void completeAll(std::size_t pipe, platform::IOReturn result, DeferredWork& after);
    void completeAll(platform::IOReturn result, DeferredWork& after);

    std::size_t count() const;
    void drop();  ///< takes everything back, completions included

    // platform::CFRunLoopSource; without the lock
    void scheduled(const std::shared_ptr<platform::CFRunLoop>& loop, std::string_view mode) override;
    void cancelled() override;

    bool isDelivering() const { return mDelivering > 0; }  ///< owner thread only

    static constexpr std::size_t kMostPipes = 16;

  private:
    struct Completion {
        Transfer transfer;
        platform::IOReturn result;
    };

    void postOne(DeferredWork& after);
    void deliver(Schedule& schedule);  ///< on the owner's loop, without the lock

    std::shared_ptr<BusCore> mCore;
    std::array<std::deque<Transfer>, kMostPipes> mPending;
    std::deque<Completion> mCompletions;
    std::shared_ptr<Schedule> mSchedule;
    int mDelivering = 0;  ///< blocks being run just now; owner thread only
};

/// Which attach of which port an object belongs to. It goes stale when the device leaves.
struct Attachment {
    std::size_t port = 0;
    std::uint64_t entryId = 0;
};

/// One place to plug a device in.
struct BusPort {
    BusPort(Profile profile, SettingsStore store, std::string where)
        : device(std::move(profile), std::move(store)), path(std::move(where)) {}

    Device device;
    std::string path;
    bool attached = false;
    std::uint64_t entryId = 0;                  ///< of the present attach
    const void* openedBy = nullptr;             ///< the device object that holds it
    std::shared_ptr<Connection> connection;     ///< the opened interface
    std::array<std::uint64_t, 5> appearance{};  ///< what the observer was last told of
};

/// A notification port's listening side, which is its source as well. Guarded by the bus's lock.
class Listener final : public platform::CFRunLoopSource, public std::enable_shared_from_this<Listener> {
  public:
    struct Notification {
        std::string type;  ///< kIOServiceMatched or kIOServiceTerminate
        platform::MatchingDictionary matching;
        platform::IOServiceMatchingCallback callback = nullptr;
        void* refCon = nullptr;
        std::vector<Attachment> entries;  ///< arrived or gone, not yet handed over
        bool posted = false;
        bool armed = false;  ///< the iterator over what was there has been taken to its end
    };

    explicit Listener(std::shared_ptr<BusCore> core) : mCore(std::move(core)) {}

    std::size_t add(Notification notification) {
        mNotifications.push_back(std::move(notification));
        return mNotifications.size() - 1;
    }
    void arm(std::size_t notification, DeferredWork& after);
    /// Has the notifications of a type tell of an attachment.
    void tell(std::string_view type, const BusPort& port, const Attachment& attachment, DeferredWork& after);
    void close() noexcept;  ///< without the lock

    // platform::CFRunLoopSource; without the lock
    void scheduled(const std::shared_ptr<platform::CFRunLoop>& loop, std::string_view mode) override;
    void cancelled() override;

  private:
    void post(std::size_t notification, DeferredWork& after);
    void deliver(std::size_t notification, const Schedule& schedule);  ///< on the listener's loop, without the lock

    std::shared_ptr<BusCore> mCore;
    std::vector<Notification> mNotifications;
    std::shared_ptr<const Schedule> mSchedule;
};

/// The bus itself: ports, listeners and the lock. An operation and all that the devices make of it are one turn under
/// the lock, so that nobody ever sees a transfer that waits although it could be served. What calls outwards (a block
/// for a loop, the drive, the observer) is kept in a DeferredWork and comes once the lock has been released, since it
/// may call back into the bus. Two threads can therefore post in another order than they worked in; blocks are only
/// turns, and the order of completions is that of their line.
///
/// Shared by everything it hands out, so that an object may outlive the bus; once the bus has gone no device is
/// attached any more.
class BusCore : public std::enable_shared_from_this<BusCore> {
  public:
    explicit BusCore(Drive& drive) : mDrive(&drive) {}

    /// Runs an action under the lock, then whatever the devices want because of it, then, without the lock, what has to
    /// be posted. The action is given that work to add to.
    template <typename Action>
    auto locked(Action action) {
        if constexpr (std::is_void_v<std::invoke_result_t<Action, DeferredWork&>>) {
            locked([&](DeferredWork& after) { return action(after), 0; });
        } else {
            DeferredWork after;
            auto result = [&] {
                const std::lock_guard lock(mMutex);
                auto value = action(after);
                settle(after);
                return value;
            }();
            after.run();
            return result;
        }
    }

    /// As locked(), for an attached device: kIOReturnNoDevice when the attachment has gone stale, the fault's result
    /// when one strikes at the operation.
    template <typename Action>
    platform::IOReturn onDevice(const Attachment& attachment, BusOperation operation, Action action) {
        return locked([&](DeferredWork& after) -> platform::IOReturn {
            BusPort* port = find(attachment);
            if (!port) return platform::kIOReturnNoDevice;
            const platform::IOReturn failure = port->device.failure(operation, now());
            return failure != platform::kIOReturnSuccess ? failure : action(*port, after);
        });
    }

    // Under the lock only:
    Time now() { return mDrive ? mDrive->now() : Time{0}; }
    BusPort* find(const Attachment& attachment);
    std::vector<std::unique_ptr<BusPort>>& ports() { return mPorts; }
    FaultList& faults() { return mFaults; }
    platform::IOReturn busFailure(BusOperation operation);
    std::vector<Attachment> present(const platform::MatchingDictionary& matching) const;
    void addListener(std::shared_ptr<Listener> listener) { mListeners.push_back(std::move(listener)); }
    void removeListener(const std::shared_ptr<Listener>& listener) { std::erase(mListeners, listener); }
    void setObserver(std::function<void()> observer);
    void advance(Time now);
    std::optional<Time> nextDue();  ///< and remembers that the drive knows it
    void shutDown(DeferredWork& after);

  private:
    void settle(DeferredWork& after);
    void settle(std::size_t index, DeferredWork& after);
    bool follow(std::size_t index, DeferredWork& after);
    void serveWrites(BusPort& port, std::size_t pipe, DeferredWork& after);
    void serveReads(BusPort& port, std::size_t pipe, Pipe which, DeferredWork& after);
    std::optional<Time> earliest() const;

    std::mutex mMutex;
    Drive* mDrive;  ///< null once the bus has gone
    std::vector<std::unique_ptr<BusPort>> mPorts;
    std::vector<std::shared_ptr<Listener>> mListeners;
    FaultList mFaults;
    std::optional<Time> mKnownDue;  ///< what the drive sleeps for
    std::uint64_t mLastEntryId = 0x100000000;
    std::shared_ptr<const std::function<void()>> mObserver;

    friend class Connection;
    friend class Listener;
};

/// Which of the three pipes a pipe of the profile is; nothing for a pipe that the device has beside them.
std::optional<Pipe> roleOf(const Profile& profile, std::size_t pipe);

/// What a device's registry entry says of it.
std::optional<platform::PropertyList> propertyOf(const Profile& profile, const std::string& key);

bool matches(const Profile& profile, const platform::MatchingDictionary& matching);

}  // namespace simulator
