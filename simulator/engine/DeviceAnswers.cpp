// What the device sends: from an answer, through the faults, to USB packets in a pipe.
#include "simulator/engine/Device.hpp"

#include <algorithm>
#include <utility>

namespace simulator {
namespace {

/// What may wait for a host that does not read.
constexpr std::size_t kMostQueuedPackets = 65'536;
constexpr std::size_t kMostScheduled = 4'096;

/// What a fault may ask for.
constexpr std::int64_t kMostForeignFrames = 10'000;
constexpr std::int64_t kLongestPadding = 1 << 20;

}  // namespace

void Device::answer(UsbPacket packet, Time now) {
    const auto own = mProfile.answerDelays.find(packet.id);
    Duration delay = own == mProfile.answerDelays.end() ? mProfile.answerDelay : own->second;
    if (mFaults.size() == 0) return schedule({.bytes = encodePacket(packet)}, delay, now);

    Outgoing outgoing;
    std::optional<Bytes> garbage;
    std::vector<Bytes> before;
    std::int64_t copies = 1;
    std::int64_t foreign = 0;
    std::int64_t sizeError = 0;
    for (auto& fault : strike({FaultStep::At::Answer, packet.layer, packet.id, {}, mState, {}}, now)) {
        switch (fault.kind) {
            case FaultKind::NoAnswer:
                copies = 0;
                break;
            case FaultKind::LateAnswer:
                delay += fault.delay.value_or(Duration{0});
                break;
            case FaultKind::WrongAnswer:
                packet.id = static_cast<std::uint16_t>(fault.number);
                break;
            case FaultKind::WrongLayer:
                packet.layer = static_cast<std::uint8_t>(fault.number);
                break;
            case FaultKind::Garbage:
                garbage = std::move(fault.bytes);
                break;
            case FaultKind::GarbageBefore:
                before.push_back(std::move(fault.bytes));
                break;
            case FaultKind::ForeignFrames:
                foreign = std::min(fault.number, kMostForeignFrames);
                break;
            case FaultKind::WrongSizeField:
                sizeError = fault.number;
                break;
            case FaultKind::SplitTransfers:
                outgoing.splitAt = static_cast<std::size_t>(fault.number);
                break;
            case FaultKind::Padded: {
                const auto size = std::min(fault.number, kLongestPadding) - static_cast<std::int64_t>(kHeaderSize);
                if (size > static_cast<std::int64_t>(packet.data.size())) {
                    packet.data.resize(static_cast<std::size_t>(size));
                }
                break;
            }
            case FaultKind::Unannounced:
                outgoing.pipe = Pipe::BulkIn;
                outgoing.announced = false;
                break;
            case FaultKind::Repeated:
                copies = 1 + std::min(fault.number, kMostForeignFrames);
                break;
            case FaultKind::Stall:
                outgoing.stall = true;
                outgoing.pipe = fault.pipe;
                break;
            case FaultKind::Unplug:
                delay += fault.delay.value_or(Duration{0});
                outgoing.unplug = std::move(fault);
                break;
            case FaultKind::Ignore:
            case FaultKind::NotTaken:
            case FaultKind::FailOperation:
                break;  // not of an answer
        }
    }

    for (std::int64_t i = 0; i < foreign; ++i) {
        // Ids that nobody waits for, with some data of growing length.
        const UsbPacket other{kApplicationLayer, static_cast<std::uint16_t>(40'000 + i % 100),
                              Bytes(static_cast<std::size_t>(i % 80), 0x2A)};
        before.push_back(encodePacket(other));
    }
    for (Bytes& bytes : before) schedule({.bytes = std::move(bytes)}, std::exchange(delay, {}), now);
    outgoing.bytes = garbage ? std::move(*garbage) : encodePacket(packet);
    if (sizeError != 0 && outgoing.bytes.size() >= kHeaderSize) {
        const Bytes size =
            Writer().u32(static_cast<std::uint32_t>(static_cast<std::int64_t>(packet.data.size()) + sizeError)).take();
        std::copy(size.begin(), size.end(), outgoing.bytes.begin() + 8);
    }
    for (std::int64_t i = 0; i < copies; ++i) schedule(outgoing, i == 0 ? delay : Duration{0}, now);
}

void Device::send(const UsbPacket& packet, Time now) {
    schedule({.bytes = encodePacket(packet)}, Duration{0}, now);
}

/// Answers leave one after the other: each delay counts from the leaving of the answer before.
void Device::schedule(Outgoing outgoing, Duration delay, Time now) {
    Time due = now + delay;
    if (!mScheduled.empty()) due = std::max(due, mScheduled.rbegin()->first + delay);
    if (due <= now) return leave(outgoing, now);
    if (mScheduled.size() >= kMostScheduled) return refuse("too many questions at once", {}, now);
    mScheduled.emplace(due, std::move(outgoing));
}

Pipe Device::pipeFor(std::span<const unsigned char> bytes) const {
    Pipe pipe = Pipe::InterruptIn;
    if (bytes.empty() || bytes[0] != kUsbLayer) {
        if (mProfile.route == AnswerRoute::AllOnBulk) pipe = Pipe::BulkIn;
        if (mProfile.route == AnswerRoute::SmallOnInterrupt && bytes.size() > mProfile.interruptLimit) {
            pipe = Pipe::BulkIn;
        }
    }
    return mProfile.pipe(pipe) ? pipe : Pipe::BulkIn;
}

void Device::leave(const Outgoing& outgoing, Time now) {
    if (!mAttached) return;
    if (outgoing.unplug) return pullCable(outgoing.unplug->comesBack, now);
    const Pipe pipe = outgoing.pipe.value_or(pipeFor(outgoing.bytes));
    if (outgoing.stall) {
        // A host reads the bulk pipe only after an announcement.
        if (pipe == Pipe::BulkIn) transfer(Pipe::InterruptIn, encodePacket({kUsbLayer, kDataAvailable, {}}), now);
        return halt(pipe);
    }
    const std::span<const unsigned char> bytes(outgoing.bytes);
    if (pipe == Pipe::BulkIn && outgoing.announced) {
        transfer(Pipe::InterruptIn, encodePacket({kUsbLayer, kDataAvailable, {}}), now);
    }
    if (outgoing.splitAt > 0 && outgoing.splitAt < bytes.size()) {
        transfer(pipe, bytes.first(outgoing.splitAt), now);
        transfer(pipe, bytes.subspan(outgoing.splitAt), now);
    } else {
        transfer(pipe, bytes, now);
    }
    if (pipe == Pipe::BulkIn && mProfile.endsBulkRuns) transfer(pipe, {}, now);
}

void Device::transfer(Pipe pipe, std::span<const unsigned char> bytes, Time now) {
    const auto* properties = mProfile.pipe(pipe);
    if (!properties || properties->maxPacketSize == 0) return;
    const std::size_t most = properties->maxPacketSize;
    auto& queue = in(pipe);
    if (queue.size() + bytes.size() / most + 1 > kMostQueuedPackets) {
        return refuse("answers that the host does not fetch", bytes, now);
    }
    mRecord.add({RecordEntry::Kind::Sent, now, pipe, Bytes(bytes.begin(), bytes.end()), {}});
    // The last packet is a short one, or an empty one where the bytes fill whole packets.
    for (std::size_t at = 0; at <= bytes.size(); at += most) {
        const auto packet = bytes.subspan(at, std::min(most, bytes.size() - at));
        queue.emplace_back(Bytes(packet.begin(), packet.end()));
    }
}

}  // namespace simulator
