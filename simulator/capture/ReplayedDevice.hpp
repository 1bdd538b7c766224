#pragma once

#include "simulator/capture/CapturedDevice.hpp"
#include "simulator/engine/BusDevice.hpp"
#include "simulator/engine/Profile.hpp"
#include "simulator/engine/Types.hpp"

#include <array>
#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace simulator {

/// Plays a captured device's side back, for as long as the host says what the host said then.
///
/// What the device sent between two packets of the host it sends as soon as the first of them has come, however long it
/// took then: order counts, not time. Times are kept where the host can't see a reason: when the device leaves the bus
/// and when it comes back. How the host reads, and in what portions it writes, is its own affair.
///
/// A packet of the host has to be the same, byte for byte. Two things depend on the moment and the owner and not on the
/// program: a start of a session may be asked for once more or once less, and the data of a time or of a name may
/// differ.
///
/// At the first difference the device leaves the bus for good: nobody knows what it would have done.
class ReplayedDevice final : public BusDevice {
  public:
    /// @param story   at least one attach
    /// @param parted  called once, from within the call that shows the first difference
    ReplayedDevice(std::vector<CapturedAttach> story, std::function<void()> parted);
    ReplayedDevice(const ReplayedDevice&) = delete;
    ReplayedDevice& operator=(const ReplayedDevice&) = delete;

    void attached(Time now) override;
    void detached(Time now) override;
    void configured(Time) override {}
    bool wantsBus() const override { return mCable && !mAway; }
    std::optional<Time> nextDue() const override;
    void advance(Time now) override;
    WriteResult writePacket(std::span<const unsigned char> packet, Time now) override;
    void writeCancelled(Time now) override;
    bool hasPacket(Pipe pipe) const override { return !in(pipe).empty() && in(pipe).front().bytes.has_value(); }
    Bytes takePacket(Pipe pipe) override;
    bool halted(Pipe pipe) const override {
        return pipe == Pipe::BulkOut ? mOutHalted : !in(pipe).empty() && !in(pipe).front().bytes;
    }
    void clearHalt(Pipe pipe) override;
    void setCable(bool in, Time) override { mCable = in; }
    const Profile& profile() const override { return mProfile; }
    Bytes descriptors() const override;
    std::optional<Bytes> controlAnswer(const Setup& setup) const override;

    /// Where host and capture differ, in sentences; where the host was not done with the capture, that it was not.
    /// Nothing when the whole capture was played.
    std::optional<std::string> difference() const;

    /// Packets of the host that were as captured, and how many there are.
    std::size_t played() const { return mPlayed; }
    std::size_t total() const;

  private:
    struct InPacket {
        std::optional<Bytes> bytes;  // nothing: a halt
        std::size_t packet = 0;      // of the capture
    };
    using InQueue = std::deque<InPacket>;

    const InQueue& in(Pipe pipe) const { return mIn[pipe == Pipe::InterruptIn ? 0 : 1]; }
    InQueue& in(Pipe pipe) { return mIn[pipe == Pipe::InterruptIn ? 0 : 1]; }
    const CapturedAttach& attach() const { return mStory[mAttach]; }
    Time leftAt() const { return attach().left.value_or(attach().ended); }
    const CapturedStep* expected() const;
    CapturedStep::Fate received(const Bytes& packet);
    bool skipsRepeatedStart(const Bytes& packet);
    void release();
    void leaveWhenOver(Time now);
    void part(std::string difference);
    void take();

    const std::vector<CapturedAttach> mStory;
    const std::function<void()> mParted;
    std::size_t mAttach = 0;
    std::size_t mNext = 0;  // step of the attach
    Profile mProfile;
    PacketGatherer mGatherer;
    std::array<InQueue, 2> mIn;
    bool mCable = false, mAway = false;
    bool mOutHalted = false, mOutBusy = false;
    std::optional<Time> mLeaveAt, mLeaveAtLatest, mReturnAt;
    const CapturedStep* mLast = nullptr;  // of the story: the last packet of the host that was as captured
    std::size_t mPlayed = 0;
    std::string mDifference;
};

}  // namespace simulator
