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
    if (mIdle.empty()) {
        Transfer& made = mIdle.emplace_back();
        made.libusb.reset(libusb_alloc_transfer(0));
        made.owner = this;
        made.self = mIdle.begin();
        if (!made.libusb) {
            mIdle.clear();
            return kIOReturnNoMemory;
        }
    }
    Transfer& transfer = mIdle.front();
    transfer.data.assign(bytes.begin(), bytes.end());
    if (address & LIBUSB_ENDPOINT_IN) transfer.data.resize(completion.destination.size());
    transfer.completion = completion;
    libusb_fill_bulk_transfer(transfer.libusb.get(), mConnection->handle(), address, transfer.data.data(),
                              static_cast<int>(transfer.data.size()), &ended, &transfer, kNoTimeout);
    transfer.libusb->type = type;
    const int result = libusb_submit_transfer(transfer.libusb.get());
    if (result == LIBUSB_SUCCESS) {
        mInFlight.splice(mInFlight.end(), mIdle, transfer.self);
    } else if (result == LIBUSB_ERROR_NO_DEVICE && mReports) {
        // Whoever is being told of a success must not learn in the same run that the device has gone.
        transfer.libusb->status = LIBUSB_TRANSFER_NO_DEVICE;
        transfer.libusb->actual_length = 0;
        mRefused.splice(mRefused.end(), mIdle, transfer.self);
        return kIOReturnSuccess;
    }
    return IOReturnOfLibusb(result);
}

void UsbTransfers::ended(libusb_transfer* transfer) {
    auto& ended = *static_cast<Transfer*>(transfer->user_data);
    UsbTransfers& self = *ended.owner;
    self.mDone.splice(self.mDone.end(), self.mInFlight, ended.self);
    if (!self.mInLibusb || self.mThrown || self.mHoldsBack) return;
    const bool failed = transfer->status != LIBUSB_TRANSFER_COMPLETED && transfer->status != LIBUSB_TRANSFER_CANCELLED;
    if (failed && self.mHasReported) {
        self.mHoldsBack = true;
        return;
    }
    self.mHasReported = true;
    try {
        self.report();
    } catch (...) {
        self.mThrown = std::current_exception();  // libusb is C: nothing may be thrown through it
    }
}

void UsbTransfers::handleEvents() {
    const auto self = shared_from_this();  // a completion may let go of the interface
    mHasReported = mHoldsBack = false;
    mInLibusb = true;
    mConnection->handleEvents();
    mInLibusb = false;
    if (mClosed) release();
    endRun();
    if (mThrown) std::rethrow_exception(std::exchange(mThrown, nullptr));
}

void UsbTransfers::abort(std::uint8_t address) {
    for (auto& transfer : mInFlight) {
        // One that has ended in the meantime is not found, which is as good.
        if (transfer.libusb->endpoint == address) libusb_cancel_transfer(transfer.libusb.get());
    }
}

void UsbTransfers::takeBack() {
    for (auto& transfer : mInFlight) libusb_cancel_transfer(transfer.libusb.get());
    const auto deadline = std::chrono::steady_clock::now() + kTakeBackLimit;
    while (!mInFlight.empty() && std::chrono::steady_clock::now() < deadline) {
        if (!mConnection->handleEvents(std::chrono::milliseconds(100))) break;
    }
    mIdle.splice(mIdle.end(), mDone);
    mIdle.splice(mIdle.end(), mRefused);
    if (mInFlight.empty()) return;
    // The kernel may still write into them: memory is given up rather than taken back from under it.
    NSLog("%zu USB transfers did not come back and are left behind.\n", mInFlight.size());
    new std::list<Transfer>(std::move(mInFlight));
    mInFlight.clear();
}

void UsbTransfers::close() {
    mClosed = true;
    unschedule();
    if (!mInLibusb) release();
}

void UsbTransfers::release() {
    if (std::exchange(mReleased, true)) return;
    takeBack();
    libusb_release_interface(mConnection->handle(), mInterface);
}

void UsbTransfers::schedule(const std::shared_ptr<AsioRunLoop>& loop, std::string_view mode) {
    if (mClosed) return;
    mLoop = loop;
    mMode = mode;
    mWatch = loop->watchReadable(mode, mConnection->eventDescriptor(), [this] { handleEvents(); });
    if (!mDone.empty()) reportLater(kLongPast);
}

void UsbTransfers::unschedule() {
    mLater.reset();
    mWatch.reset();
    mLoop.reset();
}

/// For what is done already: no descriptor will announce it again.
/// @param moment  timers with an earlier one, a time-out that is due say, fire before
void UsbTransfers::reportLater(CFAbsoluteTime moment) {
    if (!mLoop) return;
    mLater = mLoop->CFRunLoopAddTimer(mMode, moment, 0, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        try {
            self->report();
        } catch (...) {
            self->endRun();
            throw;
        }
        self->endRun();
    });
}

/// What is left over waits for the next run. What came from the kernel is still in time for a time-out that is due by
/// now; a refused transfer is not, or completions that start another one each time would keep time-outs off for ever.
void UsbTransfers::endRun() {
    const CFAbsoluteTime moment = mDone.empty() ? CFAbsoluteTimeGetCurrent() : kLongPast;
    mDone.splice(mDone.end(), mRefused);
    if (!mDone.empty()) reportLater(moment);
}

void UsbTransfers::report() {
    // Nested where a completion runs the loop again.
    const struct Restore {
        bool& reports;
        const bool before;
        ~Restore() { reports = before; }
    } restore{mReports, std::exchange(mReports, true)};
    while (mLoop && !mDone.empty()) {
        Transfer& transfer = mDone.front();
        const Completion completion = transfer.completion;
        const std::size_t length = static_cast<std::size_t>(std::max(transfer.libusb->actual_length, 0));
        const IOReturn result = IOReturnOfTransfer(transfer.libusb->status);
        std::copy_n(transfer.data.begin(), std::min(length, completion.destination.size()),
                    completion.destination.begin());
        mIdle.splice(mIdle.begin(), mDone, transfer.self);
        completion.callback(completion.refCon, result, reinterpret_cast<void*>(length));
    }
}

}  // namespace platform
