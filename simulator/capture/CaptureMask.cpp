#include "simulator/capture/CaptureMask.hpp"

#include "platform/IOUSB.hpp"
#include "simulator/engine/Wire.hpp"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace simulator {
namespace {

using Span = std::span<unsigned char>;

constexpr unsigned char kContainerId = 4;           // a device capability of a BOS descriptor: the unit's number
constexpr std::uint32_t kSmallestNumber = 0x10000;  // that is looked for wherever it may stand
constexpr std::size_t kShortestText = 4;            // the same for a text
constexpr std::size_t kLongestCode = 2;             // bytes of data that can't say whose device it is

/// Packets whose data is the protocol's own or the model's.
constexpr std::uint16_t kOpen[] = {
    kCommand,      kTransferComplete,    kTime,
    kDataRequest,  kTimeFollows,         kHoldInBootLoader,
    kProtocolList, kExtendedProductData, kProductRequest,
    kProductData,  kUnitNameRequest,     kRegionSizeRequest,
    kRegionSize,   kResumeBoot,          kDisconnectTimeout,
};

bool isOfWord(unsigned char byte) {
    return std::isalnum(byte) != 0;
}

Bytes bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

Bytes wide(const Bytes& narrow) {
    Bytes bytes;
    for (const unsigned char byte : narrow) bytes.insert(bytes.end(), {byte, 0});
    return bytes;
}

Bytes number(std::uint32_t value) {
    return Writer().u32(value).take();
}

/// @param pattern  of printf, with the least number of digits as "*"
std::string hexOf(std::uint32_t value, const char* pattern, std::size_t digits) {
    char text[16];
    std::snprintf(text, sizeof text, pattern, static_cast<int>(digits), value);
    return text;
}

class Mask {
  public:
    /// Learns a unit id and the forms in which it may stand elsewhere.
    void learnId(std::uint32_t id) {
        if (id == 0 || mIds.contains(id)) return;
        const std::string text = std::to_string(id);
        std::uint32_t other = 1;
        for (std::size_t i = 1; i < text.size(); ++i) other *= 10;
        mIds[id] = other += static_cast<std::uint32_t>(mIds.size() + 1);
        if (id < kSmallestNumber) return;
        Bytes from = number(id), to = number(other);
        add(from, to, false);
        std::ranges::reverse(from);
        std::ranges::reverse(to);
        add(from, to, false);
        addText(bytesOf(text), bytesOf(std::to_string(other)));
        for (const char* pattern : {"%0*x", "%0*X"}) {
            const std::string hex = hexOf(id, pattern, 1);
            addText(bytesOf(hex), bytesOf(hexOf(other, pattern, hex.size())));
        }
    }

    /// Learns a serial number that is a text; the digits of a unit id from kSmallestNumber on are known already.
    void learnSerial(const Bytes& text) {
        if (text.size() >= kShortestText && !isKnown(text)) addText(text, mark(text));
    }

    /// A mark of the same length, equal for equal values.
    Bytes mark(const Bytes& value) {
        const std::size_t own = mMarks.try_emplace(value, mMarks.size() + 1).first->second;
        std::string digits = std::to_string(own);
        if (digits.size() < value.size()) digits.insert(0, value.size() - digits.size(), 'X');
        return bytesOf(digits.substr(digits.size() - value.size()));
    }

    void maskValues(Span data) {
        for (auto begin = data.begin(); begin != data.end();) {
            const auto end = std::find(begin, data.end(), 0);
            if (begin != end) std::ranges::copy(mark(Bytes(begin, end)), begin);
            begin = std::find_if(end, data.end(), [](unsigned char byte) { return byte != 0; });
        }
    }

    void maskId(Span data) {
        const auto id = readU32(data);
        if (const auto found = mIds.find(id.value_or(0)); found != mIds.end())
            std::ranges::copy(number(found->second), data.begin());
    }

    /// Replaces what was learned wherever it stands.
    void maskKnown(Span data) const {
        for (std::size_t at = 0; at < data.size(); ++at) {
            for (const Pattern& pattern : mPatterns) {
                const Span rest = data.subspan(at);
                if (rest.size() < pattern.from.size() ||
                    !std::equal(pattern.from.begin(), pattern.from.end(), rest.begin()))
                    continue;
                const std::size_t end = pattern.from.size();
                if (pattern.isWord &&
                    ((at > 0 && isOfWord(data[at - 1])) || (end < rest.size() && isOfWord(rest[end]))))
                    continue;
                std::ranges::copy(pattern.to, rest.begin());
                at += end - 1;
                break;
            }
        }
    }

