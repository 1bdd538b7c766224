#include "tests/support/UmockUsb.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <mqueue.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <umockdev.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <utility>

#include "platform/linux/FileDescriptor.hpp"

namespace {

// umockdev does not emulate lseek, and a terminal can't: libusb rewinds the node before it reads the descriptors from
// it, and umockdev's read starts at the beginning anyway.
std::atomic<bool> gForgivingSeek = false;

}  // namespace

extern "C" off_t lseek(int descriptor, off_t offset, int whence) noexcept {
    static const auto real = reinterpret_cast<off_t (*)(int, off_t, int)>(dlsym(RTLD_NEXT, "lseek"));
    const off_t result = real(descriptor, offset, whence);
    return result < 0 && errno == ESPIPE && gForgivingSeek ? 0 : result;
}

namespace support {

using platform::FileDescriptor;
using simulator::Bytes;
using simulator::Device;
using simulator::Pipe;
using simulator::Time;

namespace {

constexpr std::uint8_t kIn = 0x80;  // in an endpoint address
constexpr int kFirstDeviceNumber = 2;
constexpr int kLastDeviceNumber = 127;
constexpr std::chrono::seconds kPatience{10};

struct Unref {
    void operator()(UMockdevIoctlData* data) const { g_object_unref(data); }
};
using Data = std::unique_ptr<UMockdevIoctlData, Unref>;

Data Resolve(UMockdevIoctlData* data, std::size_t offset, std::size_t size) {
    return Data(umockdev_ioctl_data_resolve(data, offset, size, nullptr));
}

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "The emulated USB bus does not work: %s\n", what.c_str());
    std::abort();
}

void Check(bool right, const char* what) {
    if (!right) Fail(std::string(what) + ": " + std::strerror(errno));
}

std::string Text(const char* format, auto... values) {
    char text[512];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

Pipe PipeOf(const simulator::Profile& profile, std::uint8_t address) {
    for (const Pipe pipe : {Pipe::InterruptIn, Pipe::BulkIn, Pipe::BulkOut}) {
        if (profile.endpointAddress(pipe) == address) return pipe;
    }
    Fail("a transfer for an endpoint that the device does not have");
}

}  // namespace

/// What lies behind one attach's node. Ready means: writable.
class UmockUsb::Backing {
  public:
    explicit Backing(Node node) {
        if (node == Node::Queue) {
            mq_attr attributes{};
            attributes.mq_maxmsg = attributes.mq_msgsize = 1;
            static std::atomic<int> made = 0;
            const std::string name = Text("/trovik.%d.%d", getpid(), ++made);
            mQueue = FileDescriptor(
                mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NONBLOCK | O_CLOEXEC, 0600, &attributes));
            Check(bool(mQueue), "mq_open");
            mq_unlink(name.c_str());
            mTarget = Text("/proc/%d/fd/%d", getpid(), mQueue.get());
        } else {
            int master = -1, slave = -1;
            char name[64];
            termios raw{};
            cfmakeraw(&raw);
            Check(openpty(&master, &slave, name, &raw, nullptr) == 0, "openpty");
            mMaster = FileDescriptor(master);
            mSlave = FileDescriptor(slave);
            mTarget = name;
        }
        SetReady(false);
    }

    const std::string& Target() const { return mTarget; }

    void SetReady(bool ready) {
        if (ready == mReady) return;
        mReady = ready;
        char byte = 0;
        if (mQueue) {
            Check((ready ? mq_receive(mQueue.get(), &byte, 1, nullptr) : mq_send(mQueue.get(), &byte, 1, 0)) >= 0,
                  "message queue");
        } else if (mMaster) {
            Check(tcflow(mSlave.get(), ready ? TCOON : TCOOFF) == 0, "tcflow");
        }
    }
    void HangUp() { mMaster.reset(); }

  private:
    FileDescriptor mQueue, mMaster, mSlave;
    std::string mTarget;
    bool mReady = true;
};

