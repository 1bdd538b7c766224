#include "bench/usb/BareHost.hpp"

#include "simulator/engine/Wire.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace bench {
namespace {

constexpr std::uint8_t kInterruptIn = 0x81, kBulkIn = 0x82, kBulkOut = 0x03;
constexpr std::size_t kPacketSize = 64;
constexpr unsigned kPatience = 5000;  // ms

void Check(int result, const char* what) {
    if (result < 0) Fail(std::string(what) + ": " + libusb_error_name(result));
}

}  // namespace

void Fail(const std::string& what) {
    std::fprintf(stderr, "usb_bench: %s\n", what.c_str());
    std::exit(1);
}

struct BareDevice::Read {
    BareDevice* device;
    std::uint8_t endpoint;
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    std::array<unsigned char, 4096> buffer{};
    bool waiting = false;

    Read(BareDevice* owner, std::uint8_t address) : device(owner), endpoint(address) {}
    Read(const Read&) = delete;
    Read& operator=(const Read&) = delete;
    ~Read() { libusb_free_transfer(transfer); }
    void Submit() {
        libusb_fill_bulk_transfer(
            transfer, device->mHandle, endpoint, buffer.data(), static_cast<int>(buffer.size()),
            [](libusb_transfer* ended) {
                auto& self = *static_cast<Read*>(ended->user_data);
                self.waiting = false;
                if (ended->status == LIBUSB_TRANSFER_COMPLETED) self.device->Received(self);
            },
            this, 0);
        if (endpoint == kInterruptIn) transfer->type = LIBUSB_TRANSFER_TYPE_INTERRUPT;
        Check(libusb_submit_transfer(transfer), "read");
        waiting = true;
    }
};

BareDevice::BareDevice(const std::string& node) : mNode(::open(node.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY)) {
    if (mNode < 0) Fail("can't open " + node);
    libusb_set_option(nullptr, LIBUSB_OPTION_NO_DEVICE_DISCOVERY);
    Check(libusb_init(&mContext), "init");
    Check(libusb_wrap_sys_device(mContext, mNode, &mHandle), "wrap");
    libusb_set_auto_detach_kernel_driver(mHandle, 1);
    Check(libusb_set_configuration(mHandle, 1), "configuration");
    Check(libusb_claim_interface(mHandle, 0), "claim");
}

BareDevice::~BareDevice() {
    mPlaying = false;
    for (const auto& read : mReads) {
        if (read->waiting) libusb_cancel_transfer(read->transfer);
    }
    HandleUntil(
        [&] { return std::none_of(mReads.begin(), mReads.end(), [](const auto& read) { return read->waiting; }); });
    mReads.clear();  // before the context they belong to
    libusb_release_interface(mHandle, 0);
    libusb_close(mHandle);
    libusb_exit(mContext);
    ::close(mNode);
}

void BareDevice::HandleUntil(const std::function<bool()>& condition) {
    while (!condition()) Check(libusb_handle_events(mContext), "events");
}

void BareDevice::Start(std::uint8_t endpoint) {
    auto read = std::find_if(mReads.begin(), mReads.end(),
                             [&](const auto& one) { return one->endpoint == endpoint && !one->waiting; });
    if (read == mReads.end()) read = mReads.insert(mReads.end(), std::make_unique<Read>(this, endpoint));
    (*read)->Submit();
}

void BareDevice::Received(Read& read) {
    if (!mPlaying) return;
    if (read.transfer->actual_length > 0) {
        ++mPackets;
        const bool announces = read.endpoint == kInterruptIn && read.buffer[0] == simulator::kUsbLayer &&
                               read.buffer[4] == simulator::kDataAvailable;
        // Also while one waits: it may be there for the empty transfer that ends the run before.
        if (announces) Start(kBulkIn);
    } else if (read.endpoint == kBulkIn) {
        return;  // the end of a run
    }
    read.Submit();
}

