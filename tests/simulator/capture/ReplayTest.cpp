#include "simulator/capture/CapturedDevice.hpp"
#include "simulator/capture/ReplayedDevice.hpp"
#include "simulator/engine/Wire.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace simulator {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using Result = BusDevice::WriteResult;

const Bytes kStart = encodePacket({kUsbLayer, kStartSession, {}});
const Bytes kStarted = encodePacket({kUsbLayer, kSessionStarted, {1, 2, 3, 4}});
const Bytes kLargestAsked = encodePacket({kUsbLayer, kAskLargest, {}});
const Bytes kHold = encodePacket({kApplicationLayer, kHoldInBootLoader, {}});
const Bytes kOf64 = encodePacket({kApplicationLayer, kUnitName, Bytes(64 - kHeaderSize, 'x')});

/// A capture that began when the device was attached already, at the address 7 of bus 1.
struct Captured {
    void request(std::uint8_t endpoint, const Bytes& sent, const Bytes& got, int status = 0,
                 std::uint32_t asked = 4096) {
        UsbEvent event;
        event.transfer = endpoint == 0x81 ? UsbEvent::Transfer::Interrupt : UsbEvent::Transfer::Bulk;
        event.endpoint = endpoint;
        event.device = address;
        event.bus = 1;
        event.request = capture.events.size();
        for (const bool ends : {false, true}) {
            event.packet = capture.events.size() + 1;
            event.time += milliseconds(event.packet);
            event.type = ends ? 'C' : 'S';
            event.status = ends ? status : -EINPROGRESS;
            event.data = ends ? got : sent;
            event.length = static_cast<std::uint32_t>(event.isIn() && !ends ? asked : event.data.size());
            capture.events.push_back(event);
        }
    }
    Captured& host(const Bytes& packet, int status = 0) { return request(0x03, packet, {}, status), *this; }
    Captured& device(const Bytes& data, int status = 0, std::uint8_t pipe = 0x81, std::uint32_t asked = 4096) {
        return request(pipe, {}, data, status, asked), *this;
    }
    UsbCapture capture;
    std::uint8_t address = 7;
};

/// The device of a capture, on the bus.
struct Played {
    explicit Played(const Captured& captured) : device(storyOf(captured.capture), [this] { ++parted; }) {
        device.setCable(true, {});
        device.attached({});
    }
    Result write(const Bytes& packet) { return device.writePacket(packet, {}); }
    Bytes read(Pipe pipe = Pipe::InterruptIn) { return device.hasPacket(pipe) ? device.takePacket(pipe) : Bytes{0xEE}; }

    ReplayedDevice device;
    int parted = 0;
};

TEST(ReplayedDevice, RepeatedStartsAndDataOfTheMomentAreNoDifference) {
    const auto name = [](const char* text) {
        return encodePacket({kApplicationLayer, kUnitName, Writer().text(text).take()});
    };
    const auto once = Captured().host(kStart).device(kStarted).host(kLargestAsked).host(name("Ann"));
    const auto twice = Captured().host(kStart).host(kStart).device(kStarted).host(kLargestAsked).host(name("Ann"));
    auto spokeFirst = Captured().device(kStarted).host(kLargestAsked).host(name("Ann"));
    spokeFirst.capture.events.erase(spokeFirst.capture.events.begin());  // the read that its answer ends
    for (const auto& [what, captured, host] :
         {std::tuple("as captured", once, std::vector{kStart, kLargestAsked, name("Ann")}),
          std::tuple("the device spoke first", spokeFirst, std::vector{kLargestAsked, name("Ann")}),
          std::tuple("another name", once, std::vector{kStart, kLargestAsked, name("Christopher")}),
          std::tuple("asked again now", once, std::vector{kStart, kStart, kLargestAsked, name("Ann")}),
          std::tuple("asked again then", twice, std::vector{kStart, kLargestAsked, name("Ann")})}) {
        SCOPED_TRACE(what);
        Played played(captured);
        for (const auto& packet : host) EXPECT_EQ(played.write(packet), Result::Taken);
        EXPECT_EQ(played.read(), kStarted);
        EXPECT_EQ(played.device.difference(), std::nullopt);
    }
}