/// One request block in the kernel's hands.
struct UmockUsb::Urb {
    std::shared_ptr<UMockdevIoctlData> block;   // the client's usbdevfs_urb
    std::shared_ptr<UMockdevIoctlData> buffer;  // null when it has no bytes
    void* client = nullptr;
    int done = 0;
    bool endPacketDue = false;  // of a write: the empty packet at its end is still to be sent

    usbdevfs_urb& raw() const { return *reinterpret_cast<usbdevfs_urb*>(block->data); }
};

struct UmockUsb::Port {
    Port(simulator::Profile profile, simulator::SettingsStore store, std::string where)
        : device(std::move(profile), std::move(store)), path(std::move(where)) {}

    Device device;
    const std::string path;  // within sysfs
    std::string node;        // of the present attach
    bool attached = false;   // the kernel has it
    bool announced = false;  // and has said so
    int generation = 0;
    Time attachBegan{};
    std::unique_ptr<Backing> backing;
    std::map<std::uint8_t, std::deque<Urb>> pending;  // by endpoint
    std::deque<Urb> completed;
    std::string driver;          // that holds the interface
    std::string detachedDriver;  // and would take it again
};

/// One open of a node.
struct UmockUsb::File {
    Port* port = nullptr;
    int generation = 0;
    bool gone() const { return !port->attached || port->generation != generation; }
};

/// The answer to one ioctl.
struct UmockUsb::Reply {
    UMockdevIoctlClient* client;
    void operator()(long result, int error = 0) { umockdev_ioctl_client_complete(client, result, error); }
};

// ---- life

UmockUsb::UmockUsb(Node node) : mNode(node), mTestbed(umockdev_testbed_new()), mHandler(umockdev_ioctl_base_new()) {
    if (!umockdev_in_mock_environment()) Fail("umockdev's preload library is not active");
    ::signal(SIGHUP, SIG_IGN);  // a terminal that hangs up must not end the test
    if (node == Node::Terminal) gForgivingSeek = true;
    gchar* const root = umockdev_testbed_get_root_dir(mTestbed);
    mRoot = root;
    g_free(root);
    g_signal_connect(mHandler, "handle-ioctl", G_CALLBACK(&UmockUsb::HandleIoctl), this);
    g_signal_connect(mHandler, "handle-read", G_CALLBACK(&UmockUsb::HandleRead), this);
    g_signal_connect(mHandler, "client-connected", G_CALLBACK(&UmockUsb::ClientConnected), this);
    mDrive.start(*this);
}

UmockUsb::~UmockUsb() {
    for (std::size_t i = 0; i < mPorts.size(); ++i) unplug(i);
    mDrive.requestStop();
    mDrive.join();
    // umockdev's thread, which nobody joins, must have finished with us.
    if (!waitUntilClosed()) Fail("a program still has a device open");
    for (const auto& node : mServedNodes) umockdev_testbed_detach_ioctl(mTestbed, node.c_str(), nullptr);
    g_signal_handlers_disconnect_by_data(mHandler, this);
    g_object_unref(mHandler);
    g_object_unref(mTestbed);
    gForgivingSeek = false;
}

bool UmockUsb::waitUntilClosed() {
    std::unique_lock lock(mMutex);
    return mChanged.wait_for(lock, kPatience, [&] { return mFiles.empty(); });
}

std::size_t UmockUsb::addDevice(simulator::Profile profile, simulator::SettingsStore store) {
    const std::lock_guard lock(mMutex);
    auto path = Text("/sys/devices/pci0000:00/usb1/1-%zu", mPorts.size() + 1);
    mPorts.push_back(std::make_unique<Port>(std::move(profile), std::move(store), std::move(path)));
    return mPorts.size() - 1;
}

void UmockUsb::withDevice(std::size_t port, const std::function<void(Device&, Time)>& action) {
    {
        const std::lock_guard lock(mMutex);
        action(mPorts.at(port)->device, now());
        pump(*mPorts[port]);
    }
    mDrive.dueChanged();
}

