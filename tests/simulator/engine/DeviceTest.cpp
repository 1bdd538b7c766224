#include "simulator/world/SimulatedWorld.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace simulator {
namespace {

Bytes application(std::uint16_t id, Bytes data = {}) {
    return encodePacket({kApplicationLayer, id, std::move(data)});
}
Bytes commandBytes(std::uint16_t command) {
    return application(kCommand, Writer().u16(command).take());
}

/// The host's end of the bus, by hand, in a session.
struct Host {
    Host() {
        world.plug();
        write(encodePacket({kUsbLayer, kStartSession, {}}));
        read();
    }
    void write(const Bytes& bytes) {
        const std::size_t most = device.profile().pipe(Pipe::BulkOut)->maxPacketSize;
        for (std::size_t at = 0; at <= bytes.size(); at += most) {
            const auto packet = std::span(bytes).subspan(at, std::min(most, bytes.size() - at));
            EXPECT_EQ(device.writePacket(packet, world.clock.now()), Device::WriteResult::Taken);
        }
    }
    /// What waits on the interrupt pipe, where each of these tests' answers fits into one packet.
    std::vector<Bytes> read() {
        std::vector<Bytes> packets;
        while (device.hasPacket(Pipe::InterruptIn)) packets.push_back(device.takePacket(Pipe::InterruptIn));
        return packets;
    }