    bool isKnown(const Bytes& text) const {
        return std::ranges::find(mPatterns, text, &Pattern::from) != mPatterns.end();
    }

    std::size_t count() const { return mIds.size() + mMarks.size(); }

  private:
    struct Pattern {
        Bytes from, to;
        bool isWord;
    };

    void add(Bytes from, Bytes to, bool isWord) { mPatterns.push_back({std::move(from), std::move(to), isWord}); }
    void addText(const Bytes& from, const Bytes& to) {
        add(from, to, true);
        add(wide(from), wide(to), true);
    }

    std::map<std::uint32_t, std::uint32_t> mIds;
    std::map<Bytes, std::size_t> mMarks;
    std::vector<Pattern> mPatterns;
};

/// The events of one capture, looked at packet by packet.
class Masking {
  public:
    explicit Masking(const UsbCapture& capture) : mAttaches(attachesIn(capture)) {
        mResult.capture = capture;
        std::erase_if(mAttaches, [](const CapturedAttach& attach) { return !attach.isOurs(); });
        if (mAttaches.empty()) throw CaptureError("it holds nothing of a device of ours");
    }

    MaskedCapture run() {
        for (const auto& attach : mAttaches) forEachPacket(attach, [&](Span packet) { learn(packet); });
        // After all ids, since a serial number may be an id in digits.
        for (const auto& attach : mAttaches) mMask.learnSerial(serialOf(attach));
        for (std::size_t i = 0; i < mAttaches.size(); ++i) {
            forEachPacket(mAttaches[i], [&](Span packet) { mask(packet); });
            maskControl(mAttaches[i]);
        }
        keepOurs();
        mResult.masked = mMask.count();
        return std::move(mResult);
    }

  private:
    UsbEvent& event(std::size_t index) { return mResult.capture.events[index]; }

    static Bytes serialOf(const CapturedAttach& attach) {
        const Bytes device = attach.descriptor(kDeviceDescriptor);
        return device.size() > 16 ? bytesOf(stringOf(attach, device[16])) : Bytes{};
    }

    /// Shows each packet as a whole and puts its bytes back into the transfers.
    template <typename Action>
    void forEachPacket(const CapturedAttach& attach, const Action& action) {
        struct Run {
            PacketGatherer gatherer;
            std::vector<std::size_t> events;
        };
        std::map<std::uint8_t, Run> runs;  // by endpoint
        std::map<std::uint64_t, std::size_t> asked;
        const Profile profile = profileOf(attach);
        const auto finish = [&](Run& run) {
            Bytes packet;
            for (const std::size_t i : run.events)
                packet.insert(packet.end(), event(i).data.begin(), event(i).data.end());
            action(Span(packet));
            auto rest = packet.begin();
            for (const std::size_t i : std::exchange(run.events, {})) {
                Bytes& data = event(i).data;
                std::copy_n(rest, data.size(), data.begin());
                rest += static_cast<std::ptrdiff_t>(data.size());
            }
        };
        for (const std::size_t index : attach.events) {
            const UsbEvent& own = event(index);
            if (own.transfer == UsbEvent::Transfer::Control) continue;
            if (own.type == 'S') asked[own.request] = own.length;
            if (own.data.empty()) continue;
            const auto size = std::ranges::find_if(profile.pipes, [&](const auto& pipe) {
                return pipe.number == (own.endpoint & 0x0F) && (pipe.direction == platform::kUSBIn) == own.isIn();
            });
            const std::size_t packetSize =
                size != profile.pipes.end() && size->maxPacketSize > 0 ? size->maxPacketSize : 64;
            Run& run = runs.try_emplace(own.endpoint, Run{PacketGatherer(packetSize), {}}).first->second;
            run.events.push_back(index);
            const auto room = asked.find(own.request);
            const std::size_t wanted = !own.isIn()           ? own.data.size()
                                       : room != asked.end() ? room->second
                                                             : own.data.size() + 1;
            if (run.gatherer.add(own.data, wanted)) finish(run);
        }
        for (auto& [endpoint, run] : runs) {
            if (!run.events.empty()) finish(run);
        }
    }

    /// Layer and id; nothing for what is no packet.
    static std::optional<std::pair<std::uint8_t, std::uint16_t>> nameOf(Span packet) {
        if (packet.size() < kHeaderSize || (packet[0] != kUsbLayer && packet[0] != kApplicationLayer))
            return std::nullopt;
        return std::pair(packet[0], *readU16(packet, 4));
    }