void UmockUsb::plug(const std::vector<std::size_t>& ports) {
    for (const std::size_t port : ports) withDevice(port, [](Device& device, Time now) { device.setCable(true, now); });
    std::unique_lock lock(mMutex);
    const bool all = mChanged.wait_for(lock, kPatience, [&] {
        return std::all_of(ports.begin(), ports.end(), [&](std::size_t port) {
            return mPorts[port]->announced || !mPorts[port]->device.wantsBus();
        });
    });
    if (!all) Fail("a device was not attached");
}

void UmockUsb::unplug(std::size_t port) {
    withDevice(port, [](Device& device, Time now) { device.setCable(false, now); });
    std::unique_lock lock(mMutex);
    if (!mChanged.wait_for(lock, kPatience, [&] { return !mPorts[port]->announced; })) {
        Fail("a device was not detached");
    }
}

void UmockUsb::announceAgain(std::size_t port) {
    umockdev_testbed_uevent(mTestbed, mPorts.at(port)->path.c_str(), "add");
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

void UmockUsb::setDriver(std::string name, std::size_t port) {
    const std::lock_guard lock(mMutex);
    mPorts.at(port)->driver = std::move(name);
}

std::string UmockUsb::driver(std::size_t port) const {
    const std::lock_guard lock(mMutex);
    return mPorts.at(port)->driver;
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
        const auto own = port->device.wantsBus() != port->announced ? Time(0) : port->device.nextDue();
        if (own && (!due || *own < *due)) due = own;
    }
    return due;
}

void UmockUsb::run(Time now) {
    std::unique_lock lock(mMutex);
    for (std::size_t i = 0; i < mPorts.size(); ++i) {
        Port& port = *mPorts[i];
        port.device.advance(now);
        pump(port);
        if (port.device.wantsBus() == port.announced) continue;
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
        mDeviceNumber = mDeviceNumber == kLastDeviceNumber ? kFirstDeviceNumber : mDeviceNumber + 1;
        port.node = Text("/dev/bus/usb/001/%03d", mDeviceNumber);
        port.backing = std::make_unique<Backing>(mNode);
        const std::filesystem::path file = mRoot + port.node;
        std::filesystem::create_directories(file.parent_path());  // goes with the last device in it
        std::filesystem::create_symlink(port.backing->Target(), file);
        port.attached = true;
        ++port.generation;
        port.attachBegan = now;
        port.device.attached(now);

        const simulator::Profile& profile = port.device.profile();
        const auto* out = profile.pipe(Pipe::BulkOut);
        std::string descriptors;
        for (const unsigned char byte : simulator::usbDescriptors(profile)) descriptors += Text("%02X", byte);
        // No "N:" line: that would put a regular file in the place of the node.
        description = "P: " + port.path.substr(std::strlen("/sys")) + "\n" +  //
                      "E: DEVNAME=" + port.node + "\nE: DEVTYPE=usb_device\nE: SUBSYSTEM=usb\nE: MAJOR=189\n" +
                      Text("E: MINOR=%d\nE: BUSNUM=001\nE: DEVNUM=%03d\n", mDeviceNumber - 1, mDeviceNumber) +
                      Text("E: PRODUCT=%x/%x/%x\n", profile.vendorId, profile.productId, profile.releaseNumber) +
                      Text("A: busnum=1\\n\nA: devnum=%d\\n\nA: dev=189:%d\n", mDeviceNumber, mDeviceNumber - 1) +
                      Text("A: speed=%d\\n\n", out && out->maxPacketSize > 64 ? 480 : 12) +
                      Text("A: bConfigurationValue=%d\\n\nA: bNumConfigurations=1\\n\n", profile.configurationValue) +
                      Text("A: idVendor=%04x\\n\nA: idProduct=%04x\\n\n", profile.vendorId, profile.productId) +
                      Text("A: bcdDevice=%04x\\n\n", profile.releaseNumber) + "H: descriptors=" + descriptors + "\n";
    }
    if (mServedNodes.insert(port.node).second) {
        umockdev_testbed_attach_ioctl(mTestbed, port.node.c_str(), mHandler, nullptr);
    }
    if (!umockdev_testbed_add_from_string(mTestbed, description.c_str(), nullptr)) Fail("add_from_string");
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
        port.backing->HangUp();
        port.device.detached(now);
    }
    umockdev_testbed_uevent(mTestbed, port.path.c_str(), "remove");  // remove_device sends none
    umockdev_testbed_remove_device(mTestbed, port.path.c_str());
    std::error_code gone;
    std::filesystem::remove(mRoot + port.node, gone);
}

