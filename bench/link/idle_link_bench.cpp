// What a link takes while nothing happens on it, in heap, descriptors and threads, beside a bare libusb handle that has
// opened the same device and claimed its interface. Each side is a process of its own on an emulated bus (umockdev), so
// that nothing of the bus is counted, and opens eight devices one after the other: the first brings along what all
// share.
//   idle_link_bench
#include "IOU/IOU_UsbLink.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "bench/usb/BareHost.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/usb/UdevRegistry.hpp"
#include "simulator/umock/UmockUsb.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <malloc.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t kDevices = 8;

/// What the process has now.
struct Holding {
    double heap = 0;  ///< bytes that have been allocated and not freed
    long descriptors = 0;
    long threads = 0;

    static long entries(const char* folder) {
        return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
    }
    static Holding now() {
        const auto heap = ::mallinfo2();
        return {double(heap.uordblks + heap.hblkhd), entries("/proc/self/fd"), entries("/proc/self/task")};
    }
};

/// Opens one device after the other and says what the first took, and what each further one did.
template <typename Open>
void measure(const char* what, const std::vector<std::string>& paths, Open open) {
    std::vector<decltype(open(paths[0]))> held;
    held.reserve(paths.size());
    Holding::now();  // what the look itself takes is there from now on
    const Holding none = Holding::now();
    held.push_back(open(paths[0]));
    const Holding one = Holding::now();
    for (std::size_t i = 1; i < paths.size(); ++i) held.push_back(open(paths[i]));
    const Holding all = Holding::now();
    const double further = double(paths.size() - 1);
    std::printf("%-22s first: %6.1f KB of heap, %ld descriptors, %ld threads; each further: %6.1f KB, %.1f, %.1f\n",
                what, (one.heap - none.heap) / 1024, one.descriptors - none.descriptors, one.threads - none.threads,
                (all.heap - one.heap) / 1024 / further, double(all.descriptors - one.descriptors) / further,
                double(all.threads - one.threads) / further);
}

void measureLinks(const std::vector<std::string>& paths) {
    platform::AsioRunLoops loops;
    platform::UdevRegistry registry(loops);
    const platform::PlatformScope scope({.runLoops = &loops, .masterPort = &registry});
    thr::CancelRequestedFunctor_t cancel;
    measure("link", paths, [&](const std::string& path) { return std::make_unique<iou::UsbLink_t>(cancel, path); });
}

void measureHandles(const std::vector<std::string>& nodes) {
    measure("bare libusb handle", nodes,
            [](const std::string& node) { return std::make_unique<bench::BareDevice>(node); });
}

/// Runs this program once more as one of the two sides.
void run(const char* program, const char* side, const std::vector<std::string>& devices) {
    std::vector<char*> arguments{const_cast<char*>(program), const_cast<char*>(side)};
    for (const std::string& device : devices) arguments.push_back(const_cast<char*>(device.c_str()));
    arguments.push_back(nullptr);
    std::fflush(stdout);
    const pid_t child = ::fork();
    if (child == 0) {
        ::execv(program, arguments.data());
        ::_exit(127);
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child || status != 0) bench::Fail(std::string(side) + " has failed");
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> devices(argv + std::min(argc, 2), argv + argc);
    if (argc > 1 && std::string_view(argv[1]) == "links") return measureLinks(devices), 0;
    if (argc > 1 && std::string_view(argv[1]) == "handles") return measureHandles(devices), 0;

    simulator::UmockUsb usb;  // first: before any look at the devices
    std::vector<std::string> paths, nodes;
    for (std::size_t port = 0; port < kDevices; ++port) {
        auto profile = simulator::Profile::instant();
        profile.unitId = std::uint32_t(port + 1);
        usb.addDevice(profile);
        usb.plug(port);
        paths.push_back(usb.registryPath(port));
    }
    for (const auto& [path, node] : bench::BareDiscovery().AllPresent()) nodes.push_back(node);
    run("/proc/self/exe", "links", paths);
    run("/proc/self/exe", "handles", nodes);
}
