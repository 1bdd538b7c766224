#pragma once

#include "platform/IOUSB.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/usb/UsbConnection.hpp"

#include <libusb.h>

#include <cstdint>
#include <exception>
#include <list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// A claimed interface and its asynchronous transfers. A transfer goes from idle to in flight (the kernel's) to done
/// (waiting to be reported) and back. Completions are reported from the run loop's mode that Schedule named, right from
/// libusb's own call-back: a read that a completion starts can then be served in the same round. What a completion
/// throws does not pass through libusb; it leaves the run once libusb has returned, and the rest is reported later. A
/// failure that libusb finds behind something that has just been reported waits for the next run, see IOUSB.hpp, and so
/// does that of a transfer which a completion starts when the device has gone.
/// Shared by the interface and its event source. Owner thread only.
class UsbTransfers final : public std::enable_shared_from_this<UsbTransfers> {
  public:
    /// @param interface  number of the interface, which has been claimed
    UsbTransfers(std::shared_ptr<UsbConnection> connection, int interface)
        : mConnection(std::move(connection)), mInterface(interface) {}
    ~UsbTransfers() { release(); }
    UsbTransfers(const UsbTransfers&) = delete;
    UsbTransfers& operator=(const UsbTransfers&) = delete;

    /// What to do once a transfer has ended.
    struct Completion {
        IOAsyncCallback1 callback = nullptr;
        void* refCon = nullptr;
        std::span<unsigned char> destination;  ///< where a read's bytes go, right before the call-back
    };

    /// @param address  endpoint with its direction in bit 7
    /// @param type     LIBUSB_TRANSFER_TYPE_BULK or _INTERRUPT
    /// @param bytes    of a write; taken over. A read takes up to completion.destination.size()
    IOReturn submit(std::uint8_t address, std::uint8_t type, std::span<const unsigned char> bytes,
                    const Completion& completion);

    /// Asks for every transfer of the endpoint to end; each is reported with kIOReturnAborted, unless it has made it.
    void abort(std::uint8_t address);

    /// Ends every transfer, waits until the kernel has given it back, and releases the interface; nothing is reported
    /// any more. Called by a completion, it waits only once that has returned. Blocks, in practice for as long as it
    /// takes the kernel to cancel.
    void close();

    void schedule(const std::shared_ptr<AsioRunLoop>& loop, std::string_view mode);
    void unschedule();

  private:
    struct Transfer {
        struct Free {
            void operator()(libusb_transfer* transfer) const { libusb_free_transfer(transfer); }
        };
        std::unique_ptr<libusb_transfer, Free> libusb;
        UsbTransfers* owner = nullptr;
        std::list<Transfer>::iterator self;
        std::vector<unsigned char> data;
        Completion completion;
    };

    static void LIBUSB_CALL ended(libusb_transfer* transfer);
    void handleEvents();
    void reportLater(CFAbsoluteTime moment);
    void endRun();
    void report();
    void takeBack();
    void release();

    const std::shared_ptr<UsbConnection> mConnection;
    const int mInterface;
    bool mClosed = false;
    bool mReleased = false;
    bool mInLibusb = false;     // handling events for the loop: transfers that end are reported
    bool mReports = false;      // completions, just now
    bool mHasReported = false;  // in this round
    bool mHoldsBack = false;    // a failure waits for the next run, and with it all that ended after it
    std::exception_ptr mThrown;
    std::list<Transfer> mIdle, mInFlight, mDone;
    std::list<Transfer> mRefused;        // while reporting; done from the end of the run on
    std::shared_ptr<AsioRunLoop> mLoop;  // while scheduled
    std::string mMode;
    std::unique_ptr<DescriptorWatch> mWatch;
    std::unique_ptr<CFRunLoopTimer> mLater;  // reports what no descriptor will announce again
};

}  // namespace platform