// ---- transfers; the lock is held

void UmockUsb::finish(Port& port, Urb urb, int status) {
    urb.raw().status = status;
    urb.raw().actual_length = urb.done;
    port.completed.push_back(std::move(urb));
    port.backing->SetReady(true);
}

/// Moves packets between the waiting transfers and the device until neither side has anything to give.
void UmockUsb::pump(Port& port) {
    if (!port.attached) return;
    for (bool moved = true; moved;) {
        moved = false;
        for (auto& [endpoint, urbs] : port.pending) {
            while (!urbs.empty() && (endpoint & kIn ? pumpIn(port, urbs.front()) : pumpOut(port, urbs.front()))) {
                urbs.pop_front();
                moved = true;
            }
        }
    }
}

/// True when the transfer has ended.
bool UmockUsb::pumpOut(Port& port, Urb& urb) {
    const std::size_t packetSize = port.device.profile().pipe(Pipe::BulkOut)->maxPacketSize;
    const auto length = static_cast<std::size_t>(urb.raw().buffer_length);
    do {
        const auto done = static_cast<std::size_t>(urb.done);
        const std::size_t size = std::min(packetSize, length - done);
        const auto* bytes = urb.buffer ? urb.buffer->data + done : nullptr;
        switch (port.device.writePacket({bytes, size}, now())) {
            case Device::WriteResult::Busy:
                return false;
            case Device::WriteResult::Stalled:
                finish(port, std::move(urb), -EPIPE);
                return true;
            case Device::WriteResult::Taken:
                break;
        }
        if (size == 0) urb.endPacketDue = false;
        urb.done += static_cast<int>(size);
    } while (static_cast<std::size_t>(urb.done) < length || urb.endPacketDue);
    finish(port, std::move(urb), 0);
    return true;
}

bool UmockUsb::pumpIn(Port& port, Urb& urb) {
    const Pipe pipe = PipeOf(port.device.profile(), urb.raw().endpoint);
    const std::size_t packetSize = port.device.profile().pipe(pipe)->maxPacketSize;
    for (;;) {
        if (port.device.halted(pipe)) {
            finish(port, std::move(urb), -EPIPE);
            return true;
        }
        if (!port.device.hasPacket(pipe)) return false;
        const Bytes packet = port.device.takePacket(pipe);
        const auto room = static_cast<std::size_t>(urb.raw().buffer_length - urb.done);
        const std::size_t size = std::min(room, packet.size());
        if (size > 0) std::memcpy(urb.buffer->data + urb.done, packet.data(), size);
        urb.done += static_cast<int>(size);
        const bool overflow = packet.size() > room;
        if (!overflow && packet.size() == packetSize && size < room) continue;
        finish(port, std::move(urb), overflow ? -EOVERFLOW : 0);
        return true;
    }
}

// ---- requests, on umockdev's thread

int UmockUsb::HandleIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, UmockUsb* self) {
    self->ioctl(client);
    self->mDrive.dueChanged();
    return TRUE;
}

int UmockUsb::HandleRead(UMockdevIoctlBase*, UMockdevIoctlClient* client, UmockUsb* self) {
    const std::lock_guard lock(self->mMutex);
    const File& file = self->mFiles.at(client);
    UMockdevIoctlData* const argument = umockdev_ioctl_client_get_arg(client);
    const Bytes descriptors = simulator::usbDescriptors(file.port->device.profile());
    const std::size_t size = std::min(descriptors.size(), static_cast<std::size_t>(argument->data_len));
    std::memcpy(argument->data, descriptors.data(), size);
    umockdev_ioctl_client_complete(client, static_cast<long>(size), 0);
    return TRUE;
}

