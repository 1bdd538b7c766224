#pragma once

#include "simulator/engine/BusDevice.hpp"
#include "simulator/engine/Device.hpp"
#include "simulator/engine/RealTimeDrive.hpp"

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

typedef struct _UMockdevTestbed UMockdevTestbed;
typedef struct _UMockdevIoctlBase UMockdevIoctlBase;
typedef struct _UMockdevIoctlClient UMockdevIoctlClient;
typedef struct _UMockdevIoctlData UMockdevIoctlData;

namespace simulator {

/// Simulated devices behind umockdev's sysfs, uevents and usbfs: what real libusb and libudev see is a kernel. One
/// port a device. An attach gets the next device number, as on a real bus, and so a node of its own. For tests and
/// benchmarks: the product itself never needs umockdev.
///
/// Make it before any other thread runs and destroy it after they have ended; one at a time in a process. The program
/// must be linked with umockdev's preload library first (the CMake target does that); without it the constructor ends
/// the process. A monitor that nobody reads ends it too, at the twelfth event.
///
/// The devices' own work is done on a thread of this object; requests from libusb come in on umockdev's. Both lock.
/// Where nothing else is said, any thread may call; what does not work as a bus must ends the process with a message.
class UmockUsb final : public TimedWork {
  public:
    /// What lies behind a device's node, and so what poll and epoll see there.
    enum class Node {
        Queue,     ///< a message queue: writable while there is something to reap
        Terminal,  ///< a pseudo-terminal: the same, and hung up when the device goes, as usbfs does it
    };

    explicit UmockUsb(Node node = Node::Queue);

    /// Pulls every cable and waits until every program has closed its devices, up to ten seconds.
    ~UmockUsb() override;
    UmockUsb(const UmockUsb&) = delete;
    UmockUsb& operator=(const UmockUsb&) = delete;

    /// Adds a device on a new port, its cable not yet in. Returns the port's number, 0 for the first.
    std::size_t addDevice(Profile profile = {}, SettingsStore store = SettingsStore::wellUsed());
    std::size_t addDevice(std::unique_ptr<BusDevice> device);

    /// Puts the cable in or pulls it out and waits until the uevent is on its way, up to ten seconds. Not from a
    /// withDevice() action.
    void plug(std::size_t port = 0) { plug(std::vector<std::size_t>{port}); }
    void plug(const std::vector<std::size_t>& ports);
    void unplug(std::size_t port = 0);

    /// Has udev announce a device a second time.
    void announceAgain(std::size_t port = 0);

    bool isAttached(std::size_t port = 0) const;
    std::string registryPath(std::size_t port = 0) const;

    /// When the device last began to appear, by the steady clock.
    Time attachBegan(std::size_t port = 0) const;

    /// Looks at or changes the device under the lock; what the device then has to say is on its way when this returns.
    void withBusDevice(std::size_t port, const std::function<void(BusDevice&, Time)>& action);
    /// The same with a simulated device; throws std::bad_cast where the port has another.
    void withDevice(std::size_t port, const std::function<void(Device&, Time)>& action);

    /// Gives the interface a kernel driver, or another program ("usbfs") that holds it. Empty for none.
    void setDriver(std::string name, unsigned interface = 0, std::size_t port = 0);
    std::string driver(unsigned interface = 0, std::size_t port = 0) const;

    /// What the device's node gives to read from its next open on, in place of the descriptors of its profile.
    void setDescriptors(Bytes descriptors, std::size_t port = 0);

    /// What the kernel was asked for, by all programs together.
    struct Requests {
        long submitted = 0;   ///< transfers
        long reaped = 0;      ///< of them, given back
        long discarded = 0;   ///< cancellations
        long emptyReaps = 0;  ///< asked for a transfer when there was none
        long other = 0;
    };
    Requests requests() const;

    /// Transfers and open files that have not been given back.
    std::size_t pendingTransfers() const;
    std::size_t openFiles() const;

    /// Waits until every open file is closed, which umockdev tells late.
    /// @return false when one is still open after ten seconds
    bool waitUntilClosed();

    // TimedWork, for the drive.
    std::optional<Time> nextDue() override;
    void run(Time now) override;

  private:
    struct Urb;
    struct Port;
    struct File;
    struct Reply;

    static int handleIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, UmockUsb* self);
    static int handleRead(UMockdevIoctlBase*, UMockdevIoctlClient* client, UmockUsb* self);
    static void clientConnected(UMockdevIoctlBase*, UMockdevIoctlClient* client, UmockUsb* self);
    void closed(void* client);
    void ioctl(UMockdevIoctlClient* client);
    void configure(Port& port, Reply& reply);
    void connectDriver(UMockdevIoctlData* argument, Port& port, Reply& reply);
    void submit(UMockdevIoctlClient* client, UMockdevIoctlData* argument, Port& port, Reply& reply);
    static void control(Port& port, Urb urb);
    void discard(UMockdevIoctlData* argument, File& file, Reply& reply);
    void reap(UMockdevIoctlClient* client, UMockdevIoctlData* argument, File& file, Reply& reply);

    void pump(Port& port);
    bool pumpOut(Port& port, Urb& urb);
    bool pumpIn(Port& port, Urb& urb);
    static void finish(Port& port, Urb urb, int status);
    void attach(std::size_t number, Time now);
    void detach(std::size_t number, Time now);
    Time now() { return mDrive.now(); }

    /// Gives an object of umockdev's back.
    struct Unref {
        void operator()(void* object) const noexcept;
    };

    const Node mNode;
    const std::unique_ptr<UMockdevTestbed, Unref> mTestbed;
    const std::unique_ptr<UMockdevIoctlBase, Unref> mHandler;
    std::string mRoot;
    std::set<std::string> mServedNodes;  // drive thread

    mutable std::mutex mMutex;  // everything below
    std::condition_variable mChanged;
    std::vector<std::unique_ptr<Port>> mPorts;
    std::map<void*, File> mFiles;
    int mDeviceNumber = 1;
    Requests mRequests;

    RealTimeDrive mDrive;
};

}  // namespace simulator
