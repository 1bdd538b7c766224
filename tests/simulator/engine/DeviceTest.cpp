#include "simulator/world/SimulatedWorld.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace simulator {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

using Packets = std::vector<Bytes>;

const Bytes kStart = encodePacket({kUsbLayer, kStartSession, {}});

Bytes application(std::uint16_t id, Bytes data = {}) {
    return encodePacket({kApplicationLayer, id, std::move(data)});
}
Bytes commandBytes(std::uint16_t command) {
    return application(kCommand, Writer().u16(command).take());
}

/// The host's end of the bus, by hand: cuts what it writes into packets and puts what it reads together.
struct Host {
    explicit Host(Profile profile = {}) : world(std::move(profile)) { world.plug(); }

    Device::WriteResult write(const Bytes& bytes) {
        const std::size_t most = device.profile().pipe(Pipe::BulkOut)->maxPacketSize;
        auto result = Device::WriteResult::Taken;
        world.bus.withDevice(0, [&](Device&, Time now) {
            for (std::size_t at = 0; at <= bytes.size() && result == Device::WriteResult::Taken; at += most) {
                result = device.writePacket(std::span(bytes).subspan(at, std::min(most, bytes.size() - at)), now);
            }
        });
        return result;
    }

    /// Everything that waits on a pipe, one entry a transfer.
    Packets read(Pipe pipe = Pipe::InterruptIn) {
        Packets transfers;
        bool open = false;
        while (device.hasPacket(pipe)) {
            const Bytes packet = device.takePacket(pipe);
            if (!open) transfers.emplace_back();
            transfers.back().insert(transfers.back().end(), packet.begin(), packet.end());
            open = packet.size() == device.profile().pipe(pipe)->maxPacketSize;
        }
        EXPECT_FALSE(open) << "a transfer without an end";
        return transfers;
    }

    void start() {
        write(kStart);
        read();
    }

    SimulatedWorld world;
    Device& device = world.device();
};

