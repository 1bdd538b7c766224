// The record for people who don't know the protocol.
#include "simulator/engine/Fault.hpp"
#include "simulator/engine/Record.hpp"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

namespace simulator {
namespace {

/// What is said of a packet. A command is one that packet 10 carries.
struct PacketWords {
    std::uint8_t layer;
    std::uint16_t id;
    std::optional<std::uint16_t> command;
    const char* words;
};

constexpr PacketWords kReceived[] = {
    {kUsbLayer, kStartSession, {}, "Asked to start a session"},
    {kUsbLayer, kAskLargest, {}, "Asked for its largest packet"},
    {kApplicationLayer, kProductRequest, {}, "Asked what it is"},
    {kApplicationLayer, kDataRequest, {}, "Told what to report unasked"},
    {kApplicationLayer, kCommand, kReboot, "Told to restart"},
    {kApplicationLayer, kCommand, kClearStore, "Told to erase its settings"},
    {kApplicationLayer, kHoldInBootLoader, {}, "Told to hold in its boot loader"},
    {kApplicationLayer, kResumeBoot, {}, "Told to go on starting"},
};

constexpr PacketWords kSent[] = {
    {kUsbLayer, kDataAvailable, {}, ""},
    {kUsbLayer, kSessionStarted, {}, "Answered: the session is open"},
    {kUsbLayer, kLargest, {}, "Answered with its largest packet"},
    {kApplicationLayer, kProductData, {}, "Answered with its product and version"},
    {kApplicationLayer, kProtocolList, {}, "Answered with its protocols"},
    {kApplicationLayer, kExtendedProductData, {}, "Answered with more on its product"},
    {kApplicationLayer, kHoldInBootLoader, {}, "Answered: it holds"},
};

struct StateWords {
    std::string_view state;  ///< as the record has it
    const char* words;
};

constexpr StateWords kStates[] = {
    {"cable in", "Cable plugged in"},
    {"cable out", "Cable pulled out"},
    {"attached", "The computer sees it"},
    {"detached", "The computer no longer sees it"},
    {"running", "Running"},
    {"rebooting", "Restarting"},
    {"starting", "Starting up"},
    {"held in boot loader", "Held in its boot loader"},
    {"store cleared", "Its settings are erased"},
    {"store filled", "Its settings are there again"},
};

std::string packetWords(const RecordEntry& entry, const auto& known, const char* other) {
    if (entry.bytes.empty()) return {};
    std::string reason;
    const auto packet = decodePacket(entry.bytes, reason);
    // By append: in sums of these GCC 12 sees an overflow that is not there.
    const auto sized = [&](const std::string& words) {
        return std::string(other)
            .append(words)
            .append(" (")
            .append(std::to_string(entry.bytes.size()))
            .append(" bytes)");
    };
    if (!packet) return sized(" something that is no packet");
    const bool isCommand = packet->layer == kApplicationLayer && packet->id == kCommand;
    const auto command = isCommand ? readU16(packet->data) : std::nullopt;
    const auto found = std::ranges::find_if(known, [&](const PacketWords& one) {
        return one.layer == packet->layer && one.id == packet->id && (!one.command || one.command == command);
    });
    return found != std::end(known) ? found->words : sized(" packet " + std::to_string(packet->id));
}

}  // namespace

std::string stateInWords(std::string_view state) {
    const auto known = std::ranges::find(kStates, state, &StateWords::state);
    return std::string(known == std::end(kStates) ? state : known->words);
}

std::string inWords(const RecordEntry& entry) {
    switch (entry.kind) {
        case RecordEntry::Kind::Received:
            return packetWords(entry, kReceived, "Received");
        case RecordEntry::Kind::Sent:
            return packetWords(entry, kSent, "Sent");
        case RecordEntry::Kind::Refused:
            return "Refused what the tool sent: " + entry.text;
        case RecordEntry::Kind::Fault:
            return "Fault: " + std::string(faultSentence(entry.text));
        case RecordEntry::Kind::State:
            return stateInWords(entry.text);
    }
    return {};
}

}  // namespace simulator
