#include "GLO/GLO_Exception.hpp"
#include "libs/IOU/mac/IOU_InPipe.hpp"
#include "libs/IOU/mac/IOU_Session.hpp"
#include "tests/support/UsbWorld.hpp"

#include <gtest/gtest.h>

namespace {

using namespace support;

constexpr std::uint8_t kInterrupt = ScriptedUsb::kInterruptIn;
constexpr std::uint8_t kBulk = ScriptedUsb::kBulkIn;

using Frames = std::vector<std::pair<int, std::size_t>>;  ///< id and size

struct Pipes : StartedDevice, testing::Test {
    void announces() { usb.brings(kInterrupt, packet(0, 2, {1, 0, 0, 0})); }

    /// Everything that comes out of the link until nothing has come for a second.
    Frames frames() {
        Frames got;
        try {
            for (;;) {
                const auto frame = link.GetFrameWithTimeout(1000);
                got.emplace_back(frame.Id(), frame.Size());
            }
        } catch (const glo::Timeout_t&) {
            return got;
        }
    }
};

TEST_F(Pipes, PacketGoesOnAsLongAsReadsComeBackFull) {
    for (const std::size_t size : {20UL, 4095UL, 4096UL, 4097UL, 4116UL, 8192UL, 12288UL + 64UL}) {
        usb.bringsPacket(kInterrupt, packet(20, 30, Bytes(size - 12, 7)));
        EXPECT_EQ(frames(), (Frames{{30, size - 12}})) << size;
    }
}

TEST_F(Pipes, BulkIsReadFromEachAnnouncementUntilItRunsDry) {
    EXPECT_EQ(usb.readsPending(kBulk), 0U);
    announces();
    EXPECT_TRUE(frames().empty()) << "an announcement is for the transport alone";
    EXPECT_EQ(usb.readsPending(kBulk), 1U);
    usb.bringsPacket(kBulk, packet(20, 1));
    usb.bringsPacket(kBulk, packet(20, 2, Bytes(5000, 0)));
    EXPECT_EQ(frames().size(), 2U);
    EXPECT_EQ(usb.readsPending(kBulk), 1U) << "goes on reading";
    usb.brings(kBulk, {});
    usb.brings(kInterrupt, {});
    EXPECT_TRUE(frames().empty());
    EXPECT_EQ(usb.readsPending(kBulk), 0U) << "an empty read ends the run";
    EXPECT_EQ(usb.readsPending(kInterrupt), 1U) << "and means nothing on the interrupt pipe";

    // However many are announced at once, few reads are under way and none is lost.
    for (int i = 0; i < 20; ++i) announces();
    EXPECT_TRUE(frames().empty());
    EXPECT_EQ(usb.readsPending(kBulk), iou::InPipe_t::gcMaxReads);
    for (int i = 0; i < 19; ++i) usb.brings(kBulk, {});
    EXPECT_TRUE(frames().empty());
    EXPECT_EQ(usb.readsPending(kBulk), 1U);
}

TEST_F(Pipes, WhatIsNoPacketIsDroppedAndTheNextOneTaken) {
    const std::tuple<const char*, Bytes, bool> cases[] = {
        {"eleven bytes", {20, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0}, false},
        {"empty payload", {20, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0}, true},
        {"reserved fields are not looked at", {20, 9, 9, 9, 10, 0, 9, 9, 0, 0, 0, 0}, true},
        {"a control packet that the session doesn't know", {0, 0, 0, 0, 10, 0, 0, 0, 4, 0, 0, 0, 1, 2, 3, 4}, true},
        {"layer 1", {1, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0}, false},
        {"layer 21", {21, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0}, false},
        {"claims more", {20, 0, 0, 0, 10, 0, 0, 0, 5, 0, 0, 0, 1, 2, 3, 4}, false},
        {"claims less", {20, 0, 0, 0, 10, 0, 0, 0, 3, 0, 0, 0, 1, 2, 3, 4}, false},
        {"size in the high bytes counts", {20, 0, 0, 0, 10, 0, 0, 0, 1, 0, 0, 1, 1}, false},
    };
    announces();
    for (const auto& [what, bytes, isTaken] : cases) {
        for (const auto pipe : {kInterrupt, kBulk}) {
            usb.bringsPacket(pipe, bytes);
            usb.brings(pipe, packet(20, 0x01FF, {1}));
            Frames expected{{0x01FF, 1}};
            if (isTaken) expected.emplace(expected.begin(), 10, bytes.size() - 12);
            EXPECT_EQ(frames(), expected) << what;
        }
    }
}

TEST_F(Pipes, PacketWithoutEndIsDroppedAtItsEndAndHoldsNoMemory) {
    usb.bringsPacket(kInterrupt, packet(20, 10, Bytes(iou::InPipe_t::gcMaxPacket + 8192, 0)));
    usb.bringsPacket(kInterrupt, packet(20, 11, Bytes(iou::InPipe_t::gcMaxPacket - 12, 0)));
    EXPECT_EQ(frames(), (Frames{{11, iou::InPipe_t::gcMaxPacket - 12}}));
}

TEST_F(Pipes, TalkThatNobodyFetchesIsBounded) {
    constexpr unsigned cRoom = iou::Session_t::gcMaxQueuedBytes / (12 + 2000 + 64);
    usb.brings(kInterrupt, packet(20, 1, Bytes(2000)), {}, {}, {}, cRoom + 100);
    usb.endsWrite({.delay = milliseconds(10)});
    link.SendFrameWithTimeout(iol::Frame_t(10, nullptr, 0), 3000);
    EXPECT_EQ(frames().size(), cRoom);
    usb.brings(kInterrupt, packet(20, 5, Bytes(2000)));
    EXPECT_EQ(frames().size(), 1U) << "and there is room again";
}

TEST_F(Pipes, AbortIsNoErrorButAnImpossibleByteCountIsOutOfRange) {
    const auto get = [&] { link.GetFrameWithTimeout(1000); };
    const auto send = [&] { link.SendFrameWithTimeout(iol::Frame_t(10, nullptr, 0), 1000); };
    usb.brings(kInterrupt, {}, platform::kIOReturnAborted);
    usb.brings(kInterrupt, packet(20, 10));
    EXPECT_EQ(frames().size(), 1U);
    usb.endsWrite({.result = platform::kIOReturnAborted});
    EXPECT_NO_THROW(send());
    usb.bringsCount(kInterrupt, 0x100000000);
    EXPECT_EQ(raisedAt<glo::OutOfRange_t>(get), "libs/IOU/mac/IOU_InPipe 161");
    usb.endsWrite({.count = 0x100000000});
    EXPECT_EQ(raisedAt<glo::OutOfRange_t>(send), "libs/IOU/mac/IOU_OutPipe 153");
}

}  // namespace
