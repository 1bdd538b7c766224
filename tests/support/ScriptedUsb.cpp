#include "tests/support/ScriptedUsb.hpp"

#include <algorithm>
#include <deque>
#include <map>
#include <utility>

namespace support {

using platform::IOReturn;
using platform::kIOReturnSuccess;
using simulator::Time;

struct ScriptedUsb::State {
    struct Event {
        std::uint8_t pipe;
        Bytes bytes;
        IOReturn result;
        std::uint64_t count;
        Time due;
    };
    struct Read {
        std::span<unsigned char> buffer;
        platform::IOAsyncCallback1 callback;
        void* refCon;
    };
    struct Write {
        std::size_t size;
        WriteEnd end;
        Time due;
        platform::IOAsyncCallback1 callback;
        void* refCon;
    };

    explicit State(simulator::SimulatedClock& simulatedClock) : clock(simulatedClock) {}

    /// Hands work to the loop; it is dropped if the interface has closed by the time its turn comes.
    template <typename Work>
    void post(Work work) {
        if (!loop) return;
        loop->CFRunLoopPerformBlock(mode, [alive = std::weak_ptr<bool>(isOpen), work = std::move(work)] {
            if (alive.lock()) work();
        });
    }

    bool readsWait() const {
        return std::any_of(reads.begin(), reads.end(), [](auto const& entry) { return !entry.second.empty(); });
    }

    void pump() {
        pumped = clock.now();
        if (!loop) return;
        for (auto event = script.begin(); event != script.end() && event->due <= clock.now() && readsWait();) {
            auto& waiting = reads[event->pipe];
            if (waiting.empty()) {
                ++event;
                continue;
            }
            // The reads of a pipe share a buffer, so it is filled only right before the completion.
            post([read = waiting.front(), done = std::move(*event)] {
                std::copy_n(done.bytes.begin(), std::min(done.bytes.size(), read.buffer.size()), read.buffer.begin());
                read.callback(read.refCon, done.result, reinterpret_cast<void*>(done.count));
            });
            waiting.pop_front();
            event = script.erase(event);
        }
        for (auto write = pendingWrites.begin(); write != pendingWrites.end();) {
            if (!write->end.ends || write->due > clock.now()) {
                ++write;
                continue;
            }
            std::uint64_t const written = write->end.result == kIOReturnSuccess ? write->size : 0;
            post([done = *write, count = write->end.count != 0 ? write->end.count : written] {
                if (done.end.raise) done.end.raise();
                done.callback(done.refCon, done.end.result, reinterpret_cast<void*>(count));
            });
            write = pendingWrites.erase(write);
        }
    }

    void close() {
        isOpen.reset();
        reads.clear();
        pendingWrites.clear();
    }

    simulator::SimulatedClock& clock;
    std::shared_ptr<platform::CFRunLoop> loop;  ///< null until the source is scheduled
    std::string mode;
    std::shared_ptr<bool> isOpen;
    std::deque<Event> script;
    Time lastDue{};
    Time pumped{};  ///< what was due by then waits for a read, not for the clock
    std::map<std::uint8_t, std::deque<Read>> reads;
    std::deque<Write> pendingWrites;
    std::deque<WriteEnd> writeEnds;
    std::vector<Bytes> writes;
};

namespace {

class Source final : public platform::CFRunLoopSource {
  public:
    explicit Source(ScriptedUsb::State& state) : mState(state) {}
    void Scheduled(std::shared_ptr<platform::CFRunLoop> const& loop, std::string_view mode) override {
        mState.loop = loop;
        mState.mode = mode;
        mState.pump();
    }
    void Cancelled() override { mState.loop.reset(); }

