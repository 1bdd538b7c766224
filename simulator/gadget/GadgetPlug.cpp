#include "simulator/gadget/GadgetPlug.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <linux/usb/functionfs.h>
#include <poll.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace simulator {
namespace {

std::size_t index(Pipe pipe) {
    return static_cast<std::size_t>(pipe);
}

/// Result of a transfer that was under way when the host let go of the configuration, or chose it again. Until the
/// event that tells which, nothing new is started: it would count to the old configuration and be dropped.
constexpr int kConfigurationGone = -ESHUTDOWN;

constexpr std::array kInPipes = {Pipe::InterruptIn, Pipe::BulkIn};
constexpr std::array kPipes = {Pipe::InterruptIn, Pipe::BulkIn, Pipe::BulkOut};

}  // namespace

Time GadgetPlug::now() {
    return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now().time_since_epoch());
}

GadgetPlug::~GadgetPlug() {
    try {
        leaveBus();
    } catch (const std::system_error&) {
        // The controller has gone, and the device with it.
    }
}

void GadgetPlug::step(std::initializer_list<int> descriptors, const std::function<void(int)>& ready) {
    mDevice.advance(now());
    followWish();
    pump();
    followWish();  // the packet just taken may have been the one at which the cable comes out

    std::vector<pollfd> waits = {{mAio.event(), POLLIN, 0}, {mFunction.control(), POLLIN, 0}};
    for (const int descriptor : descriptors) waits.push_back({descriptor, POLLIN, 0});
    int timeout = -1;
    if (const auto due = mDevice.nextDue()) {
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(*due - now()).count();
        timeout = static_cast<int>(std::clamp<long long>(wait, 0, INT_MAX));
    }
    if (::poll(waits.data(), waits.size(), timeout) <= 0) return;
    if (waits[1].revents) followEvents();
    if (waits[0].revents) mAio.collect();
    for (std::size_t i = 2; i < waits.size(); ++i)
        if (waits[i].revents) ready(waits[i].fd);
}

/// The engine says whether it would be on the bus; binding the function to the controller is the cable.
void GadgetPlug::followWish() {
    if (mDevice.wantsBus() && !mFunction.bound()) joinBus();
    if (!mDevice.wantsBus() && mFunction.bound()) leaveBus();
}

void GadgetPlug::joinBus() {
    mDevice.attached(now());
    mFunction.bind();
}

void GadgetPlug::leaveBus() {
    if (!mFunction.bound()) return;
    setEnabled(false);
    mFunction.unbind();
    mDevice.detached(now());
}

void GadgetPlug::followEvents() {
    usb_functionfs_event events[4];
    const ssize_t length = ::read(mFunction.control(), events, sizeof events);
    for (std::size_t i = 0; length > 0 && i < static_cast<std::size_t>(length) / sizeof events[0]; ++i) {
        switch (events[i].type) {
            case FUNCTIONFS_ENABLE:
                setEnabled(true);
                break;
            case FUNCTIONFS_DISABLE:
                setEnabled(false);
                break;
            case FUNCTIONFS_SETUP:
                // The interface has no requests of its own: moving data the wrong way refuses it.
                if (events[i].u.setup.bRequestType & 0x80) {
                    [[maybe_unused]] const ssize_t refused = ::read(mFunction.control(), nullptr, 0);
                } else {
                    [[maybe_unused]] const ssize_t refused = ::write(mFunction.control(), nullptr, 0);
                }
                break;
            default:
                break;
        }
    }
}

/// The host has chosen the configuration (again), or has let go of it.
void GadgetPlug::setEnabled(bool enabled) {
    mEnabled = enabled;
    ++mGeneration;
    mOffer.reset();
    mReading = false;
    mWriting = {};
    mHalted = {};
    if (!enabled) return;
    for (auto& properties : mDevice.profile().pipes) {
        const Pipe pipe = properties.direction == platform::kUSBOut            ? Pipe::BulkOut
                          : properties.transferType == platform::kUSBInterrupt ? Pipe::InterruptIn
                                                                               : Pipe::BulkIn;
        if (const auto size = mFunction.packetSize(pipe)) properties.maxPacketSize = *size;
    }
    mDevice.configured(now());
}

void GadgetPlug::pump() {
    if (!mEnabled) return;
    offer();
    for (const Pipe pipe : kPipes)
        if (mDevice.halted(pipe) && !mHalted[index(pipe)]) halt(pipe);
    for (const Pipe pipe : kInPipes) writeNext(pipe);
    readNext();
}

void GadgetPlug::readNext() {
    const auto* properties = mDevice.profile().pipe(Pipe::BulkOut);
    if (mReading || mOffer || !properties) return;
    mReading = true;
    const int error = mAio.read(mFunction.endpoint(Pipe::BulkOut), properties->maxPacketSize,
                                [this, generation = mGeneration](int result, const Bytes& data) {
                                    if (generation != mGeneration || result == kConfigurationGone) return;
                                    mReading = false;
                                    if (result >= 0) mOffer = data;
                                });
    if (error) mReading = false;
}

void GadgetPlug::offer() {
    if (!mOffer) return;
    if (mDevice.writePacket(*mOffer, now()) != Device::WriteResult::Busy) mOffer.reset();
}

void GadgetPlug::writeNext(Pipe pipe) {
    if (mWriting[index(pipe)] || mDevice.halted(pipe) || !mDevice.hasPacket(pipe)) return;
    mWriting[index(pipe)] = true;
    const int error = mAio.write(mFunction.endpoint(pipe), mDevice.takePacket(pipe),
                                 [this, pipe, generation = mGeneration](int result, const Bytes&) {
                                     if (generation != mGeneration || result == kConfigurationGone) return;
                                     mWriting[index(pipe)] = false;
                                 });
    if (error) mWriting[index(pipe)] = false;
}

/// A transfer in the wrong direction halts the endpoint. A controller refuses that while a packet waits to go in.
void GadgetPlug::halt(Pipe pipe) {
    if (pipe != Pipe::BulkOut && mWriting[index(pipe)]) return;
    mHalted[index(pipe)] = true;
    char nothing = 0;
    if (pipe == Pipe::BulkOut) {
        [[maybe_unused]] const ssize_t halted = ::write(mFunction.endpoint(pipe), &nothing, 1);
    } else {
        [[maybe_unused]] const ssize_t halted = ::read(mFunction.endpoint(pipe), &nothing, 1);
    }
}

}  // namespace simulator
