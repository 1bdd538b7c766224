#include "simulator/capture/CapturedDevice.hpp"

#include "platform/IOUSB.hpp"
#include "platform/VendorId.hpp"
#include "simulator/engine/Wire.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <set>
#include <utility>

namespace simulator {
namespace {

constexpr std::size_t kEndpointDescriptorSize = 7;

using Address = std::pair<std::uint16_t, std::uint8_t>;  // bus and device

bool hasGone(int status) {
    return status == -ESHUTDOWN || status == -ENODEV || status == -EPROTO || status == -EILSEQ || status == -ETIME;
}

constexpr std::uint16_t kUsualPacketSize = 64;

/// An endpoint can't do without a size, whatever its descriptor says.
std::uint16_t packetSizeIn(std::span<const unsigned char> endpoint) {
    constexpr std::uint16_t kSizeBits = 0x7FF;
    const auto size = static_cast<std::uint16_t>(*readU16(endpoint, 4) & kSizeBits);
    return size > 0 ? size : kUsualPacketSize;
}

std::size_t packetSizeOf(const CapturedAttach& attach, Pipe pipe) {
    const Profile profile = profileOf(attach);
    const auto* found = profile.pipe(pipe);
    return found ? found->maxPacketSize : kUsualPacketSize;
}

/// A request that has begun and not ended.
struct Pending {
    std::size_t event;
    std::size_t attach;
    std::optional<std::size_t> step;  // of its attach
};

/// Walks through a capture and sorts its packets by attach.
class Sorter {
  public:
    explicit Sorter(const UsbCapture& capture) : mCapture(capture) {}

    std::vector<CapturedAttach> attaches() {
        for (std::size_t i = 0; i < mCapture.events.size(); ++i) add(i);
        // When a device goes, its requests end. Only what is attached at the end of the capture may have open ones.
        for (const auto& entry : mPending) {
            const Pending& pending = entry.second;
            const bool isLast =
                std::ranges::any_of(mCurrent, [&](const auto& current) { return current.second == pending.attach; });
            if (!isLast || mAttaches[pending.attach].left) lacksEnd(pending);
        }
        return std::move(mAttaches);
    }

  private:
    void add(std::size_t index) {
        const UsbEvent& event = mCapture.events[index];
        const Address address(event.bus, event.device);
        if (event.device == 0) {
            // The address that a device gets is a fresh one, whoever had it before.
            if (event.setup && (*event.setup)[1] == kSetAddress) mCurrent.erase({event.bus, (*event.setup)[2]});
            return;
        }
        if (!mCurrent.contains(address) || (event.type == 'C' && tellsOfAnother(attach(address), event))) {
            begin(address, event);
        }
        CapturedAttach& own = attach(address);
        own.events.push_back(index);
        own.lastPacket = event.packet;
        own.ended = event.time;
        const auto found = mPending.find(event.request);
        if (event.type == 'S') {
            if (found != mPending.end()) lacksEnd(found->second);
            mPending[event.request] = {index, mCurrent.at(address), submitted(own, event)};
            return;
        }
        if (found == mPending.end()) {
            // What was under way when the capture began has no beginning in it.
            if (!event.isIn() || mSeen.contains({own.firstPacket, event.endpoint})) {
                damaged(own, "the beginning of the request that " + packetName(event.packet) + " ends is missing");
            }
            return completed(own, event, nullptr, {});
        }
        const Pending pending = found->second;
        mPending.erase(found);
        completed(own, event, &mCapture.events[pending.event], pending.step);
    }

    static void damaged(CapturedAttach& attach, std::string what) {
        if (attach.damage.empty()) attach.damage = std::move(what);
    }
    void lacksEnd(const Pending& pending) {
        damaged(
            mAttaches[pending.attach],
            "the end of the request that " + packetName(mCapture.events[pending.event].packet) + " begins is missing");
    }

    void begin(const Address& address, const UsbEvent& event) {
        mCurrent[address] = mAttaches.size();
        CapturedAttach attach;
        attach.bus = address.first;
        attach.address = address.second;
        attach.firstPacket = event.packet;
        attach.began = attach.lastStep = event.time;
        mAttaches.push_back(std::move(attach));
    }

    CapturedAttach& attach(const Address& address) { return mAttaches[mCurrent.at(address)]; }

