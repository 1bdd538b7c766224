#pragma once

#include "simulator/engine/BusDevice.hpp"
#include "simulator/engine/Fault.hpp"
#include "simulator/engine/Profile.hpp"
#include "simulator/engine/Record.hpp"
#include "simulator/engine/SettingsStore.hpp"
#include "simulator/engine/Types.hpp"
#include "simulator/engine/Wire.hpp"

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace simulator {

/// The device in software: its protocol, its store and its boot, with no idea of how it is plugged in: BusDevice says
/// what a plug-in does with it. The time off the bus during a reboot counts from detached(), so that a host always sees
/// the device go, however short the reboot. A choice of the configuration clears halts, drops queued packets and ends
/// the session, as an attach does. A halt takes its turn behind the packets that were queued before it. The device has
/// a battery: pulling the cable changes nothing else.
///
/// Any bytes may be written at any time: what makes no sense is refused and recorded. Nothing grows without bound: a
/// host that never reads loses answers.
class Device final : public BusDevice {
  public:
    explicit Device(Profile profile = {}, SettingsStore store = SettingsStore::wellUsed());

    // ---- for the plug-in

    void attached(Time now) override;
    void detached(Time now) override;
    void configured(Time now) override;
    bool wantsBus() const override { return mCable && !mAway; }
    std::optional<Time> nextDue() const override;
    void advance(Time now) override;
    WriteResult writePacket(std::span<const unsigned char> packet, Time now) override;
    bool hasPacket(Pipe pipe) const override { return !in(pipe).empty() && in(pipe).front().has_value(); }
    Bytes takePacket(Pipe pipe) override;
    bool halted(Pipe pipe) const override {
        return pipe == Pipe::BulkOut ? mOutHalted : !in(pipe).empty() && !in(pipe).front().has_value();
    }
    void clearHalt(Pipe pipe) override;
    void setCable(bool in, Time now) override;

    /// Asked by the bus before each of its operations.
    /// @return the result with which it must fail, kIOReturnSuccess to carry it out
    platform::IOReturn failure(BusOperation operation, Time now);

    // ---- for the person (or the test) that holds it

    bool cable() const { return mCable; }

    /// Sends a packet that nobody asked for, on the pipe of the profile's choice.
    void send(const UsbPacket& packet, Time now);

    void addFault(Fault fault) { mFaults.add(std::move(fault)); }
    FaultList& faults() { return mFaults; }
    const FaultList& faults() const { return mFaults; }

    const Profile& profile() const override { return mProfile; }
    /// Changes count from the next packet on; those of ids and pipes from the next attach.
    Profile& profile() { return mProfile; }
    SettingsStore& store() { return mStore; }
    const SettingsStore& store() const { return mStore; }
    Record& record() { return mRecord; }
    const Record& record() const { return mRecord; }

    bool isAttached() const { return mAttached; }
    bool sessionStarted() const { return mSession; }
    BootState bootState() const { return mState; }
    void setBootState(BootState state, Time now);

  private:
    /// Packets in the order in which the host will see them; nothing stands for a halt.
    using InQueue = std::deque<std::optional<Bytes>>;

    /// An answer on its way: what is to leave, and how, once its moment has come.
    struct Outgoing {
        Bytes bytes;
        std::optional<Pipe> pipe = {};     ///< nothing: as the profile says
        bool announced = true;             ///< on the bulk pipe, after packet 2
        std::size_t splitAt = 0;           ///< a first transfer of that many bytes; 0 for one transfer
        bool stall = false;                ///< the pipe is halted in place of the answer
        std::optional<Fault> unplug = {};  ///< the cable comes out in place of the answer
    };

    const InQueue& in(Pipe pipe) const { return mIn[pipe == Pipe::InterruptIn ? 0 : 1]; }
    InQueue& in(Pipe pipe) { return mIn[pipe == Pipe::InterruptIn ? 0 : 1]; }

    void meetFaults(std::span<const unsigned char> firstPacket, Time now);
    void packetReceived(const Bytes& bytes, Time now);
    void usbLayer(const UsbPacket& packet, Time now);
    void applicationLayer(const UsbPacket& packet, Time now);
    void command(const UsbPacket& packet, Time now);
    void identify(Time now);

    void answer(UsbPacket packet, Time now);
    void schedule(Outgoing outgoing, Duration delay, Time now);
    void leave(const Outgoing& outgoing, Time now);
    Pipe pipeFor(std::span<const unsigned char> bytes) const;
    void transfer(Pipe pipe, std::span<const unsigned char> bytes, Time now);

    void pullCable(std::optional<Duration> comesBack, Time now);
    void unplugLater(const Fault& fault, Time now);
    void halt(Pipe pipe);
    void goAway(Time now);
    Duration timeAway() const { return mBoots ? mProfile.bootTime.value_or(Duration{0}) : mProfile.rebootTime; }
    void comeBack(Time now);

    std::vector<Fault> strike(const FaultList::Moment& moment, Time now);
    void refuse(std::string reason, std::span<const unsigned char> bytes, Time now);
    void note(RecordEntry::Kind kind, std::string text, Time now);
    void dropTraffic();

    Profile mProfile;
    SettingsStore mStore;
    Record mRecord;
    FaultList mFaults;

    BootState mState = BootState::Running;
    bool mCable = false;
    bool mAway = false;   ///< off the bus by its own wish
    bool mBoots = false;  ///< resumes its boot off the bus, or is about to
    bool mAttached = false;
    bool mSession = false;

    std::array<InQueue, 2> mIn;
    Bytes mGathered;         ///< of the host's packet that has not ended yet
    bool mOversize = false;  ///< the host's packet is longer than any can be; its rest is thrown away
    bool mOutHalted = false;
    std::optional<Time> mOutBusyUntil;
    bool mMetFaults = false;           ///< the packet on offer or being gathered has been shown to the faults
    std::vector<Fault> mPacketFaults;  ///< what is to happen once that packet is complete

    Bytes mClock = {1, 2, 0xEA, 0x07, 3, 0, 4, 5};  ///< 2 January 2026, 03:04:05, as the time packet carries it
    std::multimap<Time, Outgoing> mScheduled;
    std::optional<Time> mLeaveAt;
    std::optional<Time> mReturnAt;
    std::optional<Time> mWindowEnds;
    std::optional<Time> mUnplugAt;
    std::optional<Time> mReplugAt;
    std::optional<Duration> mReplugAfter;  ///< counted from leaving the bus
};

}  // namespace simulator