void UmockUsb::ClientConnected(UMockdevIoctlBase*, UMockdevIoctlClient* client, UmockUsb* self) {
    const std::string node = umockdev_ioctl_client_get_devnode(client);
    const std::lock_guard lock(self->mMutex);
    for (const auto& port : self->mPorts) {
        if (port->node == node) self->mFiles[client] = {port.get(), port->generation};
    }
    if (!self->mFiles.contains(client)) Fail("an open of a node that no device has");
    // umockdev never tells of a close; the object's end does.
    g_object_weak_ref(
        G_OBJECT(client), [](gpointer bus, GObject* gone) { static_cast<UmockUsb*>(bus)->closed(gone); }, self);
}

/// The kernel ends the transfers of a file that is closed.
void UmockUsb::closed(void* client) {
    const std::lock_guard lock(mMutex);
    Port& port = *mFiles.at(client).port;
    const auto own = [&](const Urb& urb) { return urb.client == client; };
    for (auto& [endpoint, urbs] : port.pending) std::erase_if(urbs, own);
    std::erase_if(port.completed, own);
    if (port.completed.empty() && port.backing) port.backing->SetReady(false);
    mFiles.erase(client);
    mChanged.notify_all();
}

void UmockUsb::ioctl(UMockdevIoctlClient* client) {
    UMockdevIoctlData* const argument = umockdev_ioctl_client_get_arg(client);
    const unsigned long request = umockdev_ioctl_client_get_request(client);
    Reply reply{client};
    const std::lock_guard lock(mMutex);
    File& file = mFiles.at(client);
    Port& port = *file.port;
    if (request != USBDEVFS_SUBMITURB && request != USBDEVFS_REAPURBNDELAY && request != USBDEVFS_DISCARDURB) {
        ++mRequests.other;
    }
    if (file.gone() && request != USBDEVFS_REAPURBNDELAY) return reply(-1, ENODEV);
    switch (request) {
        case USBDEVFS_SUBMITURB:
            return submit(client, argument, port, reply);
        case USBDEVFS_REAPURBNDELAY:
            return reap(client, argument, file, reply);
        case USBDEVFS_DISCARDURB:
            return discard(argument, file, reply);
        case USBDEVFS_SETCONFIGURATION:
            return configure(port, reply);
        case USBDEVFS_IOCTL:
            return connectDriver(argument, port, reply);
        case USBDEVFS_GET_CAPABILITIES:
            *reinterpret_cast<std::uint32_t*>(Resolve(argument, 0, 4)->data) =
                USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_BULK_SCATTER_GATHER |
                USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
            return reply(0);
        case USBDEVFS_CONNECTINFO: {
            const auto information = Resolve(argument, 0, sizeof(usbdevfs_connectinfo));
            reinterpret_cast<usbdevfs_connectinfo*>(information->data)->devnum =
                static_cast<unsigned>(std::atoi(port.node.c_str() + port.node.rfind('/') + 1));
            return reply(0);
        }
        case USBDEVFS_CONTROL: {  // the question for the active configuration is the only one that libusb asks
            const auto transfer = Resolve(argument, 0, sizeof(usbdevfs_ctrltransfer));
            Resolve(transfer.get(), offsetof(usbdevfs_ctrltransfer, data), 1)->data[0] =
                port.device.profile().configurationValue;
            return reply(1);
        }
        case USBDEVFS_CLEAR_HALT:
            port.device.clearHalt(PipeOf(port.device.profile(), Resolve(argument, 0, 4)->data[0]));
            return reply(0);
        case USBDEVFS_GET_SPEED: {
            const auto* out = port.device.profile().pipe(Pipe::BulkOut);
            return reply(out && out->maxPacketSize > 64 ? 3 : 2);  // high or full
        }
        case USBDEVFS_GETDRIVER: {
            if (port.driver.empty()) return reply(-1, ENODATA);
            const auto answer = Resolve(argument, 0, sizeof(usbdevfs_getdriver));
            std::snprintf(reinterpret_cast<usbdevfs_getdriver*>(answer->data)->driver, USBDEVFS_MAXDRIVERNAME + 1, "%s",
                          port.driver.c_str());
            return reply(0);
        }
        case USBDEVFS_CLAIMINTERFACE:
            return port.driver.empty() ? reply(0) : reply(-1, EBUSY);
        case USBDEVFS_DISCONNECT_CLAIM:
            if (port.driver == "usbfs") return reply(-1, EBUSY);
            if (!port.driver.empty()) port.detachedDriver = std::exchange(port.driver, {});
            return reply(0);
        case USBDEVFS_RELEASEINTERFACE:
        case USBDEVFS_RESET:
            return reply(0);
        case FIONBIO:
            return reply(0);  // the kernel handles it above the driver
        default:
            return reply(-1, ENOTTY);
    }
}

