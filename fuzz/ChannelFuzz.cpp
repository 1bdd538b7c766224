// A device that keeps to the rules of the bus and of the session, and answers as it likes: the whole conversation of a
// channel, through the real session and link. An input of zeros is a device that answers everything as it should.

#include "FTX/FTX_Channel.hpp"
#include "fuzz/Harness.hpp"
#include "fuzz/Input.hpp"
#include "tests/support/UsbWorld.hpp"

#include <functional>
#include <memory>

namespace {

using simulator::Bytes;
using support::ScriptedUsb;

/// One operation of a channel and the right answer to it.
struct Operation {
    std::uint16_t answer;
    Bytes payload;
    double seconds;  ///< it may take
    std::function<void(ftx::Channel_t&)> run;
};

void askWhatItSupports(const ioa::Protocols_t& protocols) {
    using Query = bool (ioa::Protocols_t::*)() const;
    using P = ioa::Protocols_t;
    static constexpr Query cQueries[] = {
        &P::SupportsWaypointTransfer,
        &P::SupportsRouteTransfer,
        &P::SupportsTrackTransfer,
        &P::SupportsFlightTransfer,
        &P::SupportsAVDInfo,
        &P::SupportsImageTransfer,
        &P::SupportsSendActivityGoals,
        &P::SupportsWorkoutTransfer,
        &P::SupportsUserProfileTransfer,
        &P::SupportsFitnessCourseSend,
        &P::SupportsFitnessCourseTransfer,
        &P::SupportsFitnessHistoryTransfer,
        &P::SupportsProductInventory,
        &P::Supports405FitnessHistoryTransfer,
    };
    for (const Query query : cQueries) (protocols.*query)();
}

const std::vector<Operation>& operations() {
    // The first one is what the tool does.
    static const std::vector<Operation> all = {
        {113,
         {},
         9,
         [](auto& channel) {
             channel.SendIopCommand(113, {});
             iol::Packet_t reply(113);
             channel.GetPacket(reply);
         }},
        {38, {1, 2, 3, 4}, 9, [](auto& channel) { channel.GetUnitID(); }},
        {525, {'u', 0}, 9, [](auto& channel) { channel.GetUnitName(); }},
        {525, {'u', 0}, 9, [](auto& channel) { channel.DisplayName(L"x"); }},
        {14, {11, 22, 0xEA, 7, 5, 0, 1, 2}, 9, [](auto& channel) { channel.GetTimeData(); }},
        {1523, {60, 0, 0, 0}, 9, [](auto& channel) { channel.GetDeviceDisconnectTimeout(); }},
        {12, {7, 0}, 6, [](auto& channel) { channel.GetXferCmplt(7); }},
        {248, {'y', 0}, 5, [](auto& channel) { channel.ProductDataExt(); }},
        {981, {0, 1, 0, 0, 0, 0, 0, 0, 0}, 9, [](auto& channel) { channel.GetRgnSize(3); }},
        {51, Bytes(64, 3), 6,
         [](auto& channel) {
             const auto pvt = channel.GetPvt();
             if (pvt.fix < 2) return;
             pvt.Position();
             pvt.Alt();
             pvt.Time();
         }},
        {0, {}, 0, [](auto& channel) { askWhatItSupports(channel.Protocols()); }},
    };
    return all;
}

class Answers {
  public:
    Answers(support::ScriptedDevice& device, fuzz::Input& input) : mDevice(device), mInput(input) {}

    void answer(std::uint8_t layer, std::uint16_t id, Bytes payload) {
        auto& usb = mDevice.usb;
        const std::uint8_t choice = mInput.byte();
        if (choice < 0x80) return send(layer, id, payload);  // half of them properly, or few would get to the end
        mAreProper = false;
        if (choice & 1) payload = mInput.bytes(mInput.byte());
        if (choice & 2) send(mInput.byte() & 1 ? 0 : 20, mInput.number(), mInput.bytes(mInput.byte() % 32));
        if (choice & 4) return;
        if (choice & 8) usb.brings(ScriptedUsb::kInterruptIn, {}, {}, std::chrono::milliseconds(20) * mInput.byte());
        mIsOnBulk = (choice & 16) != 0;
        if (choice & 32 && !payload.empty()) payload[mInput.byte() % payload.size()] ^= mInput.byte();
        if (choice & 64) payload.resize(mInput.byte() % (payload.size() + 1));
        send(layer, id, payload);
    }

    bool areProper() const { return mAreProper; }

  private:
    void send(std::uint8_t layer, std::uint16_t id, const Bytes& payload) {
        auto& usb = mDevice.usb;
        if (mIsOnBulk) usb.brings(ScriptedUsb::kInterruptIn, mDevice.packet(0, 2));
        usb.brings(mIsOnBulk ? ScriptedUsb::kBulkIn : ScriptedUsb::kInterruptIn, mDevice.packet(layer, id, payload));
        if (mIsOnBulk) usb.brings(ScriptedUsb::kBulkIn, {});
    }

    support::ScriptedDevice& mDevice;
    fuzz::Input& mInput;
    bool mIsOnBulk = false;
    bool mAreProper = true;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::traceIntoNothing();
    fuzz::Input input(data, size);
    support::ScriptedDevice device;
    Answers answers(device, input);
    answers.answer(0, 6, {1, 2, 3, 4});
    answers.answer(0, 17, {12, 16, 0, 0});
    answers.answer(20, 255, {0xE8, 3, 0xE6, 0, 'x', 0});
    answers.answer(20, 253, {'A', 1, 0, 'A', 10, 0, 'A', 0x59, 2, 'A', 100, 0, 'D', 108, 0});
    answers.answer(20, 248, {'y', 0});
    std::vector<const Operation*> wanted;
    do {
        wanted.push_back(&operations()[input.byte() % operations().size()]);
        if (wanted.back()->answer) answers.answer(20, wanted.back()->answer, wanted.back()->payload);
    } while (!input.isAtEnd() && wanted.size() < 8);

    // Each send takes 3 s at most, and so does each wait for a frame; a packet's time is looked at between frames.
    constexpr std::size_t gcBytes = std::size_t{1} << 18;
    fuzz::Limits limits(device.clock);
    std::unique_ptr<iou::UsbLink_t> link;
    std::unique_ptr<ftx::Channel_t> channel;
    bool isDone = limits.hold(10, gcBytes, "Opening", [&] {
        link.reset(new iou::UsbLink_t(device.openLink()));
    }) && limits.hold(16, gcBytes, "Identification", [&] { channel = std::make_unique<ftx::Channel_t>(*link); });
    for (const Operation* const operation : wanted) {
        if (!channel) break;
        fuzz::require(!channel->Protocols().empty(), "A channel without protocols");
        isDone &= limits.hold(operation->seconds, gcBytes, "An operation", [&] { operation->run(*channel); });
    }
    fuzz::require(isDone || !answers.areProper(), "A device that does all that it should is not understood.");
    channel.reset();
    link.reset();
    fuzz::require(device.usb.isIdle(), "The session has left something behind.");
    return 0;
}
