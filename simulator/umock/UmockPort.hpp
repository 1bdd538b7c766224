#pragma once

#include "platform/common/Release.hpp"
#include "simulator/umock/NodeBacking.hpp"
#include "simulator/umock/UmockUsb.hpp"

#include <umockdev.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <linux/usbdevice_fs.h>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace simulator {

inline constexpr std::uint8_t kIn = 0x80;  // in an endpoint address

using Data = std::unique_ptr<UMockdevIoctlData, platform::Release<g_object_unref>>;

/// What a pointer in a request points to, in the program's memory.
inline Data resolve(UMockdevIoctlData* data, std::size_t offset, std::size_t size) {
    return Data(umockdev_ioctl_data_resolve(data, offset, size, nullptr));
}

/// Which of the device's pipes an endpoint is; nothing for another.
std::optional<Pipe> pipeOf(const Profile& profile, std::uint8_t address);

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
    Port(std::unique_ptr<BusDevice> plugged, std::string where) : device(std::move(plugged)), path(std::move(where)) {}

    const std::unique_ptr<BusDevice> device;
    const std::string path;            // within sysfs
    std::optional<Bytes> descriptors;  // as the node gives them; the device's own unless set
    std::string node;                  // of the present attach
    bool attached = false;             // the kernel has it
    bool announced = false;            // and has said so
    int generation = 0;
    Time attachBegan{};
    std::unique_ptr<NodeBacking> backing;
    std::map<std::uint8_t, std::deque<Urb>> pending;  // by endpoint
    std::deque<Urb> completed;
    /// Of an interface, each empty for none.
    struct Driver {
        std::string attached;  // holds the interface
        std::string detached;  // and would take it again
        void detach() { detached = std::exchange(attached, {}); }
    };
    std::map<unsigned, Driver> drivers;  // by interface
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

}  // namespace simulator