TEST(ReplayedDevice, FirstDifferenceIsNamedAndTheDeviceIsGone) {
    const auto captured = Captured().host(kStart).device(kStarted).host(kHold).device(kHold);
    for (const auto& [host, reads, parted, says] :
         {std::tuple(std::vector<Bytes>{kStart}, 1, 0,
                     "packet 5. There the device was \"Told to hold in its boot loader\""),
          {{kStart, kLargestAsked}, 1, 1, "now it is \"Asked for its largest packet\" (12 bytes: 00"},
          {{kStart, kHold, kHold}, 2, 1, "at the end of the capture, after packet 8"},
          {{kStart, kHold}, 1, 0, "packet 8: the program has ended without reading"}}) {
        SCOPED_TRACE(says);
        Played played(captured);
        for (const auto& packet : host) played.write(packet);
        for (int i = 0; i < reads; ++i) played.read();
        EXPECT_THAT(played.device.difference().value_or("nothing"), HasSubstr(says));
        EXPECT_EQ(played.parted, parted);
        EXPECT_EQ(played.device.wantsBus(), parted == 0);
    }
}

TEST(ReplayedDevice, StallsRefusalsAndWholeTransfersAreAsTheyWere) {
    const Bytes first(4096, 1), second(128, 2);
    Played played(Captured()
                      .host(kStart, -EPIPE)
                      .host(kLargestAsked, -ENOENT)
                      .host(kOf64)
                      .device({}, -EPIPE)
                      .device(first, 0, 0x82)
                      .device(second, 0, 0x82)
                      .device(kStarted, -ENOENT));  // a read that was cancelled
    EXPECT_EQ(played.write(kStart), Result::Stalled);
    EXPECT_EQ(played.write(kLargestAsked), Result::Stalled) << "until the halt is cleared";
    played.device.clearHalt(Pipe::BulkOut);
    EXPECT_EQ(played.write(kLargestAsked), Result::Busy);
    EXPECT_EQ(played.write(kLargestAsked), Result::Busy) << "the same one, offered again";
    played.device.writeCancelled({});
    EXPECT_EQ(played.write(kOf64), Result::Taken);
    EXPECT_EQ(played.write({}), Result::Taken) << "the empty packet behind it says nothing";
    EXPECT_TRUE(played.device.halted(Pipe::InterruptIn));
    played.device.clearHalt(Pipe::InterruptIn);
    EXPECT_EQ(played.read(), Bytes{0xEE});
    for (int i = 0; i < 4096 / 64; ++i) EXPECT_EQ(played.read(Pipe::BulkIn), Bytes(64, 1));
    for (int i = 0; i < 2; ++i) EXPECT_EQ(played.read(Pipe::BulkIn), Bytes(64, 2)) << "no end behind a full transfer";
    EXPECT_EQ(played.read(Pipe::BulkIn), Bytes{}) << "which a short one has";
    EXPECT_EQ(played.device.difference(), std::nullopt);
}

TEST(ReplayedDevice, LeavesWhenAllIsSaidAndComesBackAsTheNextAttach) {
    Captured captured;
    captured.host(kStart).device(kStarted).device({}, -ESHUTDOWN);
    captured.address = 8;
    captured.host(kStart).device(kHold);
    Played played(captured);
    played.write(kStart);
    played.device.advance(milliseconds(20));
    EXPECT_TRUE(played.device.wantsBus()) << "its answer is still to be read";
    played.read();
    played.device.advance(milliseconds(40));
    ASSERT_FALSE(played.device.wantsBus());
    played.device.detached(milliseconds(40));
    played.device.advance(milliseconds(140));
    ASSERT_TRUE(played.device.wantsBus());
    played.device.attached({});
    played.write(kStart);
    EXPECT_EQ(played.read(), kHold);
    EXPECT_EQ(played.device.difference(), std::nullopt);
}

}  // namespace
}  // namespace simulator