void BareDevice::Write(Bytes bytes) {
    for (bool more = true; more;) {
        bool done = false;
        const std::unique_ptr<libusb_transfer, decltype(&libusb_free_transfer)> transfer(libusb_alloc_transfer(0),
                                                                                         &libusb_free_transfer);
        libusb_fill_bulk_transfer(
            transfer.get(), mHandle, kBulkOut, bytes.data(), static_cast<int>(bytes.size()),
            [](libusb_transfer* ended) { *static_cast<bool*>(ended->user_data) = true; }, &done, 0);
        Check(libusb_submit_transfer(transfer.get()), "write");
        HandleUntil([&] { return done; });
        if (transfer->status != LIBUSB_TRANSFER_COMPLETED) Fail("a write failed");
        more = !bytes.empty() && bytes.size() % kPacketSize == 0;
        bytes.clear();
    }
}

void BareDevice::Play(const Message* first, const Message* last) {
    if (!std::exchange(mPlaying, true)) Start(kInterruptIn);
    std::size_t expected = mPackets;
    for (const Message* message = first; message != last; ++message) {
        if (!message->toDevice) {
            if (!message->bytes.empty()) ++expected;
            continue;
        }
        HandleUntil([&] { return mPackets >= expected; });
        Write(message->bytes);
    }
    HandleUntil([&] { return mPackets >= expected; });
}

void BareDevice::WriteSync(const Bytes& bytes) {
    Bytes copy = bytes;
    int done = 0;
    Check(libusb_bulk_transfer(mHandle, kBulkOut, copy.data(), static_cast<int>(copy.size()), &done, kPatience),
          "write");
}

std::size_t BareDevice::ReadSync() {
    int done = 0;
    std::array<unsigned char, 4096> buffer;
    Check(libusb_interrupt_transfer(mHandle, kInterruptIn, buffer.data(), static_cast<int>(buffer.size()), &done,
                                    kPatience),
          "read");
    return static_cast<std::size_t>(done);
}

BareDiscovery::BareDiscovery() : mUdev(udev_new()), mMonitor(udev_monitor_new_from_netlink(mUdev, "udev")) {
    udev_monitor_filter_add_match_subsystem_devtype(mMonitor, "usb", "usb_device");
    if (udev_monitor_enable_receiving(mMonitor) < 0) Fail("no monitor");
}

BareDiscovery::~BareDiscovery() {
    udev_monitor_unref(mMonitor);
    udev_unref(mUdev);
}

std::string BareDiscovery::Present() {
    const auto nodes = AllPresent();
    if (nodes.empty()) Fail("no device");
    return nodes.begin()->second;
}

std::map<std::string, std::string> BareDiscovery::AllPresent() {
    std::map<std::string, std::string> nodes;
    udev_enumerate* const enumerate = udev_enumerate_new(mUdev);
    udev_enumerate_add_match_subsystem(enumerate, "usb");
    udev_enumerate_add_match_sysattr(enumerate, "idProduct", "0003");
    udev_enumerate_add_match_sysattr(enumerate, "bcdDevice", "0001");
    udev_enumerate_scan_devices(enumerate);
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumerate)) {
        udev_device* const device = udev_device_new_from_syspath(mUdev, udev_list_entry_get_name(entry));
        if (device && udev_device_get_devnode(device))
            nodes[udev_device_get_syspath(device)] = udev_device_get_devnode(device);
        udev_device_unref(device);
    }
    udev_enumerate_unref(enumerate);
    return nodes;
}

std::string BareDiscovery::NextAttach() {
    for (;;) {
        pollfd waited{udev_monitor_get_fd(mMonitor), POLLIN, 0};
        if (::poll(&waited, 1, static_cast<int>(kPatience)) <= 0) Fail("the device did not come back");
        if (auto [path, node] = Received(); !node.empty()) return node;
    }
}

std::pair<std::string, std::string> BareDiscovery::Received() {
    udev_device* const device = udev_monitor_receive_device(mMonitor);
    if (!device) return {};
    std::pair<std::string, std::string> found;
    if (udev_device_get_action(device) == std::string_view("add"))
        found = {udev_device_get_syspath(device), udev_device_get_devnode(device)};
    udev_device_unref(device);
    return found;
}

void BareDiscovery::SkipPending() {
    while (udev_device* const device = udev_monitor_receive_device(mMonitor)) udev_device_unref(device);
}

}  // namespace bench
