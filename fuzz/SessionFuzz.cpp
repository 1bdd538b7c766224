// A device that sends whatever it likes on any pipe, in any order and at any time, and whose transfers end however they
// like. Whatever it does, the session ends with an exception of the library's or without one, within its limits, and
// leaves nothing behind. An input of zeros is a device that does nothing wrong.

#include "FTX/FTX_Channel.hpp"
#include "IOL/IOL_Packet.hpp"
#include "fuzz/Harness.hpp"
#include "fuzz/Input.hpp"
#include "tests/support/UsbWorld.hpp"

#include <memory>

namespace {

using support::ScriptedUsb;

const platform::IOReturn gcResults[] = {
    platform::kIOReturnSuccess,  platform::kIOReturnAborted, platform::kIOReturnNoDevice,
    platform::kIOUSBPipeStalled, platform::kIOReturnOverrun, platform::kIOReturnTimeout,
};

/// Ids that the host waits for or treats in a way of its own.
const std::uint16_t gcIds[] = {2, 5, 6, 10, 16, 17, 28, 113, 248, 253, 254, 255, 525, 1500};

class Script {
  public:
    Script(support::ScriptedDevice& device, fuzz::Input& input) : mDevice(device), mInput(input) {}

    void write() {
        const std::uint8_t flags = mInput.byte();
        if (!(flags & 1)) mDevice.startsSession();
        if (!(flags & 2)) identifies();
        if (flags & 4) mDevice.usb.pipes[2].maxPacketSize = mInput.byte();
        if (flags & 8) std::swap(mDevice.usb.pipes[flags >> 4 & 1], mDevice.usb.pipes[2]);
        for (unsigned i = 0; i < gcMostSteps && !mInput.isAtEnd(); ++i) step();
    }

  private:
    void identifies() {
        auto& usb = mDevice.usb;
        usb.brings(ScriptedUsb::kInterruptIn, mDevice.packet(20, 255, {0xE8, 3, 0xE6, 0, 'x', 0}));
        usb.brings(ScriptedUsb::kInterruptIn, mDevice.packet(20, 253, {'A', 10, 0}));
        usb.brings(ScriptedUsb::kInterruptIn, mDevice.packet(20, 248, {'y', 0}));
    }

    void step() {
        auto& usb = mDevice.usb;
        const std::uint8_t choice = mInput.byte();
        const std::uint8_t pipe = choice & 0x80 ? ScriptedUsb::kBulkIn : ScriptedUsb::kInterruptIn;
        const auto delay = std::chrono::milliseconds(choice & 0x40 ? 10 * mInput.byte() : 0);
        switch (choice & 7) {
            case 0:
            case 1:
                return usb.brings(pipe, packet(), platform::kIOReturnSuccess, delay);
            case 2:
                return usb.brings(pipe, mDevice.packet(0, 2), platform::kIOReturnSuccess, delay);
            case 3:
                return usb.brings(pipe, mInput.bytes(mInput.byte()), result(), delay);
            case 4:
                return bringsLongPacket(pipe);
            case 5:
                return usb.brings(pipe, {}, platform::kIOReturnSuccess, delay);
            case 6:
                return bringsOddCount(pipe, mInput.byte());
            default:
                return usb.endsWrite({.result = result(), .ends = (choice & 8) == 0, .delay = delay});
        }
    }

    platform::IOReturn result() { return gcResults[mInput.byte() % std::size(gcResults)]; }

    simulator::Bytes packet() {
        const std::uint8_t choice = mInput.byte();
        const std::uint16_t id = choice & 0x80 ? mInput.number() : gcIds[choice % std::size(gcIds)];
        auto bytes = mDevice.packet(choice & 0x40 ? 0 : 20, id, mInput.bytes(choice & 0x20 ? 4 : mInput.byte()));
        if ((choice & 0x70) == 0x70) bytes[mInput.byte() % 12] ^= mInput.byte();
        return bytes;
    }

    /// A count that no read can have, an empty read, or a flood of packets while the host waits for a write to end.
    void bringsOddCount(std::uint8_t pipe, std::uint8_t kind) {
        auto& usb = mDevice.usb;
        if (kind == 0) return usb.bringsCount(pipe, 0x100000000);
        if (kind >= 4 || !take(sFloodsLeft)) return usb.bringsCount(pipe, 0);
        usb.endsWrite({.ends = false});
        usb.brings(pipe, mDevice.packet(20, 113, simulator::Bytes(4000)), {}, {}, {}, 4096U - 4U * mInput.byte());
    }

    /// Up to two megabytes. Full reads follow the first, which has the header; that they bring nothing new keeps the
    /// script small, so that all that is held is held by the session.
    void bringsLongPacket(std::uint8_t pipe) {
        const std::uint8_t reads = mInput.byte();
        const unsigned fullReads = reads < 0xF0 || !take(sLongPacketsLeft) ? 1 + reads % 4 : 2 * mInput.byte() + 1;
        auto first = mDevice.packet(20, 253);
        const std::uint16_t rest = mInput.byte();
        const std::uint32_t size = fullReads * gcFullRead + rest - 12;
        for (unsigned i = 0; i < 4; ++i) first[8 + i] = static_cast<unsigned char>(size >> 8 * i);
        first.resize(gcFullRead);
        mDevice.usb.brings(pipe, first);
        mDevice.usb.bringsCount(pipe, gcFullRead, fullReads - 1);
        mDevice.usb.bringsCount(pipe, rest);
    }

    /// Thousands of reads take as long as a hundred other runs: only the first few that ask for them get them. An input
    /// that is tried alone always does.
    static bool take(unsigned& left) { return left > 0 && left-- > 0; }
    inline static unsigned sFloodsLeft = 20;
    inline static unsigned sLongPacketsLeft = 20;

    static constexpr unsigned gcMostSteps = 32;
    static constexpr unsigned gcFullRead = 4096;

    support::ScriptedDevice& mDevice;
    fuzz::Input& mInput;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::traceIntoNothing();
    fuzz::Input input(data, size);
    support::ScriptedDevice device;
    const std::uint8_t choice = input.byte();
    Script(device, input).write();

    // Each send takes 3 s at most, and so does each wait for a frame; a packet's time is looked at between frames.
    // The session may hold 4 MiB that nobody fetches, and a packet of 1 MiB in the making on each of two pipes.
    constexpr std::size_t gcBytes = std::size_t{10} << 20;
    fuzz::Limits limits(device.clock);
    std::unique_ptr<iou::UsbLink_t> link;
    std::unique_ptr<ftx::Channel_t> channel;
    if (limits.hold(10, gcBytes, "Opening", [&] { link.reset(new iou::UsbLink_t(device.openLink())); }) &&
        limits.hold(16, gcBytes, "Identification", [&] { channel = std::make_unique<ftx::Channel_t>(*link); })) {
        iol::Packet_t reply(113);
        limits.hold(3, gcBytes, "Sending",
                    [&] { channel->SendIopCommand(10, std::vector<unsigned char>(choice & 1 ? 52 : 2, 0xAE)); });
        if (choice & 2) limits.hold(9, gcBytes, "Asking", [&] { channel->DisplayName(L""); });
        limits.hold(6, gcBytes, "Waiting", [&] { channel->GetPacket(reply); });
        while (limits.hold(0.1, gcBytes, "Receiving", [&] { link->GetFrameWithTimeout(100); })) {
        }
    }
    channel.reset();
    link.reset();
    fuzz::require(device.usb.isIdle(), "The session has left something behind.");
    return 0;
}
