#include "simulator/engine/Record.hpp"

#include <cstdio>

namespace simulator {
namespace {

// A reset takes some fifty entries and a few kilobytes: room for a thousand of them.
constexpr std::size_t kMostEntries = 100'000;
constexpr std::size_t kMostBytes = 16u << 20;

std::string line(const RecordEntry& entry) {
    char time[32];
    std::snprintf(time, sizeof time, "%12.3f ms  ", static_cast<double>(entry.time.count()) / 1000.0);
    switch (entry.kind) {
        case RecordEntry::Kind::Received:
            return time + std::string("host -> device  ") + hexText(entry.bytes);
        case RecordEntry::Kind::Sent:
            return time + std::string("device -> host  ") + pipeName(entry.pipe) + ": " + hexText(entry.bytes);
        case RecordEntry::Kind::Refused:
            return time + std::string("refused         ") + entry.text + ": " + hexText(entry.bytes);
        case RecordEntry::Kind::Fault:
            return time + std::string("fault           ") + entry.text;
        case RecordEntry::Kind::State:
            return time + std::string("state           ") + entry.text;
    }
    return time;
}

}  // namespace

void Record::add(RecordEntry entry) {
    mBytes += entry.bytes.size();
    mEntries.push_back(std::move(entry));
    while (mEntries.size() > kMostEntries || mBytes > kMostBytes) {
        mBytes -= mEntries.front().bytes.size();
        mEntries.pop_front();
        ++mDropped;
    }
}

void Record::clear() {
    mEntries.clear();
    mBytes = 0;
    mDropped = 0;
}

std::vector<Bytes> Record::received() const {
    std::vector<Bytes> packets;
    for (const auto& entry : mEntries) {
        if (entry.kind == RecordEntry::Kind::Received) packets.push_back(entry.bytes);
    }
    return packets;
}

std::vector<UsbPacket> Record::received(std::uint8_t layer) const {
    std::vector<UsbPacket> packets;
    for (const auto& bytes : received()) {
        std::string reason;
        auto packet = decodePacket(bytes, reason);
        if (packet && packet->layer == layer) packets.push_back(std::move(*packet));
    }
    return packets;
}

std::vector<std::string> Record::texts(RecordEntry::Kind kind) const {
    std::vector<std::string> texts;
    for (const auto& entry : mEntries) {
        if (entry.kind == kind) texts.push_back(entry.text);
    }
    return texts;
}

std::string Record::text() const {
    std::string text;
    for (const auto& entry : mEntries) text += line(entry) + '\n';
    return text;
}

}  // namespace simulator
