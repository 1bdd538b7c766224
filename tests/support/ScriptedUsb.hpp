#pragma once

#include "platform/IORegistry.hpp"
#include "platform/IOUSB.hpp"
#include "simulator/world/SimulatedClock.hpp"

#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace support {

/// One USB device whose every transfer follows a script: any result and any bytes, on any pipe,
/// in any order, whether a real device could do that or not. For what the simulated device, which keeps to the rules of
/// the bus, can't be made to do. One thread, simulated time. It must outlive what it hands out.
class ScriptedUsb final : public platform::IORegistry, public simulator::TimedWork {
  public:
    using Bytes = std::vector<unsigned char>;

    static constexpr std::uint8_t kInterruptIn = 1;  ///< pipe references, as long as `pipes` is left alone
    static constexpr std::uint8_t kBulkIn = 2;

    explicit ScriptedUsb(simulator::SimulatedClock& clock) : mClock(clock) { mClock.add(*this); }
    ~ScriptedUsb() override { mClock.remove(*this); }
    ScriptedUsb(const ScriptedUsb&) = delete;
    ScriptedUsb& operator=(const ScriptedUsb&) = delete;

    /// Adds the end of a read. It waits for the ones added before it, for `delay`, and for a read on its pipe; one
    /// whose pipe nobody reads lets those behind it pass.
    /// @param count  reported in place of what fits into the read
    /// @param times  so many reads end alike, one after the other
    void brings(std::uint8_t pipe, Bytes bytes, platform::IOReturn result = platform::kIOReturnSuccess,
                simulator::Duration delay = {}, std::optional<std::uint64_t> count = {}, unsigned times = 1);
    /// The same bytes as full reads of 4096 and a short (or empty) one.
    void bringsPacket(std::uint8_t pipe, const Bytes& packet);

    /// Reports a byte count without any bytes, also one that no read can have.
    void bringsCount(std::uint8_t pipe, std::uint64_t count, unsigned times = 1) {
        brings(pipe, {}, platform::kIOReturnSuccess, {}, count, times);
    }

    /// Adds the end of a write, for the next one that has none; without it a write succeeds at once.
    struct WriteEnd {
        platform::IOReturn result = platform::kIOReturnSuccess;
        bool ends = true;  ///< false: the device never takes it
        simulator::Duration delay{};
        std::uint64_t count = 0;        ///< reported in place of what was written, when not 0
        std::function<void()> raise{};  ///< called in place of the completion
    };
    void endsWrite(WriteEnd end) { mWriteEnds.push_back(std::move(end)); }

    std::vector<platform::PipeProperties> pipes = {{platform::kUSBIn, 1, platform::kUSBInterrupt, 64, 1},
                                                   {platform::kUSBIn, 2, platform::kUSBBulk, 64, 0},
                                                   {platform::kUSBOut, 3, platform::kUSBBulk, 64, 0}};
    std::string path = "scripted";
    simulator::Duration opensIn{};
    std::vector<Bytes> writes;  ///< each write, in order

    std::size_t readsPending(std::uint8_t pipe) { return mReads[pipe].size(); }
    bool isIdle() const { return !mIsOpen && !mLoop && mReads.empty(); }  ///< closed, no source on a run loop

    // platform::IORegistry
    platform::IOReturn IOServiceGetMatchingServices(const platform::MatchingDictionary& matching,
                                                    std::unique_ptr<platform::IOIterator>& iterator) override;
    std::unique_ptr<platform::IONotificationPort> IONotificationPortCreate() override { return nullptr; }
    platform::IOReturn IOServiceAddMatchingNotification(platform::IONotificationPort&, const std::string&,
                                                        const platform::MatchingDictionary&,
                                                        platform::IOServiceMatchingCallback, void*,
                                                        std::unique_ptr<platform::IOIterator>&) override {
        return platform::kIOReturnUnsupported;
    }
    std::unique_ptr<platform::IOService> IORegistryEntryFromPath(const std::string& wanted) override;

    // simulator::TimedWork
    std::optional<simulator::Time> nextDue() override;
    void run(simulator::Time now) override;

  private:
    class Node;
    struct Read {
        std::span<unsigned char> buffer;
        platform::IOAsyncCallback1 callback;
        void* refCon;
    };
    struct Event {
        simulator::Time due;
        std::function<bool()> happens;  ///< false: not yet, it waits for a read
    };

    void pump() { run(mClock.now()); }
    void add(simulator::Time due, std::function<bool()> happens);
    void post(std::function<void()> work);

    simulator::SimulatedClock& mClock;
    std::shared_ptr<platform::CFRunLoop> mLoop;  ///< null until the source is scheduled
    std::string mMode;
    std::shared_ptr<bool> mIsOpen;
    std::list<Event> mEvents;
    simulator::Time mLastDue{};
    simulator::Time mPumped{};  ///< what was due by then waits for a read, not for the clock
    std::map<std::uint8_t, std::deque<Read>> mReads;
    std::deque<WriteEnd> mWriteEnds;
};

}  // namespace support
