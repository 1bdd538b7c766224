#pragma once

#include "platform/IOUSB.hpp"
#include "platform/common/Release.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/usb/UsbConnection.hpp"

#include <libusb.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform {

/// A claimed interface and its asynchronous transfers. A transfer is made by its submission and lives until it has been
/// reported, or until the interface has taken it back:
///
///     submit ---> InFlight ---- libusb's call-back ----> Ended ---> reported, freed
///        |                                                 ^
///        +--> Refused ---------- end of the round ---------+
///
/// In flight it is the kernel's, which writes into its bytes: it is cancelled and waited for, never freed. Refused is
/// one that a completion has started on a device that has gone.
///
/// Completions are reported in rounds. A round is one run of the loop's mode in which libusb's descriptor is readable
/// or something is left over from the round before:
///
///     None ---> Quiet ---- a completion ----> HasReported ---- a failure comes, ----> HoldsBack
///      ^                                                    or a completion throws        |
///      +------------------------------- the run ends -------------------------------------+
///
/// Within it a completion runs right from libusb's call-back, so that a read which it starts can be served in the same
/// round. Three rules hold:
/// - What has ended is reported in the order in which it ended.
/// - A failure is only ever the first that a round reports, see IOUSB.hpp. For the same reason a refused transfer has
///   not ended before the round is over.
/// - What a completion throws does not pass through libusb, which is C: it leaves the run once libusb has returned, and
///   what is left over gets a round of its own.
///
/// This is also the interface's event source: shared by the interface and the loop that it is added to. Owner thread
/// only.
class UsbTransfers final : public CFRunLoopSource, public std::enable_shared_from_this<UsbTransfers> {
  public:
    /// @param interface  number of the interface, which has been claimed
    UsbTransfers(std::shared_ptr<UsbConnection> connection, int interface)
        : mConnection(std::move(connection)), mInterface(interface) {}
    ~UsbTransfers() override { release(); }
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
    /// any more. Called by a completion, it waits only once the round is over. Blocks, in practice for as long as it
    /// takes the kernel to cancel.
    void close() noexcept;

    void scheduled(const std::shared_ptr<CFRunLoop>& loop, std::string_view mode) override;
    void cancelled() override;

  private:
    enum class State { InFlight, Ended, Refused };
    enum class Round { None, Quiet, HasReported, HoldsBack };
    enum class Claim { Held, Closing, Released };  ///< Closing: closed by a completion, whose round is not over yet

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
    void runRound(const std::function<void()>& work);
    void report();
    void reportLater(CFAbsoluteTime moment);
    void release() noexcept;

    const std::shared_ptr<UsbConnection> mConnection;
    const int mInterface;
    Claim mClaim = Claim::Held;
    Round mRound = Round::None;
    std::exception_ptr mThrown;          // by a completion of this round
    std::list<Transfer> mTransfers;      // of the ended ones, the one that ended first stands first
    std::shared_ptr<AsioRunLoop> mLoop;  // while scheduled
    std::string mMode;
    std::unique_ptr<DescriptorWatch> mWatch;
    std::unique_ptr<CFRunLoopTimer> mLater;  // a round for what no descriptor will announce again
};

}  // namespace platform
