#include "platform/linux/usb/UsbTransfers.hpp"

#include "platform/Platform.hpp"
#include "platform/linux/usb/UsbErrors.hpp"

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

namespace platform {
namespace {

constexpr unsigned kNoTimeout = 0;
constexpr std::chrono::seconds kTakeBackLimit{5};  // the kernel cancels at once; only a broken one reaches this

}  // namespace

IOReturn UsbTransfers::submit(std::uint8_t address, std::uint8_t type, std::span<const unsigned char> bytes,
                              const Completion& completion) {
    std::list<Transfer> made(1);
    Transfer& transfer = made.front();
    if (!transfer.libusb) return kIOReturnNoMemory;
    transfer.owner = this;
    transfer.self = made.begin();
    transfer.data.assign(bytes.begin(), bytes.end());
    if (address & LIBUSB_ENDPOINT_IN) transfer.data.resize(completion.destination.size());
    transfer.completion = completion;
    libusb_fill_bulk_transfer(transfer.libusb.get(), mConnection->handle(), address, transfer.data.data(),
                              static_cast<int>(transfer.data.size()), &ended, &transfer, kNoTimeout);
    transfer.libusb->type = type;
    const int result = libusb_submit_transfer(transfer.libusb.get());
    if (result == LIBUSB_ERROR_NO_DEVICE && mIsReporting) {
        // The caller is a completion. Being told of a success, it must not learn in the same run that the device has
        // gone: the transfer is accepted, and fails in a run of its own.
        transfer.state = State::Refused;
        transfer.libusb->status = LIBUSB_TRANSFER_NO_DEVICE;
        transfer.libusb->actual_length = 0;
    } else if (result != LIBUSB_SUCCESS) {
        return IOReturnOfLibusb(result);
    }
    mTransfers.splice(mTransfers.end(), made);
    return kIOReturnSuccess;
}

/// From libusb, for each transfer once, while it handles events.
void UsbTransfers::ended(libusb_transfer* transfer) {
    auto& ended = *static_cast<Transfer*>(transfer->user_data);
    ended.owner->end(ended.self);
}

void UsbTransfers::end(std::list<Transfer>::iterator transfer) {
    transfer->state = State::Ended;
    mTransfers.splice(mTransfers.end(), mTransfers, transfer);
}

std::list<UsbTransfers::Transfer>::iterator UsbTransfers::first(State state) {
    return std::ranges::find(mTransfers, state, &Transfer::state);
}

void UsbTransfers::wait(std::chrono::microseconds limit) {
    mConnection->handleEvents(limit);
    for (auto refused = first(State::Refused); refused != mTransfers.end(); refused = first(State::Refused)) {
        end(refused);
    }
}

void UsbTransfers::serve() {
    const auto self = shared_from_this();                         // a completion may let go of the interface
    const bool wasReporting = std::exchange(mIsReporting, true);  // a completion may run the loop
    try {
        report();
    } catch (...) {
        mIsReporting = wasReporting;
        throw;
    }
    mIsReporting = wasReporting;
}

void UsbTransfers::report() {
    bool hasReported = false;
    for (auto next = first(State::Ended); mLoop && next != mTransfers.end(); next = first(State::Ended)) {
        const auto status = next->libusb->status;
        const bool failed = status != LIBUSB_TRANSFER_COMPLETED && status != LIBUSB_TRANSFER_CANCELLED;
        if (failed && hasReported) return;
        hasReported = true;
        // Taken out first: the completion may start others, run the loop, or close the interface.
        std::list<Transfer> reported;
        reported.splice(reported.end(), mTransfers, next);
        const auto& [callback, refCon, destination] = next->completion;
        const auto length = static_cast<std::size_t>(std::max(next->libusb->actual_length, 0));
        std::copy_n(next->data.begin(), std::min(length, destination.size()), destination.begin());
        callback(refCon, IOReturnOfTransfer(status), reinterpret_cast<void*>(length));
    }
}

void UsbTransfers::abort(std::uint8_t address) {
    for (auto& transfer : mTransfers) {
        // One that has ended in the meantime is not found, which is as good.
        if (transfer.state == State::InFlight && transfer.libusb->endpoint == address) {
            libusb_cancel_transfer(transfer.libusb.get());
        }
    }
}

void UsbTransfers::close() noexcept {
    cancelled();
    if (!std::exchange(mIsClaimed, false)) return;
    for (auto& transfer : mTransfers) {
        if (transfer.state == State::InFlight) libusb_cancel_transfer(transfer.libusb.get());
    }
    const auto deadline = std::chrono::steady_clock::now() + kTakeBackLimit;
    while (first(State::InFlight) != mTransfers.end() && std::chrono::steady_clock::now() < deadline) {
        if (!mConnection->handleEvents(std::chrono::milliseconds(100))) break;
    }
    std::erase_if(mTransfers, [](const Transfer& transfer) { return transfer.state != State::InFlight; });
    if (!mTransfers.empty()) {
        // The kernel may still write into them: memory is given up rather than taken back from under it.
        NSLog("TRV-302 %zu USB transfers did not come back and are left behind.\n", mTransfers.size());
        new std::list<Transfer>(std::move(mTransfers));
    }
    libusb_release_interface(mConnection->handle(), mInterface);
}

void UsbTransfers::scheduled(const std::shared_ptr<CFRunLoop>& loop, std::string_view mode) {
    if (!mIsClaimed) return;
    mLoop = mConnection->loops().current(*loop);
    mMode = mode;
    mLoop->waitWith(mode, this);
}

void UsbTransfers::cancelled() {
    if (const auto loop = std::exchange(mLoop, nullptr)) loop->waitWith(mMode, nullptr);
}

}  // namespace platform
