#include "simulator/Device.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
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

/// The host's end of the bus, by hand: cuts what it writes into packets, puts what it reads together, follows the
/// device's wish to leave and to come back.
class Host {
  public:
    explicit Host(Profile profile = {}) : device(std::move(profile)) {
        device.setCable(true, now);
        device.attached(now);
        device.configured(now);
    }

    Device::WriteResult write(const Bytes& bytes) {
        const std::size_t most = device.profile().pipe(Pipe::BulkOut)->maxPacketSize;
        auto result = Device::WriteResult::Taken;
        for (std::size_t at = 0; at <= bytes.size() && result == Device::WriteResult::Taken; at += most) {
            result = device.writePacket(std::span(bytes).subspan(at, std::min(most, bytes.size() - at)), now);
        }
        follow();
        return result;
    }

    /// Everything that waits on a pipe, one entry a transfer.
    Packets read(Pipe pipe) {
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
    Packets read() { return read(Pipe::InterruptIn); }

    void wait(Duration span) {
        const Time end = now + span;
        for (auto due = device.nextDue(); due && *due <= end; due = device.nextDue()) {
            now = *due;
            device.advance(now);
            follow();
        }
        now = end;
        device.advance(now);
        follow();
    }

    void start() {
        write(kStart);
        read();
    }

    Time now{0};
    Device device;

  private:
    void follow() {
        if (device.wantsBus() == device.isAttached()) return;
        if (device.wantsBus()) {
            device.attached(now);
            device.configured(now);
        } else {
            device.detached(now);
        }
    }
};

const Bytes kDataAvailablePacket = {0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0};

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
    EXPECT_EQ(host.read(), (Packets{{0, 0, 0, 0, 6, 0, 0, 0, 4, 0, 0, 0, 0xD4, 0xC3, 0xB2, 0xA1}}));
    host.write({0, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(host.read(), (Packets{{0, 0, 0, 0, 17, 0, 0, 0, 4, 0, 0, 0, 0x0C, 0x10, 0, 0}}));
    host.write({20, 0, 0, 0, 0xFE, 0, 0, 0, 0, 0, 0, 0});
    const Bytes product = {20, 0, 0, 0, 0xFF, 0, 0, 0, 11, 0, 0, 0, 2, 1, 230, 0, 'U', 'n', 'i', 't', 0, 'B', 0};
    const Bytes protocols = {20, 0, 0, 0, 0xFD, 0, 0, 0, 6, 0, 0, 0, 'A', 10, 0, 'D', 0xFA, 3};
    const Bytes extended = {20, 0, 0, 0, 0xF8, 0, 0, 0, 2, 0, 0, 0, 'X', 0};
    EXPECT_EQ(host.read(), (Packets{product, protocols, extended}));
    host.write({20, 0, 0, 0, 28, 0, 0, 0, 2, 0, 0, 0, 0, 0});
    EXPECT_TRUE(host.read().empty());
    EXPECT_TRUE(host.device.record().refused().empty());

    // The same on the bulk pipe: each answer announced and its run ended by an empty transfer.
    host.device.profile().route = AnswerRoute::AllOnBulk;
    host.write(application(kProductRequest));
    EXPECT_EQ(host.read(), Packets(3, kDataAvailablePacket));
    EXPECT_EQ(host.read(Pipe::BulkIn), (Packets{product, {}, protocols, {}, extended, {}}));
}

TEST(Device, QuestionsAreAnsweredWithTheProfilesFacts) {
    Host host;
    host.start();
    const struct {
        Bytes question;
        Bytes answer;
    } cases[] = {
        {commandBytes(kGetUnitId), application(kUnitId, {0x4E, 0xC7, 0x3B, 0xE3})},
        {commandBytes(kGetTime), application(kTime, {1, 2, 0xEA, 0x07, 3, 0, 4, 5})},
        {commandBytes(kGetDisconnectTimeout), application(kDisconnectTimeout, {60, 0, 0, 0})},
        {application(kUnitNameRequest), application(kUnitName, {'T', 'r', 'a', 'i', 'l', 'm', 'a', 't', 'e', 0})},
        {application(kRegionSizeRequest, {3}), application(kRegionSize, {0, 0, 0x30, 0, 0, 0, 0, 0, 0})},
    };
    for (const auto& one : cases) {
        host.write(one.question);
        EXPECT_EQ(host.read(), Packets{one.answer}) << "to " << hexText(one.question);
    }
    for (const auto& quiet : {commandBytes(kKeepAlive), application(kTransferComplete, {7, 0}),
                              application(kTime, {5, 6, 0xE9, 0x07, 9, 0, 8, 7}), application(kTimeFollows, {0, 0}),
                              application(kUnitName, {'N', 'e', 'w', 0})}) {
        host.write(quiet);
        EXPECT_TRUE(host.read().empty());
    }
    host.write(commandBytes(kGetTime));
    EXPECT_EQ(host.read(), Packets{application(kTime, {5, 6, 0xE9, 0x07, 9, 0, 8, 7})});
    EXPECT_EQ(host.device.profile().unitName, "New");
    EXPECT_TRUE(host.device.record().refused().empty());
}

TEST(Device, PacketsAreCutAndPutTogetherAtEverySize) {
    for (const std::uint16_t most : {std::uint16_t{64}, std::uint16_t{512}}) {
        for (const std::size_t size : {12u, 63u, 64u, 65u, 128u, 511u, 512u, 513u, 4095u, 4096u, 4097u, 4108u}) {
            SCOPED_TRACE(testing::Message() << size << " bytes in packets of " << most);
            Profile profile;
            profile.pipes = Profile::pipesOfSize(most);
            profile.route = AnswerRoute::AllOnBulk;
            Host host(profile);
            const Bytes bytes = application(77, Bytes(size - kHeaderSize, 0x5A));

            host.write(bytes);
            EXPECT_EQ(host.device.record().received(), Packets{bytes});
            host.device.send({kApplicationLayer, 77, Bytes(size - kHeaderSize, 0x5A)}, host.now);
            EXPECT_EQ(host.read(Pipe::BulkIn), (Packets{bytes, {}}));
        }
    }
}

TEST(Device, ResetGoesThroughItsStates) {
    Host host;
    host.device.profile().leaveDelay = milliseconds(20);
    host.device.profile().rebootTime = seconds(2);
    ASSERT_FALSE(host.device.store().empty());
    host.start();
    host.write(commandBytes(kReboot));
    EXPECT_EQ(host.device.bootState(), BootState::Rebooting);
    host.wait(milliseconds(19));
    EXPECT_TRUE(host.device.isAttached());
    host.wait(milliseconds(1));
    EXPECT_FALSE(host.device.isAttached());
    host.wait(milliseconds(1999));
    EXPECT_FALSE(host.device.isAttached());
    host.wait(milliseconds(1));
    ASSERT_TRUE(host.device.isAttached());
    EXPECT_EQ(host.device.bootState(), BootState::Starting);

    host.start();
    host.write(application(kHoldInBootLoader));
    EXPECT_EQ(host.read(), Packets{application(kHoldInBootLoader)});
    EXPECT_EQ(host.device.bootState(), BootState::HeldInBootLoader);
    host.write(commandBytes(kClearStore));
    EXPECT_TRUE(host.device.store().empty());
    host.write(application(kResumeBoot));
    EXPECT_EQ(host.device.bootState(), BootState::Running);
    EXPECT_TRUE(host.device.record().refused().empty());
}

TEST(Device, RebootIsSeenHoweverShortAndGoesOnWithoutTheCable) {
    Host host(Profile::instant());
    host.start();
    host.write(commandBytes(kReboot));
    EXPECT_FALSE(host.device.isAttached()) << "it has to be seen leaving";
    host.wait(Duration{0});
    EXPECT_TRUE(host.device.isAttached());

    host.device.profile().rebootTime = seconds(2);
    host.device.profile().leaveDelay = seconds(1);
    host.start();
    host.write(commandBytes(kReboot));
    host.device.setCable(false, host.now);
    host.wait(seconds(3));
    EXPECT_EQ(host.device.bootState(), BootState::Starting);
    EXPECT_FALSE(host.device.isAttached());
    host.device.setCable(true, host.now);
    host.wait(Duration{0});
    EXPECT_TRUE(host.device.isAttached());
}

TEST(Device, BootWindowEndsUnlessSomebodyHoldsTheDevice) {
    for (const bool hold : {false, true}) {
        Host host(Profile::instant());
        host.device.profile().bootWindow = seconds(10);
        host.start();
        host.write(commandBytes(kReboot));
        host.wait(milliseconds(9999));
        host.start();
        EXPECT_EQ(host.device.bootState(), BootState::Starting);
        if (hold) host.write(application(kHoldInBootLoader));
        host.wait(seconds(10));
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
        host.device.setBootState(one.state, host.now);
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
        if (detach) {
            host.device.detached(host.now);
            host.device.attached(host.now);
        } else {
            host.device.configured(host.now);
        }
        EXPECT_FALSE(host.device.sessionStarted());
        host.wait(seconds(1));
        EXPECT_TRUE(host.read().empty());
        EXPECT_TRUE(host.read(Pipe::BulkIn).empty());
    }
}

TEST(Device, AnswersLeaveOneAfterTheOtherEachAtItsOwnMoment) {
    Host host;
    host.start();
    host.device.profile().answerDelays = {{kProductData, milliseconds(2999)}, {kExtendedProductData, milliseconds(2)}};
    host.device.profile().route = AnswerRoute::AllOnInterrupt;
    host.write(application(kProductRequest));
    const auto idsNow = [&] {
        std::vector<int> ids;
        for (const auto& bytes : host.read()) ids.push_back(*readU16(bytes, 4));
        return ids;
    };
    host.wait(milliseconds(2998));
    EXPECT_EQ(idsNow(), std::vector<int>{});
    host.wait(milliseconds(1));
    EXPECT_EQ(idsNow(), (std::vector<int>{kProductData, kProtocolList}));
    host.wait(milliseconds(1));
    EXPECT_EQ(idsNow(), std::vector<int>{});
    host.wait(milliseconds(1));
    EXPECT_EQ(idsNow(), std::vector<int>{kExtendedProductData});
    EXPECT_FALSE(host.device.nextDue());
}

TEST(Device, FaultOnAnAnswerChangesWhatTheHostSees) {
    const Bytes own = application(kUnitId, {0x4E, 0xC7, 0x3B, 0xE3});
    const auto fault = [](FaultKind kind) { return Fault::onAnswer(kUnitId, kind, "the fault"); };
    const struct {
        Fault fault;
        Packets interrupt;
        Packets bulk;
    } cases[] = {
        {fault(FaultKind::NoAnswer), {}, {}},
        {fault(FaultKind::WrongAnswer).withNumber(39), {application(39, {0x4E, 0xC7, 0x3B, 0xE3})}, {}},
        {fault(FaultKind::WrongLayer).withNumber(7), {encodePacket({7, kUnitId, {0x4E, 0xC7, 0x3B, 0xE3}})}, {}},
        {fault(FaultKind::Garbage).withBytes({1, 2, 3}), {{1, 2, 3}}, {}},
        {fault(FaultKind::Garbage).withBytes({}), {{}}, {}},
        {fault(FaultKind::GarbageBefore).withBytes({1, 2, 3}), {{1, 2, 3}, own}, {}},
        {fault(FaultKind::ForeignFrames).withNumber(2), {application(40'000), application(40'001, {0x2A}), own}, {}},
        {fault(FaultKind::WrongSizeField).withNumber(1),
         {{20, 0, 0, 0, 38, 0, 0, 0, 5, 0, 0, 0, 0x4E, 0xC7, 0x3B, 0xE3}},
         {}},
        {fault(FaultKind::WrongSizeField).withNumber(-5),
         {{20, 0, 0, 0, 38, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0x4E, 0xC7, 0x3B, 0xE3}},
         {}},
        {fault(FaultKind::SplitTransfers).withNumber(12),
         {{20, 0, 0, 0, 38, 0, 0, 0, 4, 0, 0, 0}, {0x4E, 0xC7, 0x3B, 0xE3}},
         {}},
        {fault(FaultKind::Padded).withNumber(18), {application(kUnitId, {0x4E, 0xC7, 0x3B, 0xE3, 0, 0})}, {}},
        {fault(FaultKind::Unannounced), {}, {own, {}}},
        {fault(FaultKind::Repeated).withNumber(2), {own, own, own}, {}},
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

TEST(Device, FaultStrikesAtItsStepAndOccurrenceOnly) {
    Host host;
    host.start();
    host.device.addFault(Fault::onCommand(kGetUnitId, FaultKind::Ignore).atOccurrence(2).committed(2));
    host.device.addFault(Fault::onAnswer(kTime, FaultKind::NoAnswer).inState(BootState::HeldInBootLoader));
    std::string answered;
    for (int i = 0; i < 5; ++i) {
        host.write(commandBytes(kGetTime));
        answered += host.read().empty() ? '-' : 't';
        host.write(commandBytes(kGetUnitId));
        answered += host.read().empty() ? '-' : 'u';
    }
    EXPECT_EQ(answered, "tut-t-tutu");
    EXPECT_EQ(host.device.faults().size(), 1u);
    host.device.setBootState(BootState::HeldInBootLoader, host.now);
    host.write(commandBytes(kGetTime));
    EXPECT_TRUE(host.read().empty());
    EXPECT_EQ(host.device.faults().size(), 0u);
}

TEST(Device, StallTakesItsTurnAndLastsUntilItIsCleared) {
    Host host;
    host.start();
    host.device.addFault(Fault::onAnswer(kProtocolList, FaultKind::Stall).withPipe(Pipe::InterruptIn));
    host.device.profile().route = AnswerRoute::AllOnInterrupt;
    host.write(application(kProductRequest));
    EXPECT_EQ(host.read().size(), 1u) << "product data was before it";
    EXPECT_TRUE(host.device.halted(Pipe::InterruptIn));
    host.device.clearHalt(Pipe::InterruptIn);
    EXPECT_EQ(host.read().size(), 1u) << "extended product data was behind it";

    host.device.addFault(Fault::onPacket(kProductRequest, FaultKind::Stall));
    EXPECT_EQ(host.write(application(kProductRequest)), Device::WriteResult::Stalled);
    EXPECT_EQ(host.write(commandBytes(kKeepAlive)), Device::WriteResult::Stalled);
    host.device.configured(host.now);
    EXPECT_EQ(host.write(kStart), Device::WriteResult::Taken);
}

TEST(Device, PacketThatIsNotTakenWaitsOnTheBus) {
    Host host;
    host.start();
    host.device.addFault(Fault::onCommand(kGetUnitId, FaultKind::NotTaken).withDelay(milliseconds(400)));
    EXPECT_EQ(host.write(commandBytes(kGetUnitId)), Device::WriteResult::Busy);
    host.wait(milliseconds(399));
    EXPECT_EQ(host.write(commandBytes(kGetUnitId)), Device::WriteResult::Busy);
    host.wait(milliseconds(1));
    EXPECT_EQ(host.write(commandBytes(kGetUnitId)), Device::WriteResult::Taken);
    EXPECT_EQ(host.read().size(), 1u);

    host.device.addFault(Fault::onCommand(kGetUnitId, FaultKind::NotTaken));
    EXPECT_EQ(host.write(commandBytes(kGetUnitId)), Device::WriteResult::Busy);
    EXPECT_FALSE(host.device.nextDue()) << "for good";
    host.device.configured(host.now);
    EXPECT_EQ(host.write(kStart), Device::WriteResult::Taken);
}

TEST(Device, CableComesOutAtTheGivenStepAndGoesInAgain) {
    Fault atAttach;
    atAttach.step.at = FaultStep::At::Attach;
    atAttach.kind = FaultKind::Unplug;
    const struct {
        Fault fault;
        Duration out;  // after the question, or after the attach
        bool taken;    // the question still had its effect
    } cases[] = {
        {Fault::onCommand(kGetUnitId, FaultKind::Unplug), Duration{0}, false},
        {Fault::onCommand(kGetUnitId, FaultKind::Unplug).withDelay(milliseconds(7)), milliseconds(7), true},
        {Fault::onAnswer(kUnitId, FaultKind::Unplug), Duration{0}, false},
        {Fault::onAnswer(kUnitId, FaultKind::Unplug).withDelay(milliseconds(9)), milliseconds(9), false},
        {Fault(atAttach).withDelay(milliseconds(50)), milliseconds(50), true},
    };
    for (auto one : cases) {
        Host host;
        host.device.addFault(one.fault.comingBackAfter(seconds(3)));
        host.device.detached(host.now);
        host.device.attached(host.now);
        host.start();
        host.write(commandBytes(kGetUnitId));
        EXPECT_EQ(!host.read().empty(), one.taken);
        if (one.out > Duration{0}) {
            host.wait(one.out - milliseconds(1));
            EXPECT_TRUE(host.device.isAttached());
            host.wait(milliseconds(1));
        }
        EXPECT_FALSE(host.device.isAttached());
        host.wait(milliseconds(2999));
        EXPECT_FALSE(host.device.isAttached());
        host.wait(milliseconds(1));
        EXPECT_TRUE(host.device.isAttached());
    }
}

TEST(Device, HostThatNeverReadsOrWritesRubbishCostsBoundedMemory) {
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

    std::mt19937 random(20'260'101);
    const auto upTo = [&](unsigned most) { return random() % (most + 1); };
    for (int i = 0; i < 10'000; ++i) {
        Bytes bytes(upTo(90));
        for (auto& byte : bytes) byte = static_cast<unsigned char>(upTo(255));
        if (upTo(3) != 0 && bytes.size() >= kHeaderSize) {
            // A header that holds, so that the rest is reached as well.
            Bytes data(bytes.begin() + kHeaderSize, bytes.end());
            const std::uint16_t ids[] = {5, 16, 10, 12, 14, 28, 47, 113, 254, 525, 526, 980, 1500};
            bytes = encodePacket({static_cast<std::uint8_t>(upTo(4) == 0 ? 0 : 20), ids[upTo(12)], data});
        }
        host.write(bytes);
        if (upTo(9) == 0) host.wait(milliseconds(upTo(3000)));
        host.read();
        host.read(Pipe::BulkIn);
    }
    EXPECT_FALSE(host.device.record().refused().empty());
}

TEST(FaultCatalogue, EachFaultHasANameAndCanHappenInAReset) {
    std::set<std::string> names;
    for (const auto& fault : faultCatalogue()) {
        SCOPED_TRACE(fault.name);
        EXPECT_TRUE(names.insert(fault.name).second);
        Host host;
        host.device.addFault(fault);
        for (int round = 0; round < 3; ++round) {
            host.device.failure(BusOperation::USBDeviceOpen, host.now);
            host.device.configured(host.now);
            for (const auto& bytes : {kStart, encodePacket({kUsbLayer, kAskLargest, {}}), application(kProductRequest),
                                      round == 0 ? commandBytes(kReboot) : application(kHoldInBootLoader),
                                      commandBytes(kClearStore), application(kResumeBoot)}) {
                host.write(bytes);
                host.wait(milliseconds(100));
            }
            host.device.setBootState(BootState::Starting, host.now);
            host.wait(seconds(10));
        }
        const auto committed = host.device.record().faults();
        EXPECT_NE(std::find(committed.begin(), committed.end(), fault.name), committed.end());
    }
    EXPECT_GE(names.size(), 20u);
}

TEST(Profile, DescriptorsDescribeThePipes) {
    EXPECT_EQ(usbDescriptors({}),
              (Bytes{18,   1,  0,  2, 0xFF, 0, 0,    64,   0x09, 0x12, 3, 0, 1, 0,    0, 0, 0,  1, 9,
                     2,    39, 0,  1, 1,    0, 0x80, 50,   9,    4,    0, 0, 3, 0xFF, 0, 0, 0,  7, 5,
                     0x81, 3,  64, 0, 1,    7, 5,    0x82, 2,    64,   0, 0, 7, 5,    3, 2, 64, 0, 0}));
    const auto wearable = Profile::wearable();
    EXPECT_EQ(wearable.endpointAddress(Pipe::BulkIn), 0x82);
    EXPECT_EQ(wearable.endpointAddress(Pipe::BulkOut), 3);
    const Bytes fast = usbDescriptors(wearable);
    EXPECT_EQ(Bytes(fast.begin() + 36, fast.begin() + 43), (Bytes{7, 5, 0x81, 3, 0, 2, 4}));
}

}  // namespace
}  // namespace simulator
