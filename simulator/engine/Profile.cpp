#include "simulator/engine/Profile.hpp"

#include "simulator/engine/Wire.hpp"

#include <algorithm>
#include <sstream>

namespace simulator {
namespace {

bool isPipe(const platform::PipeProperties& properties, Pipe pipe) {
    return properties.direction == (pipe == Pipe::BulkOut ? platform::kUSBOut : platform::kUSBIn) &&
           properties.transferType == (pipe == Pipe::InterruptIn ? platform::kUSBInterrupt : platform::kUSBBulk);
}

/// The endpoint's address, with the direction in bit 7.
std::uint8_t addressOf(const platform::PipeProperties& pipe) {
    return static_cast<std::uint8_t>(pipe.number | (pipe.direction == platform::kUSBIn ? 0x80 : 0));
}

}  // namespace

std::vector<ProtocolEntry> protocolEntries(const std::string& text) {
    std::istringstream input(text);
    std::vector<ProtocolEntry> entries;
    for (ProtocolEntry entry; input >> entry.tag >> entry.number;) entries.push_back(entry);
    return entries;
}

const platform::PipeProperties* Profile::pipe(Pipe wanted) const {
    const auto found = std::ranges::find_if(pipes, [&](const auto& one) { return isPipe(one, wanted); });
    return found == pipes.end() ? nullptr : &*found;
}

std::uint8_t Profile::endpointAddress(Pipe wanted) const {
    const auto* found = pipe(wanted);
    return found ? addressOf(*found) : 0;
}

std::vector<platform::PipeProperties> Profile::pipesOfSize(std::uint16_t maxPacketSize) {
    return {{platform::kUSBIn, 1, platform::kUSBInterrupt, maxPacketSize, 1},
            {platform::kUSBIn, 2, platform::kUSBBulk, maxPacketSize, 0},
            {platform::kUSBOut, 3, platform::kUSBBulk, maxPacketSize, 0}};
}

Profile Profile::wearable() {
    Profile profile;
    profile.pipes = pipesOfSize(512);
    profile.route = AnswerRoute::AllOnBulk;
    profile.productNumber = 1400;
    profile.softwareVersion = 310;
    profile.descriptions = {"Wristmate 40 Software Version 3.10", "Basemap Worldwide 1.00"};
    profile.extendedProductData = {{"Wristmate 40"}};
    profile.unitName = "Wristmate";
    profile.unitId = 3900000001;
    return profile;
}

Profile Profile::withoutProtocols() {
    Profile profile;
    profile.productNumber = 77;  // a model of the built-in tables, in a version of their second row
    profile.softwareVersion = 301;
    profile.descriptions = {"Trailmate 12 Software Version 3.01"};
    profile.extendedProductData.reset();
    profile.protocols.reset();
    return profile;
}

Profile Profile::instant() {
    Profile profile;
    profile.leaveDelay = Duration{0};
    profile.rebootTime = Duration{0};
    return profile;
}

std::optional<Profile> Profile::named(std::string_view name) {
    if (name == "handheld") return handheld();
    if (name == "wearable") return wearable();
    if (name == "old") return withoutProtocols();
    if (name == "instant") return instant();
    return std::nullopt;
}

Bytes usbDescriptors(const Profile& profile) {
    Writer out;
    const bool highSpeed = std::ranges::any_of(profile.pipes, [](const auto& pipe) { return pipe.maxPacketSize > 64; });
    // Device: USB 2.0, class by the vendor, endpoint 0 of 64 bytes, no strings, one configuration.
    out.u8(18).u8(1).u16(0x0200).u8(0xFF).u8(0).u8(0).u8(64);
    out.u16(profile.vendorId).u16(profile.productId).u16(profile.releaseNumber).u8(0).u8(0).u8(0).u8(1);
    const auto endpoints = static_cast<std::uint8_t>(profile.pipes.size());
    // Configuration: bus powered with 100 mA.
    const int total = 9 + 9 * profile.interfaces + 7 * endpoints;
    out.u8(9).u8(2).u16(static_cast<std::uint16_t>(total)).u8(profile.interfaces).u8(profile.configurationValue);
    out.u8(0).u8(0x80).u8(50);
    out.u8(9).u8(4).u8(0).u8(0).u8(endpoints).u8(0xFF).u8(0).u8(0).u8(0);
    for (const auto& pipe : profile.pipes) {
        // An interval of 1 would mean 125 us at high speed: 4 there is the same millisecond.
        const bool stretched = highSpeed && pipe.transferType == platform::kUSBInterrupt;
        out.u8(7).u8(5).u8(addressOf(pipe)).u8(pipe.transferType).u16(pipe.maxPacketSize);
        out.u8(stretched ? 4 : pipe.interval);
    }
    for (std::uint8_t other = 1; other < profile.interfaces; ++other) {
        out.u8(9).u8(4).u8(other).u8(0).u8(0).u8(0xFF).u8(0).u8(0).u8(0);
    }
    return out.take();
}

}  // namespace simulator
