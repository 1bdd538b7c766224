// The peer of trovik-reset: a thread a device, each over a libusb context of its own, that makes the transfers of a
// recorded reset, and one udev monitor that tells the threads of the nodes at which their devices come back.
//   bare_many RECORDING    every attached device; a line a packet, "> 14.." to the device, "< 14.." from it
#include "bench/usb/BareHost.hpp"
#include "simulator/engine/Wire.hpp"

#include <condition_variable>
#include <deque>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using bench::Bytes;
using bench::Fail;
using bench::Message;
using Messages = std::vector<Message>;

/// What is done from one open of the device to the next.
std::vector<Messages> ReadSessions(const char* path) {
    const Bytes start = simulator::encodePacket({simulator::kUsbLayer, simulator::kStartSession, {}});
    std::vector<Messages> sessions;
    std::ifstream file(path);
    for (std::string direction, digits; file >> direction && std::getline(file, digits);) {
        Message message{direction == ">", {}};
        for (std::size_t i = 1; i + 1 < digits.size(); i += 2)
            message.bytes.push_back(static_cast<unsigned char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
        if (message.toDevice && message.bytes == start) sessions.emplace_back();
        if (sessions.empty()) Fail("the recording does not begin with a session");
        sessions.back().push_back(std::move(message));
    }
    return sessions;
}

/// The nodes of one port, as its device comes and comes back.
class Nodes {
  public:
    void Put(std::string node) {
        {
            const std::lock_guard lock(mMutex);
            mNodes.push_back(std::move(node));
        }
        mArrived.notify_one();
    }
    std::string Take() {
        std::unique_lock lock(mMutex);
        mArrived.wait(lock, [this] { return !mNodes.empty(); });
        std::string node = std::move(mNodes.front());
        mNodes.pop_front();
        return node;
    }

  private:
    std::mutex mMutex;
    std::condition_variable mArrived;
    std::deque<std::string> mNodes;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    const auto sessions = ReadSessions(argv[1]);
    bench::BareDiscovery discovery;  // before the look at what is there
    std::map<std::string, Nodes> ports;
    for (auto& [path, node] : discovery.AllPresent()) ports[path].Put(std::move(node));
    const int over = ::eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE);
    std::vector<std::thread> threads;
    for (auto& known : ports) {
        threads.emplace_back([&, nodes = &known.second] {
            for (const Messages& session : sessions)
                bench::BareDevice(nodes->Take()).Play(session.data(), session.data() + session.size());
            ::eventfd_write(over, 1);
        });
    }
    for (std::size_t left = threads.size(); left > 0;) {
        pollfd waited[] = {{discovery.Descriptor(), POLLIN, 0}, {over, POLLIN, 0}};
        ::poll(waited, 2, -1);
        if (waited[0].revents) {
            if (auto [path, node] = discovery.Received(); !node.empty()) ports[path].Put(std::move(node));
        }
        eventfd_t count = 0;
        if (waited[1].revents && ::eventfd_read(over, &count) == 0) --left;
    }
    for (auto& thread : threads) thread.join();
    ::close(over);
}