    SimulatedWorld world;
    Device& device = world.device();
};

TEST(Device, AnswersAndTheFaultsOnThemAreExactByteForByte) {
    const Bytes id = {0x4E, 0xC7, 0x3B, 0xE3}, own = application(kUnitId, id);
    const auto fault = [](FaultKind kind) { return Fault::onAnswer(kUnitId, kind); };
    const std::pair<Fault, std::vector<Bytes>> cases[] = {
        {fault(FaultKind::NoAnswer), {}},
        {fault(FaultKind::WrongAnswer).withNumber(39), {application(39, id)}},
        {fault(FaultKind::WrongLayer).withNumber(7), {encodePacket({7, kUnitId, id})}},
        {fault(FaultKind::Garbage).withBytes({1, 2, 3}), {{1, 2, 3}}},
        {fault(FaultKind::GarbageBefore).withBytes({1, 2, 3}), {{1, 2, 3}, own}},
        {fault(FaultKind::ForeignFrames).withNumber(2), {application(40'000), application(40'001, {0x2A}), own}},
        {fault(FaultKind::WrongSizeField), {{20, 0, 0, 0, 38, 0, 0, 0, 5, 0, 0, 0, 0x4E, 0xC7, 0x3B, 0xE3}}},
        {fault(FaultKind::SplitTransfers).withNumber(12), {{20, 0, 0, 0, 38, 0, 0, 0, 4, 0, 0, 0}, id}},
        {fault(FaultKind::Unannounced), {}},
        {fault(FaultKind::Repeated).withNumber(2), {own, own, own}},
        {fault(FaultKind::Padded).withNumber(18), {application(kUnitId, {0x4E, 0xC7, 0x3B, 0xE3, 0, 0})}},
    };
    for (const auto& [one, answers] : cases) {
        SCOPED_TRACE(static_cast<int>(one.kind));
        Host host;
        host.device.addFault(one);
        host.write(commandBytes(kGetUnitId));
        EXPECT_EQ(host.read(), answers);
        EXPECT_EQ(host.device.hasPacket(Pipe::BulkIn), one.kind == FaultKind::Unannounced);
        host.write(commandBytes(kGetUnitId));
        EXPECT_EQ(host.read(), std::vector<Bytes>{own}) << "the fault is used up";
    }
    Host host;
    auto& profile = host.device.profile();
    profile.descriptions = {"Unit", "B"};
    profile.protocols = protocolEntries("A010 D1018");
    profile.extendedProductData = {{"X"}};
    host.write(application(kProductRequest));
    const Bytes product = {0xE8, 3, 230, 0, 'U', 'n', 'i', 't', 0, 'B', 0}, list = {'A', 10, 0, 'D', 0xFA, 3};
    EXPECT_EQ(host.read(), (std::vector{application(kProductData, product), application(kProtocolList, list),
                                        application(kExtendedProductData, {'X', 0})}));
}

TEST(Device, ListensForHoldUntilItsBootWindowEnds) {
    Profile profile = Profile::instant();
    profile.bootWindow = std::chrono::seconds(5);
    Device device(profile);
    device.setCable(true, Time(0));
    device.attached(Time(0));
    device.writePacket(encodePacket({kUsbLayer, kStartSession, {}}), Time(0));
    device.writePacket(commandBytes(kReboot), Time(0));
    device.advance(*device.nextDue());
    EXPECT_FALSE(device.wantsBus());
    device.detached(Time(0));
    const Time back = *device.nextDue();
    device.advance(back);
    EXPECT_EQ(device.nextDue(), back + *profile.bootWindow);
    device.advance(back + *profile.bootWindow - Time(1));
    EXPECT_EQ(device.bootState(), BootState::Starting);
    device.advance(back + *profile.bootWindow);
    EXPECT_EQ(device.bootState(), BootState::Running);
}

TEST(Device, KeepsNoMoreThanItsBoundsForAHostThatDoesNotRead) {
    Host host;
    host.device.addFault(Fault::onAnswer(kUnitId, FaultKind::Repeated).withNumber(10'000).committed(7));
    for (int i = 0; i < 7; ++i) host.write(commandBytes(kGetUnitId));
    EXPECT_EQ(host.read().size(), 65'536u);
    host.device.profile().answerDelay = std::chrono::seconds(1);
    host.device.record().clear();
    for (int i = 0; i < 4'097; ++i) host.write(commandBytes(kGetUnitId));
    EXPECT_EQ(host.device.record().refused(), std::vector<std::string>{"too many questions at once"});

    Record record;
    RecordEntry entry;
    for (int i = 0; i < 100'001; ++i) record.add(entry);
    EXPECT_EQ(record.dropped(), 1u);
    entry.bytes.resize(9u << 20);
    for (int i = 0; i < 2; ++i) record.add(entry);
    EXPECT_EQ(record.entries().size(), 1u) << "16 MB are the most";
}

TEST(Device, WhatMakesNoSenseIsRefusedRecordedAndWithoutEffect) {
    const struct {
        const char* reason;
        Bytes bytes;
        bool session = true;
        BootState state = BootState::Running;
    } cases[] = {
        {"application packet 254 before a session", application(kProductRequest), false},
        {"shorter than a header: 0 bytes", {}},
        {"unknown layer 1", encodePacket({1, 10, {}})},
        {"reserved bytes are not 0", {20, 0, 0, 1, 10, 0, 0, 0, 0, 0, 0, 0}},
        {"size field says 5, data has 4", {20, 0, 0, 0, 10, 0, 0, 0, 5, 0, 0, 0, 1, 2, 3, 4}},
        {"unknown packet of the USB layer", encodePacket({kUsbLayer, 6, {}})},
        {"unknown packet", application(9999)},
        {"unknown command", commandBytes(9999)},
        {"command without its two bytes", application(kCommand, {0xAE})},
        {"product request with data", application(kProductRequest, {1})},
        {"longer than the largest packet of 4108", application(77, Bytes(4097))},
        {"hold in boot loader while running", application(kHoldInBootLoader)},
        {"clear without hold in boot loader", commandBytes(kClearStore), true, BootState::Starting},
        {"resume boot without hold", application(kResumeBoot), true, BootState::Starting},
        {"packet while rebooting", application(kProductRequest), true, BootState::Rebooting},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.reason);
        Host host;
        Device& device = host.device;
        if (!one.session) device.configured(host.world.clock.now());
        device.setBootState(one.state, host.world.clock.now());
        const auto store = device.store().entries();
        host.write(one.bytes);
        EXPECT_EQ(device.record().refused(), std::vector<std::string>{one.reason});
        EXPECT_FALSE(device.hasPacket(Pipe::InterruptIn) || device.hasPacket(Pipe::BulkIn));
        EXPECT_EQ(device.bootState(), one.state);
        EXPECT_EQ(device.store().entries(), store);
    }
}

}  // namespace
}  // namespace simulator