    /// A device descriptor of another product: the address has changed hands.
    bool tellsOfAnother(const CapturedAttach& attach, const UsbEvent& event) {
        const auto pending = mPending.find(event.request);
        if (pending == mPending.end()) return false;
        const auto& setup = mCapture.events[pending->second.event].setup;
        if (!setup || (*setup)[0] != kFromDevice || (*setup)[1] != kGetDescriptor || (*setup)[3] != kDeviceDescriptor)
            return false;
        const Bytes known = attach.descriptor(kDeviceDescriptor);
        if (known.size() < kDeviceDescriptorSize || event.data.size() < kDeviceDescriptorSize) return false;
        return !std::equal(known.begin() + 8, known.begin() + 14, event.data.begin() + 8);  // vendor, product, release
    }

    /// @return the step that the request is, where it is one
    std::optional<std::size_t> submitted(CapturedAttach& own, const UsbEvent& event) {
        mSeen.emplace(own.firstPacket, event.endpoint);
        if (event.transfer != UsbEvent::Transfer::Bulk || event.isIn() || !isOfPipe(own, Pipe::BulkOut, event)) {
            return std::nullopt;
        }
        if (event.data.size() != event.length) damaged(own, packetName(event.packet) + " lacks its data");
        auto gatherer = mOut.find(own.firstPacket);
        if (gatherer == mOut.end()) gatherer = mOut.emplace(own.firstPacket, packetSizeOf(own, Pipe::BulkOut)).first;
        auto packet = gatherer->second.add(event.data, event.data.size());
        if (!packet) return std::nullopt;
        // The device may have spoken before: a read that was under way when the capture began has ended.
        if (std::ranges::find(own.steps, CapturedStep::Kind::FromHost, &CapturedStep::kind) == own.steps.end()) {
            std::string reason;
            own.speaksProtocol = decodePacket(*packet, reason).has_value();
        }
        own.lastStep = event.time;
        own.steps.push_back({CapturedStep::Kind::FromHost, event.packet, Pipe::BulkOut, std::move(*packet)});
        return own.steps.size() - 1;
    }

    void completed(CapturedAttach& own, const UsbEvent& event, const UsbEvent* beginning,
                   std::optional<std::size_t> step) {
        if (hasGone(event.status) && !own.left) own.left = event.time;
        // A cancelled read may have had bytes; the program that cancelled it has not seen them.
        const bool brings =
            event.isIn() && (event.status == 0 || event.status == -EOVERFLOW || event.status == -EREMOTEIO);
        if (brings && event.data.size() != event.length) damaged(own, packetName(event.packet) + " lacks its data");
        if (event.transfer == UsbEvent::Transfer::Control) {
            if (beginning && beginning->setup && event.isIn() && event.status == 0) {
                std::array<unsigned char, 6> key{};
                std::copy_n(beginning->setup->begin(), key.size(), key.begin());
                Bytes& answer = own.answers[key];
                if (event.data.size() > answer.size()) answer = event.data;
            }
            return;
        }
        if (step) {
            CapturedStep& sent = own.steps[*step];
            if (event.status == -EPIPE) sent.fate = CapturedStep::Fate::Stalled;
            if (event.status != 0 && event.status != -EPIPE) sent.fate = CapturedStep::Fate::NotTaken;
        }
        if (event.status == 0) {
            own.lastStep = event.time;
            own.left.reset();
        }
        if (!event.isIn()) return;
        const Pipe pipe = event.transfer == UsbEvent::Transfer::Interrupt ? Pipe::InterruptIn : Pipe::BulkIn;
        if (!isOfPipe(own, pipe, event)) return;
        if (event.status == -EPIPE) own.steps.push_back({CapturedStep::Kind::Halt, event.packet, pipe, {}});
        if (!brings) return;
        const std::size_t asked = beginning ? beginning->length : event.data.size() + 1;
        own.steps.push_back({CapturedStep::Kind::ToHost, event.packet, pipe, event.data, asked});
    }

    /// The device's pipes are the first of each kind.
    static bool isOfPipe(CapturedAttach& own, Pipe pipe, const UsbEvent& event) {
        return own.endpoints.try_emplace(pipe, event.endpoint).first->second == event.endpoint;
    }

