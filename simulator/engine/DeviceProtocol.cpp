// What the device receives from the host: from single USB packets to commands.
#include "simulator/engine/Device.hpp"

#include <algorithm>

namespace simulator {
namespace {

/// No packet of the protocol comes near it; what is longer is a host gone wild.
constexpr std::size_t kLongestHostPacket = 65'536 + kHeaderSize;

}  // namespace

Device::WriteResult Device::writePacket(std::span<const unsigned char> packet, Time now) {
    if (!mAttached || mOutBusyUntil) return WriteResult::Busy;
    if (!mOutHalted && !mMetFaults) meetFaults(packet, now);
    // The packet was refused, so the next one on offer is a new one to the faults.
    if (mOutHalted) {
        mMetFaults = false;
        mPacketFaults.clear();
        return WriteResult::Stalled;
    }
    if (mOutBusyUntil) return WriteResult::Busy;

    if (mGathered.size() + packet.size() > kLongestHostPacket) mOversize = true;
    if (!mOversize) mGathered.insert(mGathered.end(), packet.begin(), packet.end());
    const auto* pipe = mProfile.pipe(Pipe::BulkOut);
    if (pipe && packet.size() >= pipe->maxPacketSize && pipe->maxPacketSize > 0) return WriteResult::Taken;

    const Bytes bytes = std::exchange(mGathered, {});
    mMetFaults = false;
    if (std::exchange(mOversize, false)) {
        refuse("longer than any packet", bytes, now);
    } else {
        packetReceived(bytes, now);
    }
    advance(now);  // a reboot or an unplug without delay is due now
    return WriteResult::Taken;
}

/// Shows a new packet to the faults while it is still on offer, since some of them keep it from being taken. Only the
/// header and a command's number are looked at, whatever their worth.
void Device::meetFaults(std::span<const unsigned char> firstPacket, Time now) {
    mMetFaults = true;
    if (mFaults.size() == 0) return;
    FaultList::Moment moment{FaultStep::At::HostPacket, {}, {}, {}, mState, {}};
    if (firstPacket.size() >= kHeaderSize) {
        moment.layer = firstPacket[0];
        moment.packetId = readU16(firstPacket, 4);
        if (moment.layer == kApplicationLayer && moment.packetId == kCommand) {
            moment.command = readU16(firstPacket, kHeaderSize);
        }
    }
    for (auto& fault : strike(moment, now)) {
        if (fault.kind == FaultKind::NotTaken) {
            mOutBusyUntil = fault.delay ? now + *fault.delay : Time::max();
        } else if (fault.kind == FaultKind::Stall && fault.pipe.value_or(Pipe::BulkOut) == Pipe::BulkOut) {
            mOutHalted = true;
        } else {
            mPacketFaults.push_back(std::move(fault));
        }
    }
}

void Device::packetReceived(const Bytes& bytes, Time now) {
    mRecord.add({RecordEntry::Kind::Received, now, Pipe::BulkOut, bytes, {}});
    for (const auto& fault : std::exchange(mPacketFaults, {})) {
        if (fault.kind == FaultKind::Ignore) return;
        if (fault.kind == FaultKind::Unplug && !fault.delay) return pullCable(fault.comesBack, now);
        if (fault.kind == FaultKind::Unplug) unplugLater(fault, now);
        if (fault.kind == FaultKind::Stall) halt(*fault.pipe);
    }

    std::string reason;
    const auto packet = decodePacket(bytes, reason);
    if (!packet) return refuse(std::move(reason), bytes, now);
    if (mProfile.largestPacket && bytes.size() > *mProfile.largestPacket) {
        return refuse("longer than the largest packet of " + std::to_string(*mProfile.largestPacket), bytes, now);
    }
    if (mState == BootState::Rebooting) return refuse("packet while rebooting", bytes, now);
    if (packet->layer == kUsbLayer) {
        usbLayer(*packet, now);
    } else if (!mSession) {
        refuse("application packet " + std::to_string(packet->id) + " before a session", bytes, now);
    } else {
        applicationLayer(*packet, now);
    }
}

void Device::usbLayer(const UsbPacket& packet, Time now) {
    const auto refused = [&](const char* reason) { refuse(reason, encodePacket(packet), now); };
    if (packet.id != kStartSession && packet.id != kAskLargest) return refused("unknown packet of the USB layer");
    if (!packet.data.empty()) return refused("packet with data that takes none");
    if (packet.id == kStartSession) {
        mSession = true;
        return answer({kUsbLayer, kSessionStarted, Writer().u32(mProfile.unitId).take()}, now);
    }
    if (!mSession) return refused("question for the largest packet before a session");
    if (mProfile.largestPacket) answer({kUsbLayer, kLargest, Writer().u32(*mProfile.largestPacket).take()}, now);
}

void Device::applicationLayer(const UsbPacket& packet, Time now) {
    const auto refused = [&](const char* reason) { refuse(reason, encodePacket(packet), now); };
    const auto reply = [&](std::uint16_t id, Bytes data) { answer({kApplicationLayer, id, std::move(data)}, now); };
    switch (packet.id) {
        case kCommand:
            return command(packet, now);
        case kProductRequest:
            return packet.data.empty() ? identify(now) : refused("product request with data");
        case kDataRequest:
            if (packet.data.size() != 2) refused("data request without its two bytes");
            return;  // nothing is ever sent unasked, so there is nothing to switch
        case kTransferComplete:
        case kTimeFollows:
            if (packet.data.size() != 2) refused("packet without its two bytes");
            return;
        case kTime:
            if (packet.data.size() != mClock.size()) return refused("time without its eight bytes");
            mClock = packet.data;
            return;
        case kUnitNameRequest:
            return reply(kUnitName, Writer().text(mProfile.unitName).take());
        case kUnitName:
            if (packet.data.empty() || packet.data.back() != 0) return refused("unit name without its final 0");
            mProfile.unitName.assign(packet.data.begin(), packet.data.end() - 1);
            return;
        case kRegionSizeRequest:
            if (packet.data.size() != 1) return refused("region size request without its one byte");
            return reply(kRegionSize, Writer().u64(packet.data[0] * std::uint64_t{1} << 20).u8(0).take());
        case kHoldInBootLoader:
            if (mState == BootState::Running) return refused("hold in boot loader while running");
            mWindowEnds.reset();
            setBootState(BootState::HeldInBootLoader, now);
            return reply(kHoldInBootLoader, {});
        case kResumeBoot:
            if (mState != BootState::HeldInBootLoader) return refused("resume boot without hold");
            if (mProfile.bootTime) {
                mBoots = true;
                mLeaveAt = now + mProfile.leaveDelay;
            }
            return setBootState(BootState::Running, now);
        default:
            return refused("unknown packet");
    }
}

void Device::command(const UsbPacket& packet, Time now) {
    const auto refused = [&](const char* reason) { refuse(reason, encodePacket(packet), now); };
    const auto reply = [&](std::uint16_t id, Bytes data) { answer({kApplicationLayer, id, std::move(data)}, now); };
    if (packet.data.size() != 2) return refused("command without its two bytes");
    switch (*readU16(packet.data)) {
        case kGetTime:
            return reply(kTime, mClock);
        case kGetUnitId:
            return reply(kUnitId, Writer().u32(mProfile.unitId).take());
        case kKeepAlive:
            return;
        case kGetDisconnectTimeout:
            return reply(kDisconnectTimeout, Writer().u32(mProfile.disconnectTimeout).take());
        case kReboot:
            setBootState(BootState::Rebooting, now);
            mBoots = false;
            mWindowEnds.reset();
            mLeaveAt = now + mProfile.leaveDelay;
            return;
        case kClearStore:
            if (mState != BootState::HeldInBootLoader) return refused("clear without hold in boot loader");
            mStore.clear();
            return note(RecordEntry::Kind::State, "store cleared", now);
        default:
            return refused("unknown command");
    }
}

void Device::identify(Time now) {
    Writer product;
    product.u16(mProfile.productNumber).u16(static_cast<std::uint16_t>(mProfile.softwareVersion));
    for (const auto& line : mProfile.descriptions) product.text(line);
    answer({kApplicationLayer, kProductData, product.take()}, now);
    if (mProfile.protocols) {
        Writer list;
        for (const auto& entry : *mProfile.protocols) list.u8(static_cast<std::uint8_t>(entry.tag)).u16(entry.number);
        answer({kApplicationLayer, kProtocolList, list.take()}, now);
    }
    if (mProfile.extendedProductData) {
        Writer extended;
        for (const auto& line : *mProfile.extendedProductData) extended.text(line);
        answer({kApplicationLayer, kExtendedProductData, extended.take()}, now);
    }
}

}  // namespace simulator
