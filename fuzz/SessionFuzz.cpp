// A device that sends whatever it likes on any pipe, in any order and at any time, and whose transfers end however they
// like. Whatever it does, the session ends with an exception of the library's or without one, in bounded time and
// memory, and leaves nothing behind.

#include <stdlib.h>

#include <cstdio>

#include "FTX/FTX_Channel.hpp"
#include "GLO/GLO_Exception.hpp"
#include "IOL/IOL_Packet.hpp"
#include "fuzz/Input.hpp"
#include "tests/support/UsbWorld.hpp"

namespace {

using support::ScriptedUsb;

platform::IOReturn const gcResults[] = {
    platform::kIOReturnSuccess,  platform::kIOReturnAborted, platform::kIOReturnNoDevice,
    platform::kIOUSBPipeStalled, platform::kIOReturnOverrun, platform::kIOReturnTimeout,
};

/// Ids that the host waits for or treats in a way of its own.
std::uint16_t const gcIds[] = {2, 5, 6, 10, 16, 17, 28, 113, 248, 253, 254, 255, 525, 1500};

class Script {
  public:
    Script(support::ScriptedDevice& device, fuzz::Input& input) : mDevice(device), mInput(input) {}

    void write() {
        std::uint8_t const flags = mInput.byte();
        if (flags & 1) mDevice.startsSession();
        if (flags & 2) identifies();
        if (flags & 4) mDevice.usb.pipes[2].maxPacketSize = mInput.byte();
        if (flags & 8) std::swap(mDevice.usb.pipes[flags >> 4 & 1], mDevice.usb.pipes[2]);
        while (!mInput.isAtEnd()) step();
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
        std::uint8_t const choice = mInput.byte();
        std::uint8_t const pipe = choice & 0x80 ? ScriptedUsb::kBulkIn : ScriptedUsb::kInterruptIn;
        auto const delay = std::chrono::milliseconds(choice & 0x40 ? 10 * mInput.byte() : 0);
        switch (choice & 7) {
            case 0:
            case 1:
                return usb.brings(pipe, packet(), platform::kIOReturnSuccess, delay);
            case 2:
                return usb.brings(pipe, mDevice.packet(0, 2), platform::kIOReturnSuccess, delay);
            case 3:
                return usb.brings(pipe, mInput.bytes(mInput.byte()), result(), delay);
            case 4:
                if (mLongPackets++ < gcMaxLongPackets) usb.bringsPacket(pipe, longPacket());
                return;
            case 5:
                return usb.brings(pipe, {}, platform::kIOReturnSuccess, delay);
            case 6:
                return usb.bringsCount(pipe, mInput.byte() == 0 ? 0x100000000 : 0);
            default:
                return usb.endsWrite({.result = result(), .ends = (choice & 8) == 0, .delay = delay});
        }
    }

    platform::IOReturn result() { return gcResults[mInput.byte() % std::size(gcResults)]; }

    simulator::Bytes packet() {
        std::uint8_t const choice = mInput.byte();
        std::uint16_t const id = choice & 0x80 ? mInput.number() : gcIds[choice % std::size(gcIds)];
        auto bytes = mDevice.packet(choice & 0x40 ? 0 : 20, id, mInput.bytes(choice & 0x20 ? 4 : mInput.byte()));
        if ((choice & 0x70) == 0x70) bytes[mInput.byte() % 12] ^= mInput.byte();
        return bytes;
    }

    simulator::Bytes longPacket() {
        return mDevice.packet(20, 253, simulator::Bytes(std::size_t{mInput.number()} * 32, mInput.byte()));
    }

    static constexpr unsigned gcMaxLongPackets = 4;  ///< of up to 2 MiB each: the script itself takes memory, too

    support::ScriptedDevice& mDevice;
    fuzz::Input& mInput;
    unsigned mLongPackets = 0;
};

/// What the application does with a device, and a little more.
void useDevice(support::ScriptedDevice& device, std::uint8_t choice) {
    auto link = device.openLink();
    ftx::Channel_t channel(link);
    channel.SendIopCommand(10, std::vector<unsigned char>(choice & 1 ? 52 : 2, 0xAE));
    if (choice & 2) channel.DisplayName(L"");
    iol::Packet_t reply(113);
    channel.GetPacket(reply);
    for (;;) link.GetFrameWithTimeout(100);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    fuzz::Input input(data, size);
    support::ScriptedDevice device;
    std::uint8_t const choice = input.byte();
    Script(device, input).write();
    try {
        useDevice(device, choice);
    } catch (glo::Exception_t const&) {
    } catch (int) {
    }
    if (!device.usb.isIdle()) {
        std::fputs("The session has left something behind.\n", stderr);
        abort();
    }
    return 0;
}
