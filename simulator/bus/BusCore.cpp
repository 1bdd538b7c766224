#include "simulator/bus/BusCore.hpp"

#include "simulator/bus/UsbObjects.hpp"

#include <algorithm>

namespace simulator {

void DeferredWork::run() {
    for (auto& post : mPosts) post.schedule->loop->CFRunLoopPerformBlock(post.schedule->mode, std::move(post.block));
    if (mDrive) mDrive->dueChanged();
    if (mObserver && *mObserver) (*mObserver)();
}

std::optional<Pipe> roleOf(const Profile& profile, std::size_t pipe) {
    for (const Pipe role : {Pipe::InterruptIn, Pipe::BulkIn, Pipe::BulkOut}) {
        if (profile.pipe(role) == &profile.pipes[pipe]) return role;
    }
    return std::nullopt;
}

std::optional<platform::PropertyList> propertyOf(const Profile& profile, const std::string& key) {
    using Number = std::int64_t;
    if (key == "idVendor") return platform::PropertyList{Number{profile.vendorId}};
    if (key == "idProduct") return platform::PropertyList{Number{profile.productId}};
    if (key == "bcdDevice") return platform::PropertyList{Number{profile.releaseNumber}};
    if (key == platform::kUSBProductString) return platform::PropertyList{profile.productName};
    return std::nullopt;
}

bool matches(const Profile& profile, const platform::MatchingDictionary& matching) {
    if (matching.className != platform::kIOUSBDeviceClassName) return false;
    return std::ranges::all_of(matching.properties, [&](const auto& property) {
        return propertyOf(profile, property.first) == platform::PropertyList{std::int64_t{property.second}};
    });
}

// ---- Connection

void Connection::complete(Transfer transfer, platform::IOReturn result, DeferredWork& after) {
    mCompletions.push_back({std::move(transfer), result});
    postOne(after);
}

void Connection::completeAll(std::size_t pipe, platform::IOReturn result, DeferredWork& after) {
    for (auto& transfer : std::exchange(mPending[pipe], {})) complete(std::move(transfer), result, after);
}

void Connection::completeAll(platform::IOReturn result, DeferredWork& after) {
    for (std::size_t pipe = 0; pipe < mPending.size(); ++pipe) completeAll(pipe, result, after);
}

std::size_t Connection::count() const {
    std::size_t count = mCompletions.size();
    for (const auto& pipe : mPending) count += pipe.size();
    return count;
}

void Connection::drop() {
    for (auto& pipe : mPending) pipe.clear();
    mCompletions.clear();
}

void Connection::scheduled(const std::shared_ptr<platform::CFRunLoop>& loop, std::string_view mode) {
    mCore->locked([&](DeferredWork& after) {
        mSchedule = std::make_shared<Schedule>(Schedule{loop, std::string(mode)});
        for (std::size_t i = 0; i < mCompletions.size(); ++i) postOne(after);
    });
}

/// Also has the loop take back what was posted for the schedule, so that a mode which nobody will run again does not go
/// on existing for its sake. Nothing is posted for it from here on, but a block may still be on its way to the loop:
/// another thread takes it there once it has let go of the bus's lock.
void Connection::cancelled() {
    std::shared_ptr<Schedule> over;
    const auto isOnTheWay = [&] {
        const std::lock_guard lock(mCore->mMutex);
        return over->onTheWay > 0;
    };
    mCore->locked([&](DeferredWork&) { over.swap(mSchedule); });
    if (!over || over->mode == platform::kCFRunLoopDefaultMode) return;
    while (isOnTheWay()) {
        // The block arrives soon; the slice only bounds the wait for it.
        if (over->loop->CFRunLoopRunInMode(over->mode, 0.01, true) == platform::CFRunLoopRunResult::Stopped) {
            return over->loop->CFRunLoopStop();  // it was meant for the run around this
        }
    }
}

void Connection::postOne(DeferredWork& after) {
    if (!mSchedule) return;
    ++mSchedule->onTheWay;
    after.post(mSchedule, [self = shared_from_this(), schedule = mSchedule] { self->deliver(*schedule); });
}

/// What a call-back brings about at once, a read that it starts and that can be served, is delivered in the same run,
/// as libusb does it. A failure waits for a run of its own.
void Connection::deliver(Schedule& schedule) {
    constexpr int kMostInOneRun = 25;
    std::size_t left = 1;
    for (int count = 0; left > 0 && count < kMostInOneRun; --left, ++count) {
        Completion completion;
        std::size_t waiting = 0;
        {
            const std::lock_guard lock(mCore->mMutex);
            if (count == 0) --schedule.onTheWay;
            if (&schedule != mSchedule.get() || mCompletions.empty()) return;
            if (count > 0 && mCompletions.front().result != platform::kIOReturnSuccess) return;
            completion = std::move(mCompletions.front());
            mCompletions.pop_front();
            waiting = mCompletions.size();
        }
        auto& transfer = completion.transfer;
        std::size_t length = transfer.written;
        if (transfer.buffer.data()) {
            length = transfer.bytes.size();
            std::ranges::copy(transfer.bytes, transfer.buffer.begin());
        }
        // The byte count travels in the pointer itself.
        ++mDelivering;
        const std::unique_ptr<int, void (*)(int*)> done(&mDelivering, [](int* delivering) { --*delivering; });
        transfer.callback(transfer.refCon, completion.result, reinterpret_cast<void*>(length));
        const std::lock_guard lock(mCore->mMutex);
        if (mCompletions.size() > waiting) left = mCompletions.size() + 1;
    }
}

// ---- Listener

void Listener::tell(std::string_view type, const BusPort& port, const Attachment& attachment, DeferredWork& after) {
    for (std::size_t i = 0; i < mNotifications.size(); ++i) {
        auto& one = mNotifications[i];
        if (one.type != type || !matches(port.device.profile(), one.matching)) continue;
        one.entries.push_back(attachment);
        post(i, after);
    }
}

void Listener::arm(std::size_t notification, DeferredWork& after) {
    if (notification >= mNotifications.size()) return;  // the port has gone
    mNotifications[notification].armed = true;
    post(notification, after);
}

void Listener::post(std::size_t notification, DeferredWork& after) {
    auto& one = mNotifications[notification];
    if (!mSchedule || !one.armed || one.posted || one.entries.empty()) return;
    one.posted = true;
    after.post(mSchedule, [self = shared_from_this(), notification, schedule = mSchedule] {
        self->deliver(notification, *schedule);
    });
}

void Listener::deliver(std::size_t notification, const Schedule& schedule) {
    std::vector<Attachment> entries;
    platform::IOServiceMatchingCallback callback = nullptr;
    void* refCon = nullptr;
    {
        const std::lock_guard lock(mCore->mMutex);
        if (&schedule != mSchedule.get()) return;
        auto& one = mNotifications[notification];
        one.posted = false;
        entries.swap(one.entries);
        callback = one.callback;
        refCon = one.refCon;
    }
    const auto iterator = makeDeviceIterator(mCore, entries);
    callback(refCon, *iterator);
}

void Listener::scheduled(const std::shared_ptr<platform::CFRunLoop>& loop, std::string_view mode) {
    mCore->locked([&](DeferredWork& after) {
        mSchedule = std::make_shared<const Schedule>(Schedule{loop, std::string(mode)});
        for (std::size_t i = 0; i < mNotifications.size(); ++i) {
            mNotifications[i].posted = false;
            post(i, after);
        }
    });
}

void Listener::cancelled() {
    std::shared_ptr<const Schedule> over;  // goes after the lock, and perhaps the loop with it
    mCore->locked([&](DeferredWork&) { over.swap(mSchedule); });
}

void Listener::close() noexcept {
    cancelled();
    mCore->locked([&](DeferredWork&) {
        mCore->removeListener(shared_from_this());
        mNotifications.clear();
    });
}

// ---- BusCore

BusPort* BusCore::find(const Attachment& attachment) {
    if (attachment.port >= mPorts.size()) return nullptr;
    BusPort& port = *mPorts[attachment.port];
    return port.attached && port.entryId == attachment.entryId ? &port : nullptr;
}

platform::IOReturn BusCore::busFailure(BusOperation operation) {
    for (const auto& fault : mFaults.commit({FaultStep::At::Operation, {}, {}, {}, BootState::Running, operation})) {
        if (fault.kind == FaultKind::FailOperation) return fault.result;
    }
    return platform::kIOReturnSuccess;
}

std::vector<Attachment> BusCore::present(const platform::MatchingDictionary& matching) const {
    std::vector<Attachment> found;
    for (std::size_t i = 0; i < mPorts.size(); ++i) {
        const BusPort& port = *mPorts[i];
        if (port.attached && matches(port.device.profile(), matching)) found.push_back({i, port.entryId});
    }
    return found;
}

void BusCore::setObserver(std::function<void()> observer) {
    mObserver = observer ? std::make_shared<const std::function<void()>>(std::move(observer)) : nullptr;
}

void BusCore::advance(Time now) {
    for (auto& port : mPorts) port->device.advance(now);
}

std::optional<Time> BusCore::earliest() const {
    std::optional<Time> due;
    for (const auto& port : mPorts) {
        const auto own = port->device.nextDue();
        if (own && (!due || *own < *due)) due = own;
    }
    return due;
}

std::optional<Time> BusCore::nextDue() {
    return mKnownDue = earliest();
}

void BusCore::shutDown(DeferredWork& after) {
    for (auto& port : mPorts) {
        port->device.setCable(false, now());
        if (port->connection) port->connection->completeAll(platform::kIOReturnNoDevice, after);
        port->connection = nullptr;
        port->openedBy = nullptr;
        port->attached = false;
    }
    mListeners.clear();
    mObserver = nullptr;
    mDrive = nullptr;
}

void BusCore::settle(DeferredWork& after) {
    if (!mDrive) return;  // the bus has gone, and its devices with it
    bool changed = false;
    for (std::size_t i = 0; i < mPorts.size(); ++i) {
        settle(i, after);
        BusPort& port = *mPorts[i];
        const decltype(port.appearance) appearance = {
            (port.attached ? 1u : 0u) + (port.device.cable() ? 2u : 0u),
            static_cast<std::uint64_t>(port.device.bootState()), port.device.store().entries().size(),
            port.device.faults().size(), port.device.record().dropped() + port.device.record().entries().size()};
        changed = std::exchange(port.appearance, appearance) != appearance || changed;
    }
    if (changed && mObserver) after.tell(mObserver);
    const auto due = earliest();
    if (due && (!mKnownDue || *due < *mKnownDue)) {
        mKnownDue = due;
        after.wake(mDrive);
    }
}

/// Serves transfers and follows the device's wish until neither has anything left to do.
void BusCore::settle(std::size_t index, DeferredWork& after) {
    BusPort& port = *mPorts[index];
    do {
        if (!port.attached || !port.connection) continue;
        const auto& profile = port.device.profile();
        const std::size_t pipes = std::min(profile.pipes.size(), Connection::kMostPipes);
        // Writes first: what the device answers to them can be read at once.
        for (std::size_t pipe = 0; pipe < pipes; ++pipe) {
            if (roleOf(profile, pipe) == Pipe::BulkOut) serveWrites(port, pipe, after);
        }
        for (std::size_t pipe = 0; pipe < pipes; ++pipe) {
            const auto role = roleOf(profile, pipe);
            if (role && *role != Pipe::BulkOut) serveReads(port, pipe, *role, after);
        }
    } while (follow(index, after));
}

/// Brings the port in line with the device's wish. True when something changed.
bool BusCore::follow(std::size_t index, DeferredWork& after) {
    BusPort& port = *mPorts[index];
    if (port.attached == port.device.wantsBus()) return false;
    port.attached = !port.attached;
    if (port.attached) {
        port.entryId = ++mLastEntryId;  // what belonged to the attach before is stale from here on
        port.device.attached(now());
    } else {
        port.device.detached(now());
        // Completions on their way survive this: the interface object keeps its connection until it is closed.
        if (port.connection) port.connection->completeAll(platform::kIOReturnNoDevice, after);
        port.connection = nullptr;
        port.openedBy = nullptr;
    }
    const char* const type = port.attached ? platform::kIOServiceMatched : platform::kIOServiceTerminate;
    for (const auto& listener : mListeners) listener->tell(type, port, {index, port.entryId}, after);
    port.device.advance(now());
    return true;
}

void BusCore::serveWrites(BusPort& port, std::size_t pipe, DeferredWork& after) {
    auto& writes = port.connection->pending(pipe);
    const std::size_t most = port.device.profile().pipes[pipe].maxPacketSize;
    while (!writes.empty()) {
        auto& write = writes.front();
        auto result = Device::WriteResult::Stalled;  // of a pipe whose packets can't hold a byte
        // A transfer without bytes is one empty packet; one of whole packets ends without one.
        for (bool hasEnded = most == 0; !hasEnded;) {
            const std::size_t size = std::min(most, write.bytes.size() - write.written);
            result = port.device.writePacket(std::span(write.bytes).subspan(write.written, size), now());
            if (result == Device::WriteResult::Taken) write.written += size;
            hasEnded = result != Device::WriteResult::Taken || write.written == write.bytes.size();
        }
        if (result == Device::WriteResult::Busy) return;
        const auto ended = std::exchange(write, {});
        writes.pop_front();
        port.connection->complete(
            ended, result == Device::WriteResult::Stalled ? platform::kIOUSBPipeStalled : platform::kIOReturnSuccess,
            after);
    }
}

void BusCore::serveReads(BusPort& port, std::size_t pipe, Pipe which, DeferredWork& after) {
    auto& reads = port.connection->pending(pipe);
    const std::size_t most = port.device.profile().pipes[pipe].maxPacketSize;
    while (!reads.empty()) {
        auto& read = reads.front();
        platform::IOReturn result = platform::kIOReturnSuccess;
        if (port.device.halted(which)) {
            result = platform::kIOUSBPipeStalled;
        } else if (port.device.hasPacket(which)) {
            const Bytes packet = port.device.takePacket(which);
            const std::size_t room = read.buffer.size() - read.bytes.size();
            const std::size_t taken = std::min(room, packet.size());
            read.bytes.insert(read.bytes.end(), packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(taken));
            if (packet.size() > room) {
                result = platform::kIOReturnOverrun;
            } else if (packet.size() == most && packet.size() < room) {
                continue;  // a full packet, and room for more: the transfer goes on
            }
        } else {
            return;
        }
        auto ended = std::move(read);
        reads.pop_front();
        port.connection->complete(std::move(ended), result, after);
    }
}

}  // namespace simulator