  private:
    ScriptedUsb::State& mState;
};

/// Whatever the registry hands out, from the device's entry to its interface: each is used as what it was asked for as.
class Node final : public platform::IOService,
                   public platform::IOIterator,
                   public platform::IOCFPlugInInterface,
                   public platform::IOUSBDeviceInterface,
                   public platform::IOUSBInterfaceInterface {
  public:
    Node(std::shared_ptr<ScriptedUsb::State> state, ScriptedUsb const& usb) : mState(std::move(state)), mUsb(usb) {}
    ~Node() override {
        if (mIsOpen) mState->close();
    }

    // IOService, IOIterator
    IOReturn IORegistryEntryGetPath(std::string const&, std::string& path) override { return give(path, mUsb.path); }
    IOReturn IORegistryEntryGetRegistryEntryID(std::uint64_t& entryId) override { return give(entryId, 1U); }
    IOReturn IOCreatePlugInInterfaceForService(platform::IOUserClientType,
                                               std::unique_ptr<platform::IOCFPlugInInterface>& plugIn) override {
        return give(plugIn, node());
    }
    std::unique_ptr<platform::IOService> IOIteratorNext() override {
        return std::exchange(mIsTaken, true) ? nullptr : node();
    }

    // IOCFPlugInInterface
    IOReturn QueryInterface(std::unique_ptr<platform::IOUSBDeviceInterface>& device) override {
        return give(device, node());
    }
    IOReturn QueryInterface(std::unique_ptr<platform::IOUSBInterfaceInterface>& interface) override {
        return give(interface, node());
    }

    // IOUSBDeviceInterface
    IOReturn USBDeviceOpen() override { return kIOReturnSuccess; }
    IOReturn USBDeviceClose() override { return kIOReturnSuccess; }
    IOReturn GetConfigurationDescriptorPtr(std::uint8_t, platform::IOUSBConfigurationDescriptor& found) override {
        return give(found, platform::IOUSBConfigurationDescriptor{1, 1});
    }
    IOReturn SetConfiguration(std::uint8_t) override { return kIOReturnSuccess; }
    IOReturn GetDeviceVendor(std::uint16_t& vendor) override { return give(vendor, platform::kTrovikVendorId); }
    IOReturn GetDeviceProduct(std::uint16_t& product) override { return give(product, std::uint16_t{3}); }
    IOReturn GetDeviceReleaseNumber(std::uint16_t& release) override { return give(release, std::uint16_t{1}); }
    IOReturn CreateInterfaceIterator(platform::IOUSBFindInterfaceRequest const&,
                                     std::unique_ptr<platform::IOIterator>& iterator) override {
        return give(iterator, node());
    }

    // IOUSBInterfaceInterface
    IOReturn USBInterfaceOpen() override {
        mIsOpen = true;
        return give(mState->isOpen, std::make_shared<bool>(true));
    }
    IOReturn USBInterfaceClose() override {
        mState->close();
        return kIOReturnSuccess;
    }
    IOReturn GetNumEndpoints(std::uint8_t& count) override {
        return give(count, static_cast<std::uint8_t>(mUsb.pipes.size()));
    }
    IOReturn GetPipeProperties(std::uint8_t pipeRef, platform::PipeProperties& properties) override {
        return give(properties, mUsb.pipes.at(pipeRef - 1U));
    }
    IOReturn ReadPipeAsync(std::uint8_t pipeRef, std::span<unsigned char> buffer, platform::IOAsyncCallback1 callback,
                           void* refCon) override {
        mState->reads[pipeRef].push_back({buffer, callback, refCon});
        mState->pump();
        return kIOReturnSuccess;
    }
    IOReturn WritePipeAsync(std::uint8_t, std::span<const unsigned char> bytes, platform::IOAsyncCallback1 callback,
                            void* refCon) override {
        mState->writes.emplace_back(bytes.begin(), bytes.end());
        ScriptedUsb::WriteEnd end;
        if (!mState->writeEnds.empty()) {
            end = mState->writeEnds.front();
            mState->writeEnds.pop_front();
        }
        mState->pendingWrites.push_back({bytes.size(), end, mState->clock.now() + end.delay, callback, refCon});
        mState->pump();
        return kIOReturnSuccess;
    }
    IOReturn AbortPipe(std::uint8_t pipeRef) override {
        for (auto const& read : std::exchange(mState->reads[pipeRef], {}))
            mState->post([read] { read.callback(read.refCon, platform::kIOReturnAborted, nullptr); });
        return kIOReturnSuccess;
    }
    IOReturn CreateInterfaceAsyncEventSource(std::shared_ptr<platform::CFRunLoopSource>& source) override {
        return give(source, std::make_shared<Source>(*mState));
    }

  private:
    template <typename To, typename From>
    static IOReturn give(To& to, From from) {
        to = std::move(from);
        return kIOReturnSuccess;
    }
    std::unique_ptr<Node> node() const { return std::make_unique<Node>(mState, mUsb); }

    std::shared_ptr<ScriptedUsb::State> mState;
    ScriptedUsb const& mUsb;
    bool mIsOpen = false;
    bool mIsTaken = false;
};

}  // namespace

ScriptedUsb::ScriptedUsb(simulator::SimulatedClock& clock)
    : pipes{{platform::kUSBIn, 1, platform::kUSBInterrupt, 64, 1},
            {platform::kUSBIn, 2, platform::kUSBBulk, 64, 0},
            {platform::kUSBOut, 3, platform::kUSBBulk, 64, 0}},
      mClock(clock),
      mState(std::make_shared<State>(clock)) {
    mClock.add(*this);
}

ScriptedUsb::~ScriptedUsb() {
    mClock.remove(*this);
}

void ScriptedUsb::brings(std::uint8_t pipe, Bytes bytes, IOReturn result, simulator::Duration delay) {
    Time const due = std::max(mState->lastDue, mClock.now()) + delay;
    mState->lastDue = due;
    std::uint64_t const count = std::min<std::size_t>(bytes.size(), 4096);
    mState->script.push_back({pipe, std::move(bytes), result, count, due});
    mState->pump();
}

void ScriptedUsb::bringsPacket(std::uint8_t pipe, Bytes const& packet) {
    for (std::size_t offset = 0;; offset += 4096) {
        auto const size = std::min<std::size_t>(4096, packet.size() - offset);
        brings(pipe, Bytes(packet.begin() + static_cast<std::ptrdiff_t>(offset),
                           packet.begin() + static_cast<std::ptrdiff_t>(offset + size)));
        if (size < 4096) return;
    }
}

void ScriptedUsb::bringsCount(std::uint8_t pipe, std::uint64_t count) {
    mState->script.push_back({pipe, {}, kIOReturnSuccess, count, std::max(mState->lastDue, mClock.now())});
    mState->pump();
}

void ScriptedUsb::endsWrite(WriteEnd end) {
    mState->writeEnds.push_back(end);
}

std::vector<ScriptedUsb::Bytes> const& ScriptedUsb::writes() const {
    return mState->writes;
}
std::size_t ScriptedUsb::readsPending(std::uint8_t pipe) const {
    return mState->reads[pipe].size();
}
std::size_t ScriptedUsb::scriptLeft() const {
    return mState->script.size();
}
bool ScriptedUsb::isIdle() const {
    return !mState->isOpen && !mState->loop && mState->reads.empty() && mState->pendingWrites.empty();
}

IOReturn ScriptedUsb::IOServiceGetMatchingServices(platform::MatchingDictionary const&,
                                                   std::unique_ptr<platform::IOIterator>& iterator) {
    iterator = std::make_unique<Node>(mState, *this);
    return kIOReturnSuccess;
}
std::unique_ptr<platform::IONotificationPort> ScriptedUsb::IONotificationPortCreate() {
    return nullptr;
}
IOReturn ScriptedUsb::IOServiceAddMatchingNotification(platform::IONotificationPort&, std::string const&,
                                                       platform::MatchingDictionary const&,
                                                       platform::IOServiceMatchingCallback, void*,
                                                       std::unique_ptr<platform::IOIterator>&) {
    return platform::kIOReturnUnsupported;
}
std::unique_ptr<platform::IOService> ScriptedUsb::IORegistryEntryFromPath(std::string const& wanted) {
    if (wanted != path) return nullptr;
    return std::make_unique<Node>(mState, *this);
}

std::optional<Time> ScriptedUsb::nextDue() {
    std::optional<Time> next;
    auto const consider = [&](Time due) {
        if (due > mState->pumped && (!next || due < *next)) next = due;
    };
    auto const later = std::upper_bound(mState->script.begin(), mState->script.end(), mState->pumped,
                                        [](Time moment, auto const& event) { return moment < event.due; });
    if (later != mState->script.end()) consider(later->due);
    for (auto const& write : mState->pendingWrites)
        if (write.end.ends) consider(write.due);
    return next;
}

void ScriptedUsb::run(Time) {
    mState->pump();
}

}  // namespace support
