#include "IOL/IOL_Exception.hpp"
#include "IOL/IOL_FrameStream.hpp"
#include "IOL/IOL_Link.hpp"
#include "IOL/IOL_Packet.hpp"
#include "platform/Platform.hpp"
#include "tests/support/ScriptedLink.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <memory>

namespace {

using namespace support;
using iol::Frame_t;

TEST(Frame, CopiesShareOnePayloadThatOutlivesTheOriginalAndStreamsCopyIt) {
    const unsigned char source[] = {1, 2, 3};
    auto original = std::make_unique<Frame_t>(static_cast<unsigned short>(7), source, 3U);
    const Frame_t copy = *original;
    EXPECT_EQ(copy.Data(), original->Data());
    EXPECT_NE(copy.Data(), source);
    iol::FrameStream_t writer(*original);
    original.reset();
    writer << static_cast<unsigned short>(0xBBAA);
    EXPECT_EQ(writer.Buffer(), (Bytes{0xAA, 0xBB, 3}));
    EXPECT_EQ(copy.Bytes(), (Bytes{1, 2, 3}));
}

TEST(LinkExceptions, BadFrameIsDumpedWithHeadingIdAndRowsAndAbortCarriesItsCause) {
    EXPECT_EQ(iol::BadFrame_t(Frame_t(65535, Bytes{0xAE, 0}), "libs/X", 12).Message(),
              L"Frame: (ID,DATA)\nID: 65535\n0000: ae 00 " + std::wstring(42, L' ') + L"  ..\n");
    EXPECT_EQ(iol::Abort_t("libs/Y", 3, iol::Abort_t::gcProtocolAbandoned).Cause(), 2U);
}

TEST(Frame, FromAStreamTakesExactlyWhatIsStillReadable) {
    iol::FrameStream_t stream;
    stream << 0x04030201U;
    stream.ignore(1);
    EXPECT_EQ(Frame_t(9, stream).Bytes(), (Bytes{2, 3, 4}));
    EXPECT_EQ(Frame_t(9, stream).Size(), 0U) << "the end bit is set, so nothing is left";
    EXPECT_EQ(stream.rdstate(), bin::ios::eofbit);
    struct : iol::FrameStream_t {
        unsigned long RemainingSize() override { return 4294967296; }
    } tooLong;
    EXPECT_EQ(raisedAt<iol::Exception_t>([&] { Frame_t(9, tooLong); }), "libs/IOL/IOL_Frame 36");
}

/// Keeps the payload; refuses an empty one.
struct Probe : iol::Packet_t {
    using iol::Packet_t::Packet_t;
    void AcceptFrame(const Frame_t& frame) override {
        if (frame.Size() == 0) throw iol::BadFrame_t(frame, "tests/Probe", 1);
        payload = frame.Bytes();
    }
    Frame_t ProduceFrame() const override { return Frame_t(Id(), payload); }
    Bytes payload;
};

struct Link : testing::Test {
    ManualClock clock;
    platform::PlatformScope scope{{.clock = &clock}};
    ScriptedLink link{clock};
    Probe packet{10};
    Probe other{11};
};

using LinkDeathTest = Link;

TEST_F(LinkDeathTest, FrameOfAnotherIdOrEmptyListOrNullEntryStopsTheProgram) {
    iol::Packet_t plain(10);
    EXPECT_EQ(plain.ProduceFrame().Size(), 0U);
    plain.AcceptFrame(Frame_t(10, Bytes{1, 2, 3}));
    const auto stops = testing::KilledBySignal(SIGILL);
    EXPECT_EXIT(plain.AcceptFrame(Frame_t(11, Bytes{})), stops, "IOL/IOL_Packet.hpp Line: 70");
    EXPECT_EXIT(link.GetPacket(std::vector<iol::Packet_t*>(), 0), stops, "libs/IOL/IOL_Link Line: 77");
    EXPECT_EXIT(link.GetPacket({&packet, nullptr}, 0), stops, "libs/IOL/IOL_Link Line: 80");
}

TEST_F(Link, PacketsGoOutWithTheGivenTimeout) {
    packet.payload = {1, 2};
    link.SendPacket(packet, 1234);
    EXPECT_EQ(link.sent, (std::vector<WireFrame>{{10, {1, 2}}}));
    EXPECT_EQ(link.sendTimeouts, Timeouts{1234});
}

TEST_F(Link, LimitIsLookedAtBeforeEachReceiveAndStrictly) {
    // Exactly at the limit one more receive is made, one millisecond past it none.
    link.Arrives(12, {}, 1000).Arrives(12, {}, 1).Arrives(12, {}, 1000).Arrives(12, {}, 1).Arrives(10, {1});
    EXPECT_EQ(raisedAt<glo::Timeout_t>([&] { link.GetPacket(packet, 1000); }), "libs/IOL/IOL_Link 51");
    EXPECT_EQ(link.Pending(), 3U);
    EXPECT_EQ(link.receiveTimeouts, (Timeouts{1000, 1000})) << "each receive gets the whole one";
    EXPECT_EQ(raisedAt<glo::Timeout_t>([&] { link.GetPacket({&other, &packet}, 1000); }), "libs/IOL/IOL_Link 89");
    link.GetPacket(packet, 0);
    EXPECT_EQ(packet.payload, Bytes{1}) << "a time-out of 0 still receives once";
}

TEST_F(Link, InfiniteTimeoutNeverGivesUpByItself) {
    for (int i = 0; i < 3; ++i) link.Arrives(12, {}, 4294967295U);
    link.Arrives(10, {1}).Arrives(12, {}, 4294967295U).Arrives(12, {}, 4294967295U).Arrives(11, {1});
    link.GetPacket(packet, win::gcDurationInfinite);
    EXPECT_EQ(link.GetPacket({&packet, &other}, win::gcDurationInfinite), 1U);
}

TEST_F(Link, ListGivesTheFrameToItsFirstPacketOfThatId) {
    Probe twin(10);
    link.Arrives(12).Arrives(10, {7});
    EXPECT_EQ(link.GetPacket({&other, &packet, &twin}, 1000), 1U);
    EXPECT_EQ(packet.payload, Bytes{7});
    EXPECT_TRUE(twin.payload.empty());
}

TEST_F(Link, PacketsExceptionConsumesTheFrameAndTheTransportsOwnPassesThroughUntouched) {
    link.Arrives(10).Arrives(10);
    EXPECT_THROW(link.GetPacket(packet, 1000), iol::BadFrame_t);
    EXPECT_THROW(link.GetPacket({&packet}, 1000), iol::BadFrame_t);
    EXPECT_EQ(link.Pending(), 0U);
    EXPECT_EQ(raisedAt<glo::Timeout_t>([&] { link.GetPacket(packet, 500); }), "tests/support/ScriptedLink 1");
    EXPECT_EQ(raisedAt<glo::Timeout_t>([&] { link.GetPacket({&packet}, 500); }), "tests/support/ScriptedLink 1");
}

}  // namespace
