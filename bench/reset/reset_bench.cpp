// A whole reset on a device that answers at once, in process, beside a bare pair of threads that pass the same packets
// to and fro by a mailbox each. The two take turns, round by round; the ratio is taken pair by pair.
//   reset_bench [ROUNDS]
#include "app/TrovikMode/USBTrovikModeFinderUtils.hpp"
#include "app/TrovikMode/UsbTrovikModeIoLink.hpp"
#include "bench/Pairs.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "simulator/bus/InProcessBus.hpp"
#include "simulator/engine/RealTimeDrive.hpp"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using simulator::Bytes;
using simulator::RecordEntry;

double microsecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "reset_bench: %s\n", what);
    std::exit(1);
}

struct Message {
    bool toDevice = false;
    Bytes bytes;
};

class Mailbox {
  public:
    void put(const Bytes& bytes) {
        {
            const std::lock_guard lock(mMutex);
            mMessages.push_back(bytes);
        }
        mArrived.notify_one();
    }

    Bytes take() {
        std::unique_lock lock(mMutex);
        mArrived.wait(lock, [this] { return !mMessages.empty(); });
        Bytes bytes = std::move(mMessages.front());
        mMessages.pop_front();
        return bytes;
    }

  private:
    std::mutex mMutex;
    std::condition_variable mArrived;
    std::deque<Bytes> mMessages;
};

/// The peer: a host thread and a device thread that do nothing but hand each other the packets of one reset.
double barePair(const std::vector<Message>& messages) {
    Mailbox toDevice, toHost;
    const auto side = [&](bool isDevice) {
        Mailbox& mine = isDevice ? toDevice : toHost;
        Mailbox& other = isDevice ? toHost : toDevice;
        for (const Message& message : messages) {
            if (message.toDevice == isDevice) {
                if (mine.take().size() != message.bytes.size()) fail("a packet got lost between the bare threads");
            } else {
                other.put(message.bytes);
            }
        }
    };
    std::thread device(side, true);
    const auto start = Clock::now();
    side(false);
    device.join();
    return microsecondsSince(start);
}

class Host {
  public:
    Host() : mBus(mDrive), mPort(mBus.addDevice(simulator::Profile::instant())) {
        mDrive.start(mBus);
        mBus.plug(mPort);
        if (!USBTrovikModeFinderUtils::observeTMDevicesForType(platform::kIOServiceMatched, &Host::attached, this))
            fail("attach notifications can't be had");
    }

    ~Host() {
        mDrive.requestStop();
        mDrive.join();
    }

    double reset() {
        mBus.withDevice(mPort, [](simulator::Device& device, simulator::Time) {
            device.store() = simulator::SettingsStore::wellUsed();
            device.record().clear();
        });
        const auto start = Clock::now();
        mAttached = false;
        const auto path = USBTrovikModeFinderUtils::connectedPaths().value().front().ioPath();
        send(path, {{10, {0xAE, 0x00}, false}});
        while (!mAttached)
            platform::CFRunLoopGetCurrent()->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, 1, true);
        send(path, {{113, {}, true}, {10, {0x27, 0x00}, false}, {1500, {}, false}});
        const double time = microsecondsSince(start);
        mBus.withDevice(mPort, [](simulator::Device& device, simulator::Time) {
            if (!device.store().empty() || !device.record().refused().empty()) fail("the reset was not carried out");
        });
        return time;
    }

    std::vector<Message> packets() {
        std::vector<Message> messages;
        mBus.withDevice(mPort, [&](simulator::Device& device, simulator::Time) {
            for (const auto& entry : device.record().entries()) {
                if (entry.kind == RecordEntry::Kind::Received) messages.push_back({true, entry.bytes});
                if (entry.kind == RecordEntry::Kind::Sent) messages.push_back({false, entry.bytes});
            }
        });
        return messages;
    }

  private:
    struct Command {
        std::uint16_t number;
        Bytes data;
        bool awaitResponse;
    };

    static void send(const std::string& path, const std::vector<Command>& commands) {
        const auto link = UsbTrovikModeIoLink::initWithPath(path);
        for (const Command& command : commands) {
            Error error;
            if (!link || !link->sendIopCommand(command.number, command.data, command.awaitResponse, &error))
                fail(error.description().c_str());
        }
    }

    static void attached(void* host, platform::IOIterator& iterator) {
        while (iterator.IOIteratorNext()) static_cast<Host*>(host)->mAttached = true;
    }

    simulator::RealTimeDrive mDrive;
    simulator::InProcessBus mBus;
    std::size_t mPort;
    platform::AsioRunLoops mLoops;
    const platform::PlatformScope mScope{{.runLoops = &mLoops, .masterPort = &mBus}};
    bool mAttached = false;
};

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 300;
    Host host;
    host.reset();
    const std::vector<Message> messages = host.packets();
    barePair(messages);
    bench::Pairs pairs;
    for (int i = 0; i < rounds; ++i) {
        const double ours = host.reset();
        pairs.Add(ours, barePair(messages));
    }
    pairs.Tell("whole reset in process, " + std::to_string(messages.size()) + " packets", "bare pair of threads", "us",
               0, " (goal 1.5)");
}
