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
constexpr CFAbsoluteTime kLongPast = 0;
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
    if (result == LIBUSB_ERROR_NO_DEVICE && mRound != Round::None) {
        // The caller is a completion. Being told of a success, it must not learn in the same run that the device has
        // gone: the transfer is accepted, and fails in a round of its own.
        transfer.state = State::Refused;
        transfer.libusb->status = LIBUSB_TRANSFER_NO_DEVICE;
        transfer.libusb->actual_length = 0;
    } else if (result != LIBUSB_SUCCESS) {
        return IOReturnOfLibusb(result);
    }
    mTransfers.splice(mTransfers.end(), made);
    return kIOReturnSuccess;
}

/// From libusb, for each transfer once, while it handles events: in a round, or while the interface is released.
void UsbTransfers::ended(libusb_transfer* transfer) {
    auto& ended = *static_cast<Transfer*>(transfer->user_data);
    UsbTransfers& self = *ended.owner;
    ended.state = State::Ended;
    self.mTransfers.splice(self.mTransfers.end(), self.mTransfers, ended.self);
    if (self.mRound != Round::None) self.report();
}

std::list<UsbTransfers::Transfer>::iterator UsbTransfers::first(State state) {
    return std::ranges::find(mTransfers, state, &Transfer::state);
}

/// @param work  finds what has ended, and has it reported; must not throw
void UsbTransfers::runRound(const std::function<void()>& work) {
    const auto self = shared_from_this();                      // a completion may let go of the interface
    const Round around = std::exchange(mRound, Round::Quiet);  // one whose completion runs the loop again, or none
    work();
    mRound = around;
    if (mClaim == Claim::Closing && around == Round::None) release();
    // What came from the kernel is still in time for a time-out that is due by now; a refused transfer is not, or
    // completions that start another one each time would keep time-outs off for ever.
    const CFAbsoluteTime moment = first(State::Ended) == mTransfers.end() ? CFAbsoluteTimeGetCurrent() : kLongPast;
    for (auto refused = first(State::Refused); refused != mTransfers.end(); refused = first(State::Refused)) {
        refused->state = State::Ended;
        mTransfers.splice(mTransfers.end(), mTransfers, refused);
    }
    if (first(State::Ended) != mTransfers.end()) reportLater(moment);
    if (mThrown) std::rethrow_exception(std::exchange(mThrown, nullptr));
}

/// Reports what has ended, as far as the round may.
void UsbTransfers::report() {
    for (auto next = first(State::Ended); mLoop && next != mTransfers.end(); next = first(State::Ended)) {
        const auto status = next->libusb->status;
        const bool failed = status != LIBUSB_TRANSFER_COMPLETED && status != LIBUSB_TRANSFER_CANCELLED;
        if (failed && mRound == Round::HasReported) mRound = Round::HoldsBack;
        if (mRound == Round::HoldsBack) return;
        mRound = Round::HasReported;
        // Taken out first: the completion may start others, run the loop, or close the interface.
        std::list<Transfer> reported;
        reported.splice(reported.end(), mTransfers, next);
        const auto& [callback, refCon, destination] = next->completion;
        const auto length = static_cast<std::size_t>(std::max(next->libusb->actual_length, 0));
        std::copy_n(next->data.begin(), std::min(length, destination.size()), destination.begin());
        try {
            callback(refCon, IOReturnOfTransfer(status), reinterpret_cast<void*>(length));
        } catch (...) {
            mThrown = std::current_exception();
            mRound = Round::HoldsBack;
        }
    }
}

/// For what has ended already: no descriptor will announce it again.
/// @param moment  timers with an earlier one, a time-out that is due say, fire before
void UsbTransfers::reportLater(CFAbsoluteTime moment) {
    if (!mLoop) return;
    mLater = mLoop->CFRunLoopAddTimer(mMode, moment, 0, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->runRound([&] { self->report(); });
    });
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
    if (mClaim == Claim::Held) mClaim = Claim::Closing;
    // libusb can't be asked for events from within one of its call-backs.
    if (mRound == Round::None) release();
}

/// Outside any round, so that nothing that ends now is reported.
void UsbTransfers::release() noexcept {
    if (std::exchange(mClaim, Claim::Released) == Claim::Released) return;
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
    if (mClaim != Claim::Held) return;
    mLoop = mConnection->loops().current(*loop);
    mMode = mode;
    mWatch = mLoop->watchReadable(mode, mConnection->eventDescriptor(),
                                  [this] { runRound([this] { mConnection->handleEvents(); }); });
    if (first(State::Ended) != mTransfers.end()) reportLater(kLongPast);
}

void UsbTransfers::cancelled() {
    mLater.reset();
    mWatch.reset();
    mLoop.reset();
}

}  // namespace platform