void UmockUsb::configure(Port& port, Reply& reply) {
    if (!port.driver.empty()) return reply(-1, EBUSY);
    port.device.configured(now());
    reply(0);
}

/// A driver leaves, or is asked to come back; that it comes is for the test to see.
void UmockUsb::connectDriver(UMockdevIoctlData* argument, Port& port, Reply& reply) {
    const auto command = Resolve(argument, 0, sizeof(usbdevfs_ioctl));
    const auto code = static_cast<unsigned long>(reinterpret_cast<usbdevfs_ioctl*>(command->data)->ioctl_code);
    if (code == USBDEVFS_DISCONNECT) {
        if (port.driver.empty()) return reply(-1, ENODATA);
        port.detachedDriver = std::exchange(port.driver, {});
    } else if (code == USBDEVFS_CONNECT) {
        if (!port.driver.empty()) return reply(-1, EBUSY);
        port.driver = std::exchange(port.detachedDriver, {});
    }
    reply(0);
}

void UmockUsb::submit(UMockdevIoctlClient* client, UMockdevIoctlData* argument, Port& port, Reply& reply) {
    ++mRequests.submitted;
    Urb urb;
    urb.block = Resolve(argument, 0, sizeof(usbdevfs_urb));
    urb.buffer =
        Resolve(urb.block.get(), offsetof(usbdevfs_urb, buffer), static_cast<std::size_t>(urb.raw().buffer_length));
    urb.client = client;
    const std::uint8_t endpoint = urb.raw().endpoint;
    const int packetSize = port.device.profile().pipe(PipeOf(port.device.profile(), endpoint))->maxPacketSize;
    urb.endPacketDue = urb.raw().flags & USBDEVFS_URB_ZERO_PACKET && urb.raw().buffer_length % packetSize == 0;
    // Answered first: umockdev would otherwise write half-changed data back with the answer.
    reply(0);
    port.pending[endpoint].push_back(std::move(urb));
    pump(port);
}

void UmockUsb::discard(UMockdevIoctlData* argument, File& file, Reply& reply) {
    ++mRequests.discarded;
    const unsigned long address = *reinterpret_cast<unsigned long*>(argument->data);
    for (auto& [endpoint, urbs] : file.port->pending) {
        const auto found =
            std::find_if(urbs.begin(), urbs.end(), [&](const Urb& urb) { return urb.block->client_addr == address; });
        if (found == urbs.end()) continue;
        finish(*file.port, std::move(*found), -ENOENT);
        urbs.erase(found);
        return reply(0);
    }
    reply(-1, EINVAL);
}

void UmockUsb::reap(UMockdevIoctlClient* client, UMockdevIoctlData* argument, File& file, Reply& reply) {
    auto& completed = file.port->completed;
    const auto found =
        std::find_if(completed.begin(), completed.end(), [&](const Urb& urb) { return urb.client == client; });
    if (found == completed.end()) {
        ++mRequests.emptyReaps;
        return reply(-1, file.gone() ? ENODEV : EAGAIN);
    }
    ++mRequests.reaped;
    const Urb urb = std::move(*found);
    completed.erase(found);
    umockdev_ioctl_data_set_ptr(Resolve(argument, 0, sizeof(void*)).get(), 0, urb.block.get());
    if (completed.empty()) file.port->backing->SetReady(false);
    reply(0);  // writes status, length and bytes back into the program
}

}  // namespace support
