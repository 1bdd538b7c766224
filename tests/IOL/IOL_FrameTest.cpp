#include "IOL/IOL_Frame.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <sstream>

#include "IOL/IOL_Exception.hpp"
#include "IOL/IOL_FrameStream.hpp"
#include "IOL/IOL_Packet.hpp"
#include "tests/support/ScriptedLink.hpp"

namespace {

using Bytes = std::vector<unsigned char>;
using iol::Frame_t;

std::wstring DumpOf(Frame_t const& frame) {
    std::wostringstream text;
    frame.Write(text);
    return text.str();
}

TEST(Frame, CopiesAndStreamsShareOnePayloadThatOutlivesTheOriginal) {
    unsigned char const source[] = {1, 2, 3};
    auto original = std::make_unique<Frame_t>(static_cast<unsigned short>(7), source, 3U);
    Frame_t const copy = *original;
    EXPECT_EQ(copy.Data(), original->Data());
    EXPECT_NE(copy.Data(), source);
    iol::FrameStream_t reader(*original);
    iol::FrameStream_t writer(*original);
    original.reset();
    writer << static_cast<unsigned short>(0xBBAA);
    EXPECT_EQ(writer.Buffer(), (Bytes{0xAA, 0xBB, 3}));
    EXPECT_EQ(reader.get(), 1);
    EXPECT_EQ(copy.Bytes(), (Bytes{1, 2, 3}));
}

TEST(Frame, DumpHasHeadingIdAndRowsOfSixteen) {
    std::wstring const heading = L"Frame: (ID,DATA)\nID: ";
    EXPECT_EQ(DumpOf(Frame_t(10, Bytes{0xAE, 0})), heading + L"10\n0000: ae 00 " + std::wstring(42, L' ') + L"  ..\n");
    // A full last row, and no row at all, bring the line of two spaces.
    EXPECT_EQ(DumpOf(Frame_t(65535, Bytes(16, 'A'))),
              heading + L"65535\n0000: 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41   AAAAAAAAAAAAAAAA\n  \n");
    EXPECT_EQ(DumpOf(Frame_t(1, nullptr, 0)), heading + L"1\n  \n");
}

TEST(Frame, FromAStreamTakesExactlyWhatIsStillReadable) {
    iol::FrameStream_t written;
    written << 0x04030201U;
    EXPECT_EQ(Frame_t(9, written).Bytes(), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(written.rdstate(), bin::ios::eofbit);

    iol::FrameStream_t half(Frame_t(1, Bytes{1, 2, 3, 4}));
    half.ignore(3);
    EXPECT_EQ(Frame_t(9, half).Bytes(), Bytes{4});
    EXPECT_EQ(Frame_t(9, half).Size(), 0U) << "the end bit is set, so nothing is left";
    EXPECT_EQ(half.rdstate(), bin::ios::eofbit);

    iol::FrameStream_t empty;
    EXPECT_EQ(Frame_t(9, empty).Size(), 0U);
    EXPECT_TRUE(empty.fail());
}

TEST(Frame, FromAStreamOfMoreThanThirtyTwoBitsOfLengthIsALinkException) {
    struct : iol::FrameStream_t {
        unsigned long RemainingSize() override { return 4294967296; }
    } stream;
    EXPECT_EQ(support::SiteOf<iol::Exception_t>([&] { Frame_t(1, stream); }), "libs/IOL/IOL_Frame 36");
}

TEST(PacketDeathTest, AnyPayloadWillDoButAnotherIdStopsTheProgram) {
    iol::Packet_t packet(10);
    EXPECT_EQ(packet.ProduceFrame().Size(), 0U);
    packet.AcceptFrame(Frame_t(10, Bytes{1, 2, 3}));
    EXPECT_EXIT(packet.AcceptFrame(Frame_t(11, Bytes{})), testing::KilledBySignal(SIGILL),
                "IOL/IOL_Packet.hpp Line: 70");
}

TEST(LinkExceptions, CarryTheFrameOrTheCause) {
    Frame_t const frame(10, Bytes{0xAE, 0x00});
    EXPECT_EQ(iol::BadFrame_t(frame, "libs/X", 12).Message(), DumpOf(frame));
    EXPECT_EQ(iol::Abort_t("libs/Y", 3, iol::Abort_t::gcProtocolAbandoned).Cause(), 2U);
}

}  // namespace
