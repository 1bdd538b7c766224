// Real libusb and libudev on emulated devices (umockdev), our library beside bare programs on them:
//  - a whole reset on a device that answers at once, beside a program that makes the same libusb transfers; the time
//    that the device takes to leave and to come back is not counted;
//  - the identification of a device that answers at once, on a link that is open, beside the same libusb transfers;
//  - the same with the link opened before and closed after;
//  - one frame there and one back, beside libusb's synchronous calls.
// The two take turns, round by round, and the ratio is taken pair by pair. Times are the emulation's: a real bus has
// others. What the kernel was asked for is counted as well; that is exact.
//   usb_bench [RESETS] [ROUND TRIPS] [IDENTIFICATIONS]
#include "IOA/IOA_Channel.hpp"
#include "IOL/IOL_Frame.hpp"
#include "IOU/IOU_UsbLink.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "app/TrovikMode/USBTrovikModeFinderUtils.hpp"
#include "app/TrovikMode/UsbTrovikModeIoLink.hpp"
#include "bench/Pairs.hpp"
#include "bench/usb/BareHost.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/usb/UdevRegistry.hpp"
#include "simulator/umock/UmockUsb.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using bench::Fail;
using bench::Message;
using simulator::Bytes;
using simulator::RecordEntry;

double MicrosecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

class Bench {
  public:
    Bench() {
        mUsb.addDevice(simulator::Profile::instant());
        mUsb.plug();
        if (!USBTrovikModeFinderUtils::observeTMDevicesForType(platform::kIOServiceMatched, &Bench::Attached, this)) {
            Fail("attach notifications can't be had");
        }
    }

    void Resets(int rounds) {
        const auto messages = Record();
        bench::Pairs times;
        long oursMost = 0, bareLeast = 1 << 30, oursOther = 0, bareOther = 0;
        for (int i = 0; i < rounds; ++i) {
            const auto start = mUsb.requests();
            const double ours = Prepared([&] { OurReset(); });
            const auto between = mUsb.requests();
            times.Add(ours, Prepared([&] { BareReset(messages); }));
            const auto end = mUsb.requests();
            oursMost = std::max(oursMost, between.submitted - start.submitted);
            bareLeast = std::min(bareLeast, end.submitted - between.submitted);
            oursOther += between.other - start.other;
            bareOther += end.other - between.other;
        }
        times.Tell("whole reset under umockdev", "bare libusb program", "us", 0, " (goal 1.10)");
        std::printf("  transfers: at most %ld, bare program at least %ld; other requests %.1f and %.1f\n", oursMost,
                    bareLeast, double(oursOther) / rounds, double(bareOther) / rounds);
        if (oursMost > bareLeast) Fail("the library makes transfers that the bare program does without");
    }

    void Identifications(int rounds) {
        Identification();  // what only the first one makes
        const auto messages = Recorded();
        const Message* const first = messages.data();
        const Message* const last = first + messages.size();
        const Message* const identification = std::find_if(first, last, [](const Message& one) {
            return one.bytes == simulator::encodePacket({simulator::kApplicationLayer, simulator::kProductRequest, {}});
        });
        if (identification == last) Fail("no identification was recorded");
        bench::Pairs identifications, whole;
        for (int i = 0; i < rounds; ++i) {
            const auto start = mUsb.requests();
            const Times ours = Identification();
            const auto between = mUsb.requests();
            const Times bare = BareIdentification(first, identification, last);
            const auto end = mUsb.requests();
            identifications.Add(ours.identification, bare.identification);
            whole.Add(ours.whole, bare.whole);
            if (between.submitted - start.submitted > end.submitted - between.submitted)
                Fail("the library makes transfers that the bare program does without");
        }
        identifications.Tell("identification under umockdev", "bare libusb program", "us", 0, " (goal 1.05)");
        whole.Tell("opening, identification and closing under umockdev", "bare libusb program", "us", 0, "");
    }

    void RoundTrips(int rounds) {
        constexpr int kBlock = 50;
        const iol::Frame_t question = Question();
        bench::Pairs pairs;
        for (int done = 0; done < rounds; done += kBlock) {
            std::vector<double> block[2];
            {
                thr::CancelRequestedFunctor_t cancel;
                iou::UsbLink_t link(cancel, mUsb.registryPath(), iou::UsbLink_t::PacketCheckingModeDefault, 3000);
                for (int i = 0; i < kBlock; ++i) {
                    const auto start = Clock::now();
                    link.SendFrameWithTimeout(question, 3000);
                    if (link.GetFrameWithTimeout(3000).Id() != simulator::kUnitId) Fail("a wrong answer");
                    block[0].push_back(MicrosecondsSince(start));
                }
            }
            {
                bench::BareDevice device(mDiscovery.Present());
                device.WriteSync(simulator::encodePacket({simulator::kUsbLayer, simulator::kStartSession, {}}));
                if (device.ReadSync() != 16) Fail("no session");
                const Bytes packet = simulator::encodePacket(
                    {simulator::kApplicationLayer, simulator::kCommand, {simulator::kGetUnitId, 0}});
                for (int i = 0; i < kBlock; ++i) {
                    const auto start = Clock::now();
                    device.WriteSync(packet);
                    if (device.ReadSync() != 16) Fail("a wrong answer");
                    block[1].push_back(MicrosecondsSince(start));
                }
            }
            pairs.Add(bench::Median(block[0]), bench::Median(block[1]));
        }
        pairs.Tell("frame round trip under umockdev", "synchronous libusb", "us", 0, " (goal 1.15)");
    }

  private:
    /// In microseconds.
    struct Times {
        double identification, whole;
    };