    static bool tellsUnitId(const std::pair<std::uint8_t, std::uint16_t>& name) {
        return name == std::pair(kUsbLayer, std::uint16_t(kSessionStarted)) ||
               name == std::pair(kApplicationLayer, std::uint16_t(kUnitId));
    }

    void learn(Span packet) {
        const auto name = nameOf(packet);
        if (name && tellsUnitId(*name)) mMask.learnId(readU32(packet, kHeaderSize).value_or(0));
    }

    void mask(Span packet) {
        const auto name = nameOf(packet);
        if (!name) return mMask.maskValues(packet);
        const Span data = packet.subspan(kHeaderSize);
        const auto& [layer, id] = *name;
        const bool isOpen = layer == kUsbLayer
                                ? id == kDataAvailable || id == kStartSession || id == kAskLargest || id == kLargest
                                : std::ranges::find(kOpen, id) != std::end(kOpen);
        if (tellsUnitId(*name)) {
            mMask.maskId(data);
        } else if (isOpen) {
            mMask.maskKnown(data);
        } else if (data.size() > kLongestCode) {
            mMask.maskValues(data);
        }
    }

    void maskControl(const CapturedAttach& attach) {
        const Bytes device = attach.descriptor(kDeviceDescriptor);
        std::map<std::uint64_t, BusDevice::Setup> setups;
        for (const std::size_t index : attach.events) {
            UsbEvent& own = event(index);
            if (own.transfer != UsbEvent::Transfer::Control) continue;
            if (own.setup) setups[own.request] = *own.setup;
            if (own.data.empty()) continue;
            const auto setup = setups.find(own.request);
            const bool isStandard = setup != setups.end() && (setup->second[0] & 0x60) == 0;
            if (!isStandard) {
                mMask.maskValues(own.data);
            } else if (setup->second[1] == kGetDescriptor && setup->second[3] == kStringDescriptor &&
                       setup->second[2] != 0) {
                maskString(own.data, device.size() > 16 && setup->second[2] == device[16]);
            } else if (setup->second[1] == kGetDescriptor && setup->second[3] == kBosDescriptor) {
                maskContainerId(own.data);
            }
        }
    }

    void maskString(Span descriptor, bool isSerial) {
        if (descriptor.size() <= 2) return;
        const Span text = descriptor.subspan(2);
        // A serial number too short to be looked for elsewhere, or read in part.
        if (isSerial && !mMask.isKnown(Bytes(text.begin(), text.end()))) return mMask.maskValues(text);
        mMask.maskKnown(text);
    }

    void maskContainerId(Span bos) {
        for (std::size_t at = 5; at + 4 < bos.size() && bos[at] > 4; at += bos[at]) {
            const Span capability = bos.subspan(at, std::min<std::size_t>(bos[at], bos.size() - at));
            if (capability[2] == kContainerId) mMask.maskValues(capability.subspan(4));
        }
    }

    void keepOurs() {
        std::set<std::size_t> kept;
        for (const auto& attach : mAttaches) kept.insert(attach.events.begin(), attach.events.end());
        std::set<std::uint64_t> addressing;  // requests that give our devices their addresses
        std::map<std::uint64_t, std::uint64_t> requests;
        std::vector<UsbEvent> events;
        for (std::size_t i = 0; i < mResult.capture.events.size(); ++i) {
            UsbEvent& own = event(i);
            const bool sets =
                own.type == 'S' ? own.device == 0 && own.setup && setsOurs(own) : addressing.erase(own.request) > 0;
            if (sets && own.type == 'S') addressing.insert(own.request);
            if (!sets && !kept.contains(i)) {
                ++mResult.removed;
                continue;
            }
            own.request = requests.try_emplace(own.request, requests.size() + 1).first->second;
            events.push_back(std::move(own));
        }
        mResult.capture.events = std::move(events);
    }

    bool setsOurs(const UsbEvent& own) const {
        return (*own.setup)[1] == kSetAddress && std::ranges::any_of(mAttaches, [&](const CapturedAttach& attach) {
                   // The kernel speaks to a device at once when it has given it its address.
                   return attach.bus == own.bus && attach.address == (*own.setup)[2] &&
                          attach.firstPacket > own.packet && attach.began - own.time < std::chrono::seconds(5);
               });
    }

    std::vector<CapturedAttach> mAttaches;
    MaskedCapture mResult;
    Mask mMask;
};

}  // namespace

MaskedCapture masked(const UsbCapture& capture) {
    return Masking(capture).run();
}

}  // namespace simulator
