#include "simulator/umock/UmockUsb.hpp"

#include "simulator/umock/UmockPort.hpp"

#include <umockdev.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <optional>
#include <utility>

namespace simulator {
namespace {

constexpr int kFirstDeviceNumber = 2;
constexpr int kLastDeviceNumber = 127;
constexpr std::chrono::seconds kPatience{10};

}  // namespace

// ---- life

UmockUsb::UmockUsb(Node node) : mNode(node), mTestbed(umockdev_testbed_new()), mHandler(umockdev_ioctl_base_new()) {
    if (!umockdev_in_mock_environment()) fail("umockdev's preload library is not active");
    ::signal(SIGHUP, SIG_IGN);  // a terminal that hangs up must not end the test
    NodeBacking::forgiveSeeks(node == Node::Terminal);
    mRoot = std::unique_ptr<gchar, platform::Release<g_free>>(umockdev_testbed_get_root_dir(mTestbed.get())).get();
    g_signal_connect(mHandler.get(), "handle-ioctl", G_CALLBACK(&UmockUsb::handleIoctl), this);
    g_signal_connect(mHandler.get(), "handle-read", G_CALLBACK(&UmockUsb::handleRead), this);
    g_signal_connect(mHandler.get(), "client-connected", G_CALLBACK(&UmockUsb::clientConnected), this);
    mDrive.start(*this);
}

UmockUsb::~UmockUsb() {
    for (std::size_t i = 0; i < mPorts.size(); ++i) unplug(i);
    mDrive.requestStop();
    mDrive.join();
    // umockdev's thread, which nobody joins, must have finished with us.
    if (!waitUntilClosed()) fail("a program still has a device open");
    for (const auto& node : mServedNodes) umockdev_testbed_detach_ioctl(mTestbed.get(), node.c_str(), nullptr);
    g_signal_handlers_disconnect_by_data(mHandler.get(), this);
    NodeBacking::forgiveSeeks(false);
}

void UmockUsb::Unref::operator()(void* object) const noexcept {
    g_object_unref(object);
}

bool UmockUsb::waitUntilClosed() {
    std::unique_lock lock(mMutex);
    return mChanged.wait_for(lock, kPatience, [&] { return mFiles.empty(); });
}

std::size_t UmockUsb::addDevice(Profile profile, SettingsStore store) {
    return addDevice(std::make_unique<Device>(std::move(profile), std::move(store)));
}

std::size_t UmockUsb::addDevice(std::unique_ptr<BusDevice> device) {
    const std::lock_guard lock(mMutex);
    auto path = format("/sys/devices/pci0000:00/usb1/1-%zu", mPorts.size() + 1);
    mPorts.push_back(std::make_unique<Port>(std::move(device), std::move(path)));
    return mPorts.size() - 1;
}

void UmockUsb::withBusDevice(std::size_t port, const std::function<void(BusDevice&, Time)>& action) {
    {
        const std::lock_guard lock(mMutex);
        action(*mPorts.at(port)->device, now());
        pump(*mPorts[port]);
    }
    mDrive.dueChanged();
}

void UmockUsb::withDevice(std::size_t port, const std::function<void(Device&, Time)>& action) {
    withBusDevice(port, [&](BusDevice& device, Time now) { action(dynamic_cast<Device&>(device), now); });
}

void UmockUsb::plug(const std::vector<std::size_t>& ports) {
    for (const std::size_t port : ports)
        withBusDevice(port, [](BusDevice& device, Time now) { device.setCable(true, now); });
    std::unique_lock lock(mMutex);
    const bool all = mChanged.wait_for(lock, kPatience, [&] {
        return std::ranges::all_of(
            ports, [&](std::size_t port) { return mPorts[port]->announced || !mPorts[port]->device->wantsBus(); });
    });
    if (!all) fail("a device was not attached");
}

void UmockUsb::unplug(std::size_t port) {
    withBusDevice(port, [](BusDevice& device, Time now) { device.setCable(false, now); });
    std::unique_lock lock(mMutex);
    if (!mChanged.wait_for(lock, kPatience, [&] { return !mPorts[port]->announced; })) {
        fail("a device was not detached");
    }
}

void UmockUsb::announceAgain(std::size_t port) {
    umockdev_testbed_uevent(mTestbed.get(), mPorts.at(port)->path.c_str(), "add");
}

bool UmockUsb::isAttached(std::size_t port) const {
    const std::lock_guard lock(mMutex);
    return mPorts.at(port)->announced;
}

std::string UmockUsb::registryPath(std::size_t port) const {
    return mPorts.at(port)->path;
}

Time UmockUsb::attachBegan(std::size_t port) const {
    const std::lock_guard lock(mMutex);
    return mPorts.at(port)->attachBegan;
}

void UmockUsb::setDriver(std::string name, unsigned interface, std::size_t port) {
    const std::lock_guard lock(mMutex);
    mPorts.at(port)->drivers[interface].attached = std::move(name);
}

std::string UmockUsb::driver(unsigned interface, std::size_t port) const {
    const std::lock_guard lock(mMutex);
    return mPorts.at(port)->drivers[interface].attached;
}

void UmockUsb::setDescriptors(Bytes descriptors, std::size_t port) {
    const std::lock_guard lock(mMutex);
    mPorts.at(port)->descriptors = std::move(descriptors);
}

UmockUsb::Requests UmockUsb::requests() const {
    const std::lock_guard lock(mMutex);
    return mRequests;
}

std::size_t UmockUsb::pendingTransfers() const {
    const std::lock_guard lock(mMutex);
    std::size_t count = 0;
    for (const auto& port : mPorts) {
        count += port->completed.size();
        for (const auto& [endpoint, urbs] : port->pending) count += urbs.size();
    }
    return count;
}

std::size_t UmockUsb::openFiles() const {
    const std::lock_guard lock(mMutex);
    return mFiles.size();
}

// ---- the bus, on the drive's thread

std::optional<Time> UmockUsb::nextDue() {
    const std::lock_guard lock(mMutex);
    std::optional<Time> due;
    for (const auto& port : mPorts) {
        const auto own = port->device->wantsBus() != port->announced ? Time(0) : port->device->nextDue();
        if (own && (!due || *own < *due)) due = own;
    }
    return due;
}

void UmockUsb::run(Time now) {
    std::unique_lock lock(mMutex);
    for (std::size_t i = 0; i < mPorts.size(); ++i) {
        Port& port = *mPorts[i];
        port.device->advance(now);
        pump(port);
        if (port.device->wantsBus() == port.announced) continue;
        // Without the lock: these write sysfs and send uevents. Only this thread does.
        const bool attaching = !port.announced;
        lock.unlock();
        attaching ? attach(i, now) : detach(i, now);
        lock.lock();
        port.announced = attaching;
        mChanged.notify_all();
    }
}

void UmockUsb::attach(std::size_t number, Time now) {
    Port& port = *mPorts[number];
    std::string description;
    {
        const std::lock_guard lock(mMutex);
        do {
            mDeviceNumber = mDeviceNumber == kLastDeviceNumber ? kFirstDeviceNumber : mDeviceNumber + 1;
            port.node = format("/dev/bus/usb/001/%03d", mDeviceNumber);
        } while (std::ranges::any_of(mPorts,
                                     [&](const auto& other) { return other->attached && other->node == port.node; }));
        port.backing = std::make_unique<NodeBacking>(mNode);
        const std::filesystem::path file = mRoot + port.node;
        std::filesystem::create_directories(file.parent_path());  // goes with the last device in it
        std::filesystem::create_symlink(port.backing->target(), file);
        port.attached = true;
        ++port.generation;
        port.attachBegan = now;
        port.device->attached(now);

        const Profile& profile = port.device->profile();
        const auto* out = profile.pipe(Pipe::BulkOut);
        std::string descriptors;
        for (const unsigned char byte : port.device->descriptors()) descriptors += format("%02X", byte);
        // No "N:" line: that would put a regular file in the place of the node.
        description = "P: " + port.path.substr(std::strlen("/sys")) + "\n" +  //
                      "E: DEVNAME=" + port.node + "\nE: DEVTYPE=usb_device\nE: SUBSYSTEM=usb\nE: MAJOR=189\n" +
                      format("E: MINOR=%d\nE: BUSNUM=001\nE: DEVNUM=%03d\n", mDeviceNumber - 1, mDeviceNumber) +
                      format("E: PRODUCT=%x/%x/%x\n", profile.vendorId, profile.productId, profile.releaseNumber) +
                      format("A: busnum=1\\n\nA: devnum=%d\\n\nA: dev=189:%d\n", mDeviceNumber, mDeviceNumber - 1) +
                      format("A: speed=%d\\n\n", out && out->maxPacketSize > 64 ? 480 : 12) +
                      format("A: bConfigurationValue=%d\\n\nA: bNumConfigurations=1\\n\n", profile.configurationValue) +
                      format("A: idVendor=%04x\\n\nA: idProduct=%04x\\n\n", profile.vendorId, profile.productId) +
                      format("A: bcdDevice=%04x\\n\n", profile.releaseNumber) +
                      format("A: product=%s\\n\n", profile.productName.c_str()) + "H: descriptors=" + descriptors +
                      "\n";
    }
    if (mServedNodes.insert(port.node).second) {
        umockdev_testbed_attach_ioctl(mTestbed.get(), port.node.c_str(), mHandler.get(), nullptr);
    }
    if (!umockdev_testbed_add_from_string(mTestbed.get(), description.c_str(), nullptr)) fail("add_from_string");
}

void UmockUsb::detach(std::size_t number, Time now) {
    Port& port = *mPorts[number];
    {
        const std::lock_guard lock(mMutex);
        for (auto& [endpoint, urbs] : port.pending) {
            while (!urbs.empty()) {
                finish(port, std::move(urbs.front()), -ESHUTDOWN);
                urbs.pop_front();
            }
        }
        port.attached = false;
        port.backing->hangUp();
        port.device->detached(now);
    }
    umockdev_testbed_uevent(mTestbed.get(), port.path.c_str(), "remove");  // remove_device sends none
    umockdev_testbed_remove_device(mTestbed.get(), port.path.c_str());
    std::error_code gone;
    std::filesystem::remove(mRoot + port.node, gone);
}

}  // namespace simulator