    void BeginIdentification() {
        if (!mUsb.waitUntilClosed()) Fail("the device was not closed");
        mUsb.withDevice(0, [](simulator::Device& device, simulator::Time) { device.record().clear(); });
    }

    Times Identification() {
        BeginIdentification();
        Times times{};
        const auto start = Clock::now();
        {
            thr::CancelRequestedFunctor_t cancel;
            iou::UsbLink_t link(cancel, mUsb.registryPath());
            const auto opened = Clock::now();
            const ioa::Channel_t channel(link);
            times.identification = MicrosecondsSince(opened);
            if (channel.Protocols().empty()) Fail("no protocols");
        }
        times.whole = MicrosecondsSince(start);
        return times;
    }

    Times BareIdentification(const Message* first, const Message* identification, const Message* last) {
        BeginIdentification();
        Times times{};
        const auto start = Clock::now();
        {
            bench::BareDevice device(mDiscovery.Present());
            device.Play(first, identification);
            const auto opened = Clock::now();
            device.Play(identification, last);
            times.identification = MicrosecondsSince(opened);
        }
        times.whole = MicrosecondsSince(start);
        return times;
    }

    struct Command {
        std::uint16_t number;
        Bytes data;
        bool awaitResponse;
    };

    static iol::Frame_t Question() {
        const unsigned char number[] = {simulator::kGetUnitId, 0};
        return iol::Frame_t(simulator::kCommand, number, sizeof number);
    }

    /// Times one reset of a device that is in use, running, and has let go of whoever had it open.
    double Prepared(const std::function<void()>& reset) {
        if (!mUsb.waitUntilClosed()) Fail("the device was not closed");
        mUsb.withDevice(0, [](simulator::Device& device, simulator::Time) {
            device.store() = simulator::SettingsStore::wellUsed();
            device.record().clear();
        });
        mDiscovery.SkipPending();
        const auto start = Clock::now();
        reset();
        const auto end = Clock::now();
        // Without the device's own time off the bus.
        const Clock::duration away = Clock::time_point(mUsb.attachBegan()) - mRebooted;
        const double time = std::chrono::duration<double, std::micro>(end - start - away).count();
        // The monitor of the side that did not work has to be read as well.
        Drain();
        mUsb.withDevice(0, [](simulator::Device& device, simulator::Time) {
            if (!device.store().empty() || !device.record().refused().empty()) Fail("the reset was not carried out");
        });
        return time;
    }

    void Drain() {
        const auto loop = platform::CFRunLoopGetCurrent();
        while (loop->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, 0, true) ==
               platform::CFRunLoopRunResult::HandledSource) {
        }
    }

    void OurReset() {
        mAttached = false;
        const auto path = USBTrovikModeFinderUtils::connectedPaths().value().front().ioPath();
        Send(path, {{10, {0xAE, 0x00}, false}});
        mRebooted = Clock::now();
        const auto loop = platform::CFRunLoopGetCurrent();
        while (!mAttached) loop->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, 5, true);
        Send(path, {{113, {}, true}, {10, {0x27, 0x00}, false}, {1500, {}, false}});
    }

    static void Send(const std::string& path, const std::vector<Command>& commands) {
        const auto link = UsbTrovikModeIoLink::initWithPath(path);
        for (const Command& command : commands) {
            Error error;
            if (!link || !link->sendIopCommand(command.number, command.data, command.awaitResponse, &error)) {
                Fail(error.description());
            }
        }
    }

    static void Attached(void* bench, platform::IOIterator& iterator) {
        while (iterator.IOIteratorNext()) static_cast<Bench*>(bench)->mAttached = true;
    }

    void BareReset(const std::vector<Message>& messages) {
        const Bytes start = simulator::encodePacket({simulator::kUsbLayer, simulator::kStartSession, {}});
        const auto second =
            std::find_if(messages.begin() + 1, messages.end(), [&](const Message& one) { return one.bytes == start; });
        const Message* const middle = messages.data() + (second - messages.begin());
        bench::BareDevice(mDiscovery.Present()).Play(messages.data(), middle);
        mRebooted = Clock::now();
        bench::BareDevice(mDiscovery.NextAttach()).Play(middle, messages.data() + messages.size());
    }

    /// The packets of one reset by the library, as the device saw them.
    std::vector<Message> Record() {
        Prepared([&] { OurReset(); });
        return Recorded();
    }

    /// The packets that the device has seen since its record was last cleared.
    std::vector<Message> Recorded() {
        std::vector<Message> messages;
        mUsb.withDevice(0, [&](simulator::Device& device, simulator::Time) {
            for (const auto& entry : device.record().entries()) {
                if (entry.kind == RecordEntry::Kind::Received) messages.push_back({true, entry.bytes});
                if (entry.kind == RecordEntry::Kind::Sent) messages.push_back({false, entry.bytes});
            }
        });
        return messages;
    }

    simulator::UmockUsb mUsb;  // first: before any thread and any look at the devices
    platform::AsioRunLoops mLoops;
    platform::UdevRegistry mRegistry{mLoops};
    const platform::PlatformScope mScope{{.runLoops = &mLoops, .masterPort = &mRegistry}};
    bench::BareDiscovery mDiscovery;
    bool mAttached = false;
    Clock::time_point mRebooted;  ///< when the first half of the reset under way was over
};

}  // namespace

int main(int argc, char** argv) {
    Bench bench;
    const int resets = argc > 1 ? std::atoi(argv[1]) : 60, roundTrips = argc > 2 ? std::atoi(argv[2]) : 2000,
              identifications = argc > 3 ? std::atoi(argv[3]) : 300;
    if (resets > 0) bench.Resets(resets);
    if (identifications > 0) bench.Identifications(identifications);
    if (roundTrips > 0) bench.RoundTrips(roundTrips);
}
