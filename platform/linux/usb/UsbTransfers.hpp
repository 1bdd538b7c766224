#pragma once

#include "platform/IOUSB.hpp"
#include "platform/common/Release.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/usb/UsbConnection.hpp"

#include <libusb.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// A claimed interface and its asynchronous transfers. A transfer is made by its submission and lives until it has been
/// reported, or until the interface has taken it back:
///
///     submit ---> InFlight ---- libusb's call-back ----> Ended ---> reported, freed
///        |                                                 ^
///        +--> Refused ------- the loop's next look --------+
///
/// In flight it is the kernel's, which writes into its bytes: it is cancelled and waited for, never freed. Refused is
/// one that a completion has started on a device that has gone.
///
/// It is what the loop's mode waits in: the wait is libusb's own, whose call-backs only note what has ended.
/// Completions are reported from the loop, what has ended in one run of it. Three rules hold:
/// - What has ended is reported in the order in which it ended.
/// - A failure is only ever the first that a run reports, see IOUSB.hpp; else it is the first of the next. For the same
///   reason a refused transfer has not ended before the loop looks again.
/// - What a completion throws leaves the run, and the rest is reported in the next.
///
/// This is also the interface's event source: shared by the interface and the loop that it is added to. Owner thread
/// only.
class UsbTransfers final : public CFRunLoopSource, public OwnWait, public std::enable_shared_from_this<UsbTransfers> {
  public:
    /// @param interface  number of the interface, which has been claimed
    UsbTransfers(std::shared_ptr<UsbConnection> connection, int interface)
        : mConnection(std::move(connection)), mInterface(interface) {}
    ~UsbTransfers() override { close(); }
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
    /// any more. Blocks, in practice for as long as it takes the kernel to cancel.
    void close() noexcept;

    void scheduled(const std::shared_ptr<CFRunLoop>& loop, std::string_view mode) override;
    void cancelled() override;

    void wait(std::chrono::microseconds limit) override;
    bool isReady() const override {
        return std::ranges::find(mTransfers, State::Ended, &Transfer::state) != mTransfers.end();
    }
    void serve() override;
    void interrupt() noexcept override { mConnection->interrupt(); }

  private:
    enum class State { InFlight, Ended, Refused };

    struct Transfer {
        State state = State::InFlight;
        std::unique_ptr<libusb_transfer, Release<libusb_free_transfer>> libusb{libusb_alloc_transfer(0)};
        UsbTransfers* owner = nullptr;
        std::list<Transfer>::iterator self;
        std::vector<unsigned char> data;
        Completion completion;
    };

    static void LIBUSB_CALL ended(libusb_transfer* transfer);
    std::list<Transfer>::iterator first(State state);
    void end(std::list<Transfer>::iterator transfer);
    void report();

    const std::shared_ptr<UsbConnection> mConnection;
    const int mInterface;
    bool mIsClaimed = true;
    bool mIsReporting = false;           // a completion is under way
    std::list<Transfer> mTransfers;      // of the ended ones, the one that ended first stands first
    std::shared_ptr<AsioRunLoop> mLoop;  // while scheduled
    std::string mMode;
};

}  // namespace platform