    const UsbCapture& mCapture;
    std::vector<CapturedAttach> mAttaches;
    std::map<Address, std::size_t> mCurrent;
    std::map<std::uint64_t, Pending> mPending;
    // By the attach's first packet:
    std::set<std::pair<std::size_t, std::uint8_t>> mSeen;  // endpoints on which a request has begun
    std::map<std::size_t, PacketGatherer> mOut;
};

}  // namespace

std::optional<Bytes> PacketGatherer::add(std::span<const unsigned char> transfer, std::size_t asked) {
    if (transfer.empty() && mBytes.empty()) return std::nullopt;
    mBytes.insert(mBytes.end(), transfer.begin(), transfer.end());
    constexpr std::size_t kSizeOffset = 8;
    const auto size = readU32(mBytes, kSizeOffset);
    const bool isWhole = size && mBytes.size() - kHeaderSize >= *size;
    const bool isShort = transfer.empty() || transfer.size() < asked || transfer.size() % mMaxPacketSize != 0;
    if (!isShort && !isWhole) return std::nullopt;
    return std::exchange(mBytes, {});
}

Bytes CapturedAttach::descriptor(unsigned char kind, unsigned char index) const {
    for (const auto& [key, answer] : answers) {
        if (key[0] == kFromDevice && key[1] == kGetDescriptor && key[3] == kind && key[2] == index) return answer;
    }
    return {};
}

std::optional<std::uint16_t> CapturedAttach::vendor() const {
    return readU16(descriptor(kDeviceDescriptor), 8);
}

bool CapturedAttach::isOurs() const {
    const auto id = vendor();
    return id ? *id == platform::kTrovikVendorId : speaksProtocol;
}

std::vector<CapturedAttach> attachesIn(const UsbCapture& capture) {
    return Sorter(capture).attaches();
}

std::vector<CapturedAttach> storyOf(const UsbCapture& capture) {
    std::vector<CapturedAttach> story = attachesIn(capture);
    std::erase_if(story, [](const CapturedAttach& attach) { return !attach.isOurs(); });
    if (std::ranges::all_of(story, [](const CapturedAttach& attach) { return attach.steps.empty(); })) {
        throw CaptureError("no program spoke to a device of ours in it");
    }
    for (const auto& attach : story) {
        if (!attach.damage.empty()) throw CaptureError("the capture lacks packets: " + attach.damage);
    }
    for (std::size_t i = 1; i < story.size(); ++i) {
        if (story[i].firstPacket < story[i - 1].lastPacket) {
            throw CaptureError("two devices are attached at " + packetName(story[i].firstPacket) +
                               ", and only one can be played");
        }
    }
    // A device that was there before the capture began says later what it is, if it comes back.
    for (auto attach = story.rbegin(); attach != story.rend(); ++attach) {
        if (attach != story.rbegin() && attach->descriptor(kDeviceDescriptor).empty())
            attach->answers = std::prev(attach)->answers;
    }
    return story;
}

Profile profileOf(const CapturedAttach& attach) {
    Profile profile;
    const Bytes device = attach.descriptor(kDeviceDescriptor);
    const Bytes configuration = attach.descriptor(kConfigurationDescriptor);
    if (device.size() >= kDeviceDescriptorSize) {
        profile.vendorId = *readU16(device, 8);
        profile.productId = *readU16(device, 10);
        profile.releaseNumber = *readU16(device, 12);
        profile.productName = stringOf(attach, device[15]);
    }
    if (configuration.size() < 9) {
        for (auto& pipe : profile.pipes) {
            const Pipe kind = pipe.direction == platform::kUSBOut            ? Pipe::BulkOut
                              : pipe.transferType == platform::kUSBInterrupt ? Pipe::InterruptIn
                                                                             : Pipe::BulkIn;
            const auto seen = attach.endpoints.find(kind);
            if (seen != attach.endpoints.end()) pipe.number = seen->second & 0x0F;
        }
        return profile;
    }
    profile.interfaces = configuration[4];
    profile.configurationValue = configuration[5];
    profile.pipes.clear();
    int interfaces = 0;
    for (std::size_t offset = 0; offset + 1 < configuration.size() && configuration[offset] > 1;
         offset += configuration[offset]) {
        const auto one =
            std::span(configuration)
                .subspan(offset, std::min<std::size_t>(configuration[offset], configuration.size() - offset));
        if (one[1] == kInterfaceDescriptor) ++interfaces;
        if (one[1] != kEndpointDescriptor || one.size() < kEndpointDescriptorSize || interfaces != 1) continue;
        const bool in = (one[2] & kFromDevice) != 0;
        profile.pipes.push_back({in ? platform::kUSBIn : platform::kUSBOut, static_cast<std::uint8_t>(one[2] & 0x0F),
                                 static_cast<std::uint8_t>(one[3] & 3), packetSizeIn(one), one[6]});
    }
    return profile;
}

std::string stringOf(const CapturedAttach& attach, unsigned char index) {
    std::string text;
    const Bytes string = index == 0 ? Bytes{} : attach.descriptor(kStringDescriptor, index);
    for (std::size_t i = 2; i + 1 < string.size(); i += 2)
        text += string[i + 1] == 0 && string[i] < 0x80 ? static_cast<char>(string[i]) : '?';
    return text;
}

}  // namespace simulator