TEST(Device, IdentificationIsExactByteForByte) {
    Profile profile;
    profile.productNumber = 0x0102;
    profile.softwareVersion = 230;
    profile.descriptions = {"Unit", "B"};
    profile.protocols = protocolEntries("A010 D1018");
    profile.extendedProductData = {{"X"}};
    profile.unitId = 0xA1B2C3D4;
    Host host(profile);

    host.write({0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0});
    host.write({0, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(host.read(), (Packets{{0, 0, 0, 0, 6, 0, 0, 0, 4, 0, 0, 0, 0xD4, 0xC3, 0xB2, 0xA1},
                                    {0, 0, 0, 0, 17, 0, 0, 0, 4, 0, 0, 0, 0x0C, 0x10, 0, 0}}));
    host.write({20, 0, 0, 0, 0xFE, 0, 0, 0, 0, 0, 0, 0});
    const Bytes product = {20, 0, 0, 0, 0xFF, 0, 0, 0, 11, 0, 0, 0, 2, 1, 230, 0, 'U', 'n', 'i', 't', 0, 'B', 0};
    const Bytes protocols = {20, 0, 0, 0, 0xFD, 0, 0, 0, 6, 0, 0, 0, 'A', 10, 0, 'D', 0xFA, 3};
    const Bytes extended = {20, 0, 0, 0, 0xF8, 0, 0, 0, 2, 0, 0, 0, 'X', 0};
    EXPECT_EQ(host.read(), (Packets{product, protocols, extended}));
    EXPECT_TRUE(host.device.record().refused().empty());
}

TEST(Device, RebootIsSeenHoweverShortAndGoesOnWithoutTheCable) {
    Host host(Profile::instant());
    host.start();
    host.write(commandBytes(kReboot));
    EXPECT_FALSE(host.device.sessionStarted()) << "it has to be seen leaving";
    EXPECT_TRUE(host.device.isAttached());

    host.device.profile().rebootTime = seconds(2);
    host.device.profile().leaveDelay = seconds(1);
    host.start();
    host.write(commandBytes(kReboot));
    host.world.unplug();
    host.world.runFor(seconds(3));
    EXPECT_EQ(host.device.bootState(), BootState::Starting);
    host.world.plug();
    EXPECT_TRUE(host.device.isAttached());
}

TEST(Device, BootWindowEndsUnlessSomebodyHoldsTheDevice) {
    for (const bool hold : {false, true}) {
        Host host(Profile::instant());
        host.device.profile().bootWindow = seconds(10);
        host.start();
        host.write(commandBytes(kReboot));
        host.world.runFor(milliseconds(9999));
        host.start();
        EXPECT_EQ(host.device.bootState(), BootState::Starting);
        if (hold) host.write(application(kHoldInBootLoader));
        host.world.runFor(seconds(10));
        EXPECT_EQ(host.device.bootState(), hold ? BootState::HeldInBootLoader : BootState::Running);
    }
}

TEST(Device, WhatMakesNoSenseIsRefusedRecordedAndWithoutEffect) {
    const struct {
        const char* reason;
        Bytes bytes;
        bool session = true;
        BootState state = BootState::Running;
    } cases[] = {
        {"application packet 254 before a session", application(kProductRequest), false},
        {"question for the largest packet before a session", encodePacket({kUsbLayer, kAskLargest, {}}), false},
        {"shorter than a header: 11 bytes", Bytes(11, 0)},
        {"shorter than a header: 0 bytes", {}},
        {"unknown layer 1", encodePacket({1, 10, {}})},
        {"reserved bytes are not 0", {20, 0, 0, 1, 10, 0, 0, 0, 0, 0, 0, 0}},
        {"reserved bytes are not 0", {20, 0, 0, 0, 10, 0, 1, 0, 0, 0, 0, 0}},
        {"size field says 5, data has 4", {20, 0, 0, 0, 10, 0, 0, 0, 5, 0, 0, 0, 1, 2, 3, 4}},
        {"size field says 4294967295, data has 0", {20, 0, 0, 0, 10, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}},
        {"unknown packet of the USB layer", encodePacket({kUsbLayer, 6, {}})},
        {"packet with data that takes none", encodePacket({kUsbLayer, kStartSession, {0}})},
        {"unknown packet", application(9999)},
        {"unknown command", commandBytes(9999)},
        {"command without its two bytes", application(kCommand, {0xAE})},
        {"product request with data", application(kProductRequest, {1})},
        {"time without its eight bytes", application(kTime, {1})},
        {"unit name without its final 0", application(kUnitName, {'x'})},
        {"longer than the largest packet of 4108", application(77, Bytes(4097))},
        {"longer than any packet", Bytes(70'000, 20)},
        {"hold in boot loader while running", application(kHoldInBootLoader)},
        {"clear without hold in boot loader", commandBytes(kClearStore)},
        {"clear without hold in boot loader", commandBytes(kClearStore), true, BootState::Starting},
        {"resume boot without hold", application(kResumeBoot), true, BootState::Starting},
        {"packet while rebooting", application(kProductRequest), true, BootState::Rebooting},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.reason);
        Host host;
        if (one.session) host.start();
        host.device.setBootState(one.state, host.world.clock.now());
        const auto store = host.device.store().entries();
        EXPECT_EQ(host.write(one.bytes), Device::WriteResult::Taken);
        EXPECT_EQ(host.device.record().refused(), std::vector<std::string>{one.reason});
        EXPECT_TRUE(host.read().empty());
        EXPECT_TRUE(host.read(Pipe::BulkIn).empty());
        EXPECT_EQ(host.device.bootState(), one.state);
        EXPECT_EQ(host.device.store().entries(), store);
    }
}

TEST(Device, ConfigurationAndDetachEndTheSessionAndDropWhatWaits) {
    for (const bool detach : {false, true}) {
        Host host;
        host.start();
        host.device.profile().answerDelay = milliseconds(5);
        host.write(application(kProductRequest));
        if (detach) host.world.unplug();
        detach ? host.world.plug() : host.device.configured(host.world.clock.now());
        EXPECT_FALSE(host.device.sessionStarted());
        host.world.runFor(seconds(1));
        EXPECT_TRUE(host.read().empty());
        EXPECT_TRUE(host.read(Pipe::BulkIn).empty());
    }
}

TEST(Device, FaultOnAnAnswerChangesWhatTheHostSees) {
    const Bytes id = {0x4E, 0xC7, 0x3B, 0xE3}, own = application(kUnitId, id);
    const auto fault = [](FaultKind kind) { return Fault::onAnswer(kUnitId, kind, "the fault"); };
    const struct {
        Fault fault;
        Packets interrupt, bulk = {};
    } cases[] = {
        {fault(FaultKind::NoAnswer), {}},
        {fault(FaultKind::WrongAnswer).withNumber(39), {application(39, id)}},
        {fault(FaultKind::WrongLayer).withNumber(7), {encodePacket({7, kUnitId, id})}},
        {fault(FaultKind::Garbage).withBytes({1, 2, 3}), {{1, 2, 3}}},
        {fault(FaultKind::Garbage).withBytes({}), {{}}},
        {fault(FaultKind::GarbageBefore).withBytes({1, 2, 3}), {{1, 2, 3}, own}},
        {fault(FaultKind::ForeignFrames).withNumber(2), {application(40'000), application(40'001, {0x2A}), own}},
        {fault(FaultKind::WrongSizeField).withNumber(1),
         {{20, 0, 0, 0, 38, 0, 0, 0, 5, 0, 0, 0, 0x4E, 0xC7, 0x3B, 0xE3}}},
        {fault(FaultKind::WrongSizeField).withNumber(-5),
         {{20, 0, 0, 0, 38, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0x4E, 0xC7, 0x3B, 0xE3}}},
        {fault(FaultKind::SplitTransfers).withNumber(12), {{20, 0, 0, 0, 38, 0, 0, 0, 4, 0, 0, 0}, id}},
        {fault(FaultKind::Padded).withNumber(18), {application(kUnitId, {0x4E, 0xC7, 0x3B, 0xE3, 0, 0})}},
        {fault(FaultKind::Unannounced), {}, {own, {}}},
        {fault(FaultKind::Repeated).withNumber(2), {own, own, own}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(static_cast<int>(one.fault.kind));
        Host host;
        host.start();
        host.device.addFault(one.fault);
        host.write(commandBytes(kGetUnitId));
        EXPECT_EQ(host.read(), one.interrupt);
        EXPECT_EQ(host.read(Pipe::BulkIn), one.bulk);
        EXPECT_EQ(host.device.record().faults(), std::vector<std::string>{"the fault"});

        // It has been used up.
        host.write(commandBytes(kGetUnitId));
        EXPECT_EQ(host.read(), Packets{own});
    }
}

TEST(Device, HostThatNeverReadsCostsBoundedMemory) {
    Host host;
    host.start();
    host.device.profile().route = AnswerRoute::AllOnBulk;
    for (int i = 0; i < 15'000; ++i) host.write(application(kProductRequest));
    std::size_t waiting = 0;
    for (const Pipe pipe : {Pipe::InterruptIn, Pipe::BulkIn}) {
        while (host.device.hasPacket(pipe)) waiting += host.device.takePacket(pipe).size();
    }
    EXPECT_LT(waiting, 10u << 20);
    EXPECT_LE(host.device.record().entries().size(), 100'000u);
    EXPECT_EQ(host.device.record().refused().back(), "answers that the host does not fetch");
}

}  // namespace
}  // namespace simulator
