#include "simulator/capture/ReplayedDevice.hpp"

#include "simulator/engine/Record.hpp"
#include "simulator/engine/Wire.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

namespace simulator {
namespace {

/// A host that sees its write end and the device go in one breath would take the write for failed.
constexpr Duration kShortestStay = std::chrono::milliseconds(20);
/// How long a device that is about to leave waits for a host that has not read all of it yet.
constexpr Duration kReaderPatience = std::chrono::seconds(5);
constexpr std::size_t kShownBytes = 24;

std::optional<UsbPacket> decoded(const Bytes& packet) {
    std::string reason;
    return decodePacket(packet, reason);
}

bool startsSession(const Bytes& packet) {
    const auto usb = decoded(packet);
    return usb && usb->layer == kUsbLayer && usb->id == kStartSession;
}

/// Whether a packet says the same as the captured one, in a program that has not changed.
bool saysTheSame(const Bytes& captured, const Bytes& packet) {
    if (captured == packet) return true;
    const auto was = decoded(captured), is = decoded(packet);
    if (!was || !is || was->layer != kApplicationLayer || is->layer != kApplicationLayer || was->id != is->id)
        return false;
    return is->id == kTime || is->id == kUnitName;
}

std::string said(const Bytes& packet) {
    const auto shown = std::span(packet).first(std::min(packet.size(), kShownBytes));
    const std::string words = inWords({RecordEntry::Kind::Received, {}, Pipe::BulkOut, packet, {}});
    return "\"" + words + "\" (" + std::to_string(packet.size()) + " bytes: " + hexText(shown) +
           (shown.size() < packet.size() ? " …)" : ")");
}

}  // namespace

ReplayedDevice::ReplayedDevice(std::vector<CapturedAttach> story, std::function<void()> parted)
    : mStory(std::move(story)), mParted(std::move(parted)), mProfile(profileOf(mStory.front())), mGatherer(1) {}

// ---- the bus

void ReplayedDevice::attached(Time now) {
    mGatherer = PacketGatherer(mProfile.pipe(Pipe::BulkOut) ? mProfile.pipe(Pipe::BulkOut)->maxPacketSize : 1);
    release();
    leaveWhenOver(now);
}

void ReplayedDevice::detached(Time now) {
    for (auto& queue : mIn) queue.clear();
    mOutHalted = mOutBusy = false;
    if (!mAway || mAttach + 1 >= mStory.size()) return;
    const Time left = leftAt();
    ++mAttach;
    mNext = 0;
    mProfile = profileOf(attach());
    mReturnAt = now + std::max(attach().began - left, Duration{0});
}

std::optional<Time> ReplayedDevice::nextDue() const {
    std::optional<Time> due = mReturnAt;
    bringForward(due, mLeaveAt);
    return due;
}

void ReplayedDevice::advance(Time now) {
    if (mReturnAt && *mReturnAt <= now) {
        mReturnAt.reset();
        mAway = false;
    }
    if (!mLeaveAt || *mLeaveAt > now) return;
    const auto isRead = [](const InQueue& queue) {
        return std::ranges::all_of(queue, [](const InPacket& packet) { return packet.bytes && packet.bytes->empty(); });
    };
    if (now < *mLeaveAtLatest && !std::ranges::all_of(mIn, isRead)) {
        mLeaveAt = now + kShortestStay;
        return;
    }
    mLeaveAt.reset();
    mAway = true;
}

BusDevice::WriteResult ReplayedDevice::writePacket(std::span<const unsigned char> packet, Time now) {
    if (mOutHalted) return WriteResult::Stalled;
    if (mOutBusy) return WriteResult::Busy;
    const auto whole = mGatherer.add(packet, packet.size());
    if (!whole) return WriteResult::Taken;
    switch (received(*whole)) {
        case CapturedStep::Fate::Taken:
            break;
        case CapturedStep::Fate::Stalled:
            mOutHalted = true;
            break;
        case CapturedStep::Fate::NotTaken:
            mOutBusy = true;
            break;
    }
    release();
    leaveWhenOver(now);
    return mOutHalted ? WriteResult::Stalled : mOutBusy ? WriteResult::Busy : WriteResult::Taken;
}

void ReplayedDevice::writeCancelled(Time) {
    mOutBusy = false;
    mGatherer.clear();
}

Bytes ReplayedDevice::takePacket(Pipe pipe) {
    Bytes bytes = std::move(*in(pipe).front().bytes);
    in(pipe).pop_front();
    return bytes;
}

void ReplayedDevice::clearHalt(Pipe pipe) {
    if (pipe == Pipe::BulkOut) {
        mOutHalted = false;
    } else if (halted(pipe)) {
        in(pipe).pop_front();
    }
}

Bytes ReplayedDevice::descriptors() const {
    Bytes all = attach().descriptor(kDeviceDescriptor);
    const Bytes configuration = attach().descriptor(kConfigurationDescriptor);
    if (all.size() != kDeviceDescriptorSize || configuration.empty()) return usbDescriptors(mProfile);
    all.insert(all.end(), configuration.begin(), configuration.end());
    return all;
}

std::optional<Bytes> ReplayedDevice::controlAnswer(const Setup& setup) const {
    std::array<unsigned char, 6> key{};
    std::copy_n(setup.begin(), key.size(), key.begin());
    const auto found = attach().answers.find(key);
    return found != attach().answers.end() ? found->second : BusDevice::controlAnswer(setup);
}

// ---- the story

const CapturedStep* ReplayedDevice::expected() const {
    return mNext < attach().steps.size() ? &attach().steps[mNext] : nullptr;
}

/// Has the device send what it sent before the host's next packet.
void ReplayedDevice::release() {
    if (!mDifference.empty()) return;
    for (const auto* step = expected(); step && step->kind != CapturedStep::Kind::FromHost; step = expected()) {
        ++mNext;
        InQueue& queue = in(step->pipe);
        if (step->kind == CapturedStep::Kind::Halt) {
            queue.push_back({{}, step->packet});
            continue;
        }
        const auto* pipe = mProfile.pipe(step->pipe);
        if (!pipe) continue;
        const std::size_t size = pipe->maxPacketSize;
        for (std::size_t begin = 0; begin < step->bytes.size(); begin += size) {
            const auto part = std::span(step->bytes).subspan(begin, std::min(size, step->bytes.size() - begin));
            queue.push_back({Bytes(part.begin(), part.end()), step->packet});
        }
        // What has ended before the host's read was full has ended with a short packet.
        if (step->bytes.size() % size == 0 && step->bytes.size() < step->asked)
            queue.push_back({Bytes{}, step->packet});
    }
}

CapturedStep::Fate ReplayedDevice::received(const Bytes& packet) {
    if (!mDifference.empty()) return CapturedStep::Fate::Taken;
    if (!expected() || !saysTheSame(expected()->bytes, packet)) {
        // Whether a start is asked for again depends on how soon the first one was answered.
        if (mLast && startsSession(mLast->bytes) && mLast->bytes == packet) return CapturedStep::Fate::Taken;
        if (!skipsRepeatedStart(packet)) {
            std::string text;
            if (const auto* step = expected()) {
                text = "at " + packetName(step->packet) + ". There the device was " + said(step->bytes) +
                       "; now it is " + said(packet);
            } else if (mAttach + 1 < mStory.size()) {
                text = "at " + packetName(mStory[mAttach + 1].firstPacket) +
                       ". There the device had left and came back; now, before it could, it is " + said(packet);
            } else {
                text = "at the end of the capture, after " + packetName(attach().lastPacket) + ": now the device is " +
                       said(packet);
            }
            if (mLast) text += ". The last that the host said as it was captured is " + packetName(mLast->packet);
            part(text);
            return CapturedStep::Fate::Taken;
        }
    }
    take();
    return mLast->fate;
}

/// Passes by a start of a session that was asked for again then, and is not now.
bool ReplayedDevice::skipsRepeatedStart(const Bytes& packet) {
    if (!expected() || !mLast || !startsSession(mLast->bytes) || !startsSession(expected()->bytes)) return false;
    const auto rest = std::span(attach().steps).subspan(mNext);
    const auto next = std::ranges::find_if(rest, [](const CapturedStep& step) {
        return step.kind == CapturedStep::Kind::FromHost && !startsSession(step.bytes);
    });
    if (next == rest.end() || !saysTheSame(next->bytes, packet)) return false;
    while (expected()->packet != next->packet) {
        if (expected()->kind == CapturedStep::Kind::FromHost) {
            take();
        } else {
            release();
        }
    }
    return true;
}

void ReplayedDevice::take() {
    mLast = expected();
    ++mNext;
    ++mPlayed;
}

/// Has the device leave as it left then, once the host has said all that it said.
void ReplayedDevice::leaveWhenOver(Time now) {
    const bool leaves = mAttach + 1 < mStory.size() || attach().left;
    if (!leaves || expected() || mLeaveAt || mAway || !mDifference.empty()) return;
    mLeaveAt = now + std::max(leftAt() - attach().lastStep, kShortestStay);
    mLeaveAtLatest = *mLeaveAt + kReaderPatience;
}

void ReplayedDevice::part(std::string difference) {
    mDifference = std::move(difference);
    for (auto& queue : mIn) queue.clear();
    mCable = false;
    mParted();
}

std::size_t ReplayedDevice::total() const {
    std::size_t count = 0;
    for (const auto& attach : mStory) {
        count += static_cast<std::size_t>(
            std::ranges::count(attach.steps, CapturedStep::Kind::FromHost, &CapturedStep::kind));
    }
    return count;
}

std::optional<std::string> ReplayedDevice::difference() const {
    if (!mDifference.empty()) return mDifference;
    for (std::size_t attach = mAttach; attach < mStory.size(); ++attach) {
        const auto& steps = mStory[attach].steps;
        for (std::size_t step = attach == mAttach ? mNext : 0; step < steps.size(); ++step) {
            if (steps[step].kind != CapturedStep::Kind::FromHost) continue;
            return "at " + packetName(steps[step].packet) + ". There the device was " + said(steps[step].bytes) +
                   "; now the program has ended before";
        }
    }
    const InPacket* unread = nullptr;
    for (const auto& queue : mIn) {
        const auto found =
            std::ranges::find_if(queue, [](const InPacket& packet) { return packet.bytes && !packet.bytes->empty(); });
        if (found != queue.end() && (!unread || found->packet < unread->packet)) unread = &*found;
    }
    if (!unread) return std::nullopt;
    return "at " + packetName(unread->packet) + ": the program has ended without reading what the device sent there";
}

}  // namespace simulator
