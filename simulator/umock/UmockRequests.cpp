// What the kernel's usbfs does with a program's requests: transfers, their cancellation and their return.
#include "simulator/umock/UmockPort.hpp"
#include "simulator/umock/UmockUsb.hpp"

#include <umockdev.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <utility>

namespace simulator {

std::optional<Pipe> pipeOf(const Profile& profile, std::uint8_t address) {
    for (const Pipe pipe : {Pipe::InterruptIn, Pipe::BulkIn, Pipe::BulkOut}) {
        if (profile.endpointAddress(pipe) == address) return pipe;
    }
    return std::nullopt;
}

// ---- transfers; the lock is held

void UmockUsb::finish(Port& port, Urb urb, int status) {
    urb.raw().status = status;
    urb.raw().actual_length = urb.done;
    port.completed.push_back(std::move(urb));
    port.backing->setReady(true);
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
    const std::size_t packetSize = port.device->profile().pipe(Pipe::BulkOut)->maxPacketSize;
    const auto length = static_cast<std::size_t>(urb.raw().buffer_length);
    do {
        const auto done = static_cast<std::size_t>(urb.done);
        const std::size_t size = std::min(packetSize, length - done);
        const auto* bytes = urb.buffer ? urb.buffer->data + done : nullptr;
        switch (port.device->writePacket({bytes, size}, now())) {
            case BusDevice::WriteResult::Busy:
                return false;
            case BusDevice::WriteResult::Stalled:
                finish(port, std::move(urb), -EPIPE);
                return true;
            case BusDevice::WriteResult::Taken:
                break;
        }
        if (size == 0) urb.endPacketDue = false;
        urb.done += static_cast<int>(size);
    } while (static_cast<std::size_t>(urb.done) < length || urb.endPacketDue);
    finish(port, std::move(urb), 0);
    return true;
}

bool UmockUsb::pumpIn(Port& port, Urb& urb) {
    const Pipe pipe = *pipeOf(port.device->profile(), urb.raw().endpoint);  // submit() takes no other
    const std::size_t packetSize = port.device->profile().pipe(pipe)->maxPacketSize;
    for (;;) {
        if (port.device->halted(pipe)) {
            finish(port, std::move(urb), -EPIPE);
            return true;
        }
        if (!port.device->hasPacket(pipe)) return false;
        const Bytes packet = port.device->takePacket(pipe);
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

int UmockUsb::handleIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, UmockUsb* self) {
    self->ioctl(client);
    self->mDrive.dueChanged();
    return TRUE;
}

int UmockUsb::handleRead(UMockdevIoctlBase*, UMockdevIoctlClient* client, UmockUsb* self) {
    const std::lock_guard lock(self->mMutex);
    const auto file = self->mFiles.find(client);
    if (file == self->mFiles.end()) {
        umockdev_ioctl_client_complete(client, -1, ENODEV);
        return TRUE;
    }
    UMockdevIoctlData* const argument = umockdev_ioctl_client_get_arg(client);
    const Port& port = *file->second.port;
    const Bytes descriptors = port.descriptors ? *port.descriptors : port.device->descriptors();
    const std::size_t size = std::min(descriptors.size(), static_cast<std::size_t>(argument->data_len));
    std::memcpy(argument->data, descriptors.data(), size);
    umockdev_ioctl_client_complete(client, static_cast<long>(size), 0);
    return TRUE;
}

void UmockUsb::clientConnected(UMockdevIoctlBase*, UMockdevIoctlClient* client, UmockUsb* self) {
    const std::string node = umockdev_ioctl_client_get_devnode(client);
    // umockdev connects for an open that has failed as well, and nobody will ever close that one. An open has failed
    // when there is no node, or the device has gone right after it: either way there is nothing to serve.
    if (!std::filesystem::exists(std::filesystem::symlink_status(self->mRoot + node))) return;
    const std::lock_guard lock(self->mMutex);
    for (const auto& port : self->mPorts) {
        if (port->node == node) self->mFiles[client] = {port.get(), port->generation};
    }
    if (!self->mFiles.contains(client)) fail("an open of a node that no device has");
    // umockdev never tells of a close; the object's end does.
    g_object_weak_ref(
        G_OBJECT(client), [](gpointer bus, GObject* gone) { static_cast<UmockUsb*>(bus)->closed(gone); }, self);
}

/// The kernel ends the transfers of a file that is closed.
void UmockUsb::closed(void* client) {
    const std::lock_guard lock(mMutex);
    Port& port = *mFiles.at(client).port;
    const auto own = [&](const Urb& urb) { return urb.client == client; };
    for (auto& [endpoint, urbs] : port.pending) {
        const bool wasOffered = !urbs.empty() && own(urbs.front());
        std::erase_if(urbs, own);
        if (wasOffered && !(endpoint & kIn)) port.device->writeCancelled(now());
    }
    std::erase_if(port.completed, own);
    if (port.completed.empty() && port.backing) port.backing->setReady(false);
    mFiles.erase(client);
    mChanged.notify_all();
}

void UmockUsb::ioctl(UMockdevIoctlClient* client) {
    UMockdevIoctlData* const argument = umockdev_ioctl_client_get_arg(client);
    const unsigned long request = umockdev_ioctl_client_get_request(client);
    Reply reply{client};
    const std::lock_guard lock(mMutex);
    const auto found = mFiles.find(client);
    if (found == mFiles.end()) return reply(-1, ENODEV);
    File& file = found->second;
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
            *reinterpret_cast<std::uint32_t*>(resolve(argument, 0, 4)->data) =
                USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_BULK_SCATTER_GATHER |
                USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
            return reply(0);
        case USBDEVFS_CONNECTINFO: {
            const auto information = resolve(argument, 0, sizeof(usbdevfs_connectinfo));
            reinterpret_cast<usbdevfs_connectinfo*>(information->data)->devnum =
                static_cast<unsigned>(std::atoi(port.node.c_str() + port.node.rfind('/') + 1));
            return reply(0);
        }
        case USBDEVFS_CONTROL: {  // the question for the active configuration is the only one that libusb asks
            const auto transfer = resolve(argument, 0, sizeof(usbdevfs_ctrltransfer));
            resolve(transfer.get(), offsetof(usbdevfs_ctrltransfer, data), 1)->data[0] =
                port.device->profile().configurationValue;
            return reply(1);
        }
        case USBDEVFS_CLEAR_HALT: {
            const auto pipe = pipeOf(port.device->profile(), resolve(argument, 0, 4)->data[0]);
            if (pipe) port.device->clearHalt(*pipe);
            return pipe ? reply(0) : reply(-1, ENOENT);
        }
        case USBDEVFS_GET_SPEED: {
            const auto* out = port.device->profile().pipe(Pipe::BulkOut);
            return reply(out && out->maxPacketSize > 64 ? 3 : 2);  // high or full
        }
        case USBDEVFS_GETDRIVER: {
            const auto answer = resolve(argument, 0, sizeof(usbdevfs_getdriver));
            auto& asked = *reinterpret_cast<usbdevfs_getdriver*>(answer->data);
            const std::string& name = port.drivers[asked.interface].attached;
            if (name.empty()) return reply(-1, ENODATA);
            std::snprintf(asked.driver, USBDEVFS_MAXDRIVERNAME + 1, "%s", name.c_str());
            return reply(0);
        }
        case USBDEVFS_CLAIMINTERFACE:
            return port.drivers[resolve(argument, 0, 4)->data[0]].attached.empty() ? reply(0) : reply(-1, EBUSY);
        case USBDEVFS_DISCONNECT_CLAIM: {
            const auto claim = resolve(argument, 0, sizeof(usbdevfs_disconnect_claim));
            auto& driver = port.drivers[reinterpret_cast<usbdevfs_disconnect_claim*>(claim->data)->interface];
            if (driver.attached == "usbfs") return reply(-1, EBUSY);
            if (!driver.attached.empty()) driver.detach();
            return reply(0);
        }
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
    for (const auto& [interface, driver] : port.drivers) {
        if (!driver.attached.empty()) return reply(-1, EBUSY);
    }
    port.device->configured(now());
    reply(0);
}

/// A driver leaves, or is asked to come back; that it comes is for the test to see.
void UmockUsb::connectDriver(UMockdevIoctlData* argument, Port& port, Reply& reply) {
    const auto command = resolve(argument, 0, sizeof(usbdevfs_ioctl));
    const auto& asked = *reinterpret_cast<usbdevfs_ioctl*>(command->data);
    const auto code = static_cast<unsigned long>(asked.ioctl_code);
    auto& driver = port.drivers[static_cast<unsigned>(asked.ifno)];
    if (code == USBDEVFS_DISCONNECT) {
        if (driver.attached.empty()) return reply(-1, ENODATA);
        driver.detach();
    } else if (code == USBDEVFS_CONNECT) {
        if (!driver.attached.empty()) return reply(-1, EBUSY);
        driver.attached = std::exchange(driver.detached, {});
    }
    reply(0);
}

void UmockUsb::submit(UMockdevIoctlClient* client, UMockdevIoctlData* argument, Port& port, Reply& reply) {
    ++mRequests.submitted;
    Urb urb;
    urb.block = resolve(argument, 0, sizeof(usbdevfs_urb));
    urb.buffer =
        resolve(urb.block.get(), offsetof(usbdevfs_urb, buffer), static_cast<std::size_t>(urb.raw().buffer_length));
    urb.client = client;
    const std::uint8_t endpoint = urb.raw().endpoint;
    if (urb.raw().type == USBDEVFS_URB_TYPE_CONTROL) {
        reply(0);
        return control(port, std::move(urb));
    }
    const auto pipe = pipeOf(port.device->profile(), endpoint);
    if (!pipe) return reply(-1, ENOENT);
    const int packetSize = port.device->profile().pipe(*pipe)->maxPacketSize;
    urb.endPacketDue = urb.raw().flags & USBDEVFS_URB_ZERO_PACKET && urb.raw().buffer_length % packetSize == 0;
    // Answered first: umockdev would otherwise write half-changed data back with the answer.
    reply(0);
    port.pending[endpoint].push_back(std::move(urb));
    pump(port);
}

/// Ends a control transfer at once. The device takes no request that writes.
void UmockUsb::control(Port& port, Urb urb) {
    BusDevice::Setup setup{};
    const auto room = static_cast<std::size_t>(urb.raw().buffer_length);
    if (room < setup.size()) return finish(port, std::move(urb), -EINVAL);
    std::copy_n(urb.buffer->data, setup.size(), setup.begin());
    const auto answer = setup[0] & kIn ? port.device->controlAnswer(setup) : std::nullopt;
    if (!answer) return finish(port, std::move(urb), -EPIPE);
    const std::size_t size = std::min(answer->size(), room - setup.size());
    std::copy_n(answer->begin(), size, urb.buffer->data + setup.size());
    urb.done = static_cast<int>(size);
    finish(port, std::move(urb), 0);
}

void UmockUsb::discard(UMockdevIoctlData* argument, File& file, Reply& reply) {
    ++mRequests.discarded;
    const unsigned long address = *reinterpret_cast<unsigned long*>(argument->data);
    for (auto& [endpoint, urbs] : file.port->pending) {
        const auto found =
            std::ranges::find_if(urbs, [&](const Urb& urb) { return urb.block->client_addr == address; });
        if (found == urbs.end()) continue;
        const bool wasOffered = found == urbs.begin();  // to the device: those behind it wait
        finish(*file.port, std::move(*found), -ENOENT);
        urbs.erase(found);
        if (wasOffered && !(endpoint & kIn)) file.port->device->writeCancelled(now());
        return reply(0);
    }
    reply(-1, EINVAL);
}

void UmockUsb::reap(UMockdevIoctlClient* client, UMockdevIoctlData* argument, File& file, Reply& reply) {
    auto& completed = file.port->completed;
    const auto found = std::ranges::find_if(completed, [&](const Urb& urb) { return urb.client == client; });
    if (found == completed.end()) {
        ++mRequests.emptyReaps;
        return reply(-1, file.gone() ? ENODEV : EAGAIN);
    }
    ++mRequests.reaped;
    const Urb urb = std::move(*found);
    completed.erase(found);
    umockdev_ioctl_data_set_ptr(resolve(argument, 0, sizeof(void*)).get(), 0, urb.block.get());
    if (completed.empty()) file.port->backing->setReady(false);
    reply(0);  // writes status, length and bytes back into the program
}

}  // namespace simulator
