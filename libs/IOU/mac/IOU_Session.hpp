#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "IOL/IOL_Frame.hpp"
#include "IOU/IOU_Layer.hpp"
#include "WIN/WIN_Duration.hpp"
#include "libs/IOU/mac/IOU_PipeEvents.hpp"
#include "platform/CFRunLoop.hpp"
#include "platform/IOReturn.hpp"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace iou {

class Device_t;

/// The moment at which a wait of that length, begun now, ends; win::gcDurationInfinite lasts a year.
platform::CFAbsoluteTime ConvertDurationToAbsoluteTime(win::Duration_t duration);

/// One session with one opened device: frames to USB packets and back, and the waiting for either direction.
///
/// It belongs to the thread that constructed it. It waits by running that thread's loop in a mode of its own, so that
/// the device's completions are delivered inside these waits and nowhere else, and nothing else is delivered in them.
/// An error that a pipe reports stays: from then on every operation throws it.
///
/// Who knows whom. What stands below knows nobody above it, and tells what happens through the interface alone.
///
///     Session_t, which is a PipeEventsIntf_t          knows the device
///      └ owns Device_t                                knows the pipes and the interface
///          ├ owns OutPipe_t                           knows the interface
///          └ owns InPipe_t, the interrupt pipe        knows the interface
///              └ owns InPipe_t, the bulk pipe         knows the interface
class Session_t final : public PipeEventsIntf_t, private glo::NonCopyable_t {
  public:
    /// What may lie received and not yet fetched. Each packet counts its bytes and 64 more for its keeping. A device
    /// that talks and is not listened to loses its newest packets beyond this.
    static constexpr std::size_t gcMaxQueuedBytes = std::size_t{4} << 20;

    /// Opens the device and starts the session, asking again each 500 ms until the time is up.
    /// @param timeout  milliseconds, for the start, and again for each step after it
    /// @throws glo::Timeout_t       the device does not answer the start of the session, or does not take the question
    ///                              for its largest packet
    /// @throws iou::BadUsbDevice_t  a pipe reported an error
    /// @throws int                  gcDeviceUnusable: the device could not be opened
    /// Blocks. The calling thread becomes the owner thread.
    Session_t(const std::string& registryPath, win::Duration_t timeout);
    ~Session_t();

    /// Sends one frame and waits until the device has taken it.
    /// @param timeout  milliseconds; win::gcDurationInfinite waits until the write completes
    /// @throws glo::Timeout_t       not written in time; part of it may have left, the session stays usable
    /// @throws iou::BadUsbDevice_t  a pipe reported an error, now or earlier
    /// Blocks. Owner thread only.
    void SendFrameWithTimeout(const iol::Frame_t& frame, Layer_t layer, win::Duration_t timeout);

    /// Takes the oldest packet received, of whichever layer, or waits for one.
    /// @param timeout  milliseconds; win::gcDurationInfinite waits for a year
    /// @throws glo::Timeout_t       nothing came in time; the session stays usable
    /// @throws iou::BadUsbDevice_t  a pipe reported an error, now or earlier, whatever has been received
    /// Blocks. Owner thread only.
    iol::Frame_t GetFrameWithTimeout(win::Duration_t timeout);

    /// Waits until a packet is there or the time is up.
    /// @throws iou::BadUsbDevice_t  a pipe reported an error, now or earlier
    /// Blocks. Owner thread only.
    void WaitForFrameWithTimeout(win::Duration_t timeout);

    std::uint32_t UnitId() const { return mUnitId; }
    std::uint32_t MaxPacketSize() const { return mMaxPacketSize; }  ///< bytes of payload

    /// @throws iou::BadUsbDevice_t  an error has been reported
    void CheckForError() const;
    bool ErrorOccurred() const noexcept { return mError.has_value(); }

    /// Queues what a packet carries, as the frame that GetFrameWithTimeout hands out.
    void SavePacket(const UsbPacket_t& packet) override;
    void CompleteWrite() override { mWriteIsPending = false; }

    /// Records an error. The first one stays: later ones are its consequences.
    void ReportErrorWithCode(platform::IOReturn code, const char* file, std::uint16_t line) override;

    const std::string& RunLoopMode() const { return mRunLoopMode; }

  private:
    struct Error_t {
        platform::IOReturn code;  ///< 0 when none was given
        const char* file;
        std::uint16_t line;
    };
    struct Received_t {
        Layer_t layer;
        iol::Frame_t frame;
    };

    void Start(const std::string& registryPath, win::Duration_t timeout);
    std::optional<std::uint32_t> TryToStart();
    std::optional<std::uint32_t> Ask(std::uint16_t question, std::uint16_t answer, win::Duration_t timeout);
    void Abandon(const std::string& registryPath);
    void StartTimer(win::Duration_t duration);
    void StopTimer() { mTimer.reset(); }
    bool TimerIsRunning() const { return mTimer && mTimer->CFRunLoopTimerIsValid(); }
    template <typename IsPending>
    void WaitWhile(IsPending isPending, win::Duration_t timeout);
    Received_t TakePacket();
    void AssertOwnerThread() const;

    const std::thread::id mOwner = std::this_thread::get_id();
    const std::shared_ptr<platform::CFRunLoop> mRunLoop;  ///< the owner thread's
    const std::string mRunLoopMode;                       ///< this session's alone
    std::uint32_t mMaxPacketSize = 255;                   ///< as long as the device has told no other
    std::uint32_t mUnitId = 0;
    std::deque<Received_t> mReceived;      ///< oldest first
    std::size_t mQueuedBytes = 0;          ///< what mReceived counts for
    std::vector<unsigned char> mOutgoing;  ///< the packet that the port takes; its storage is kept
    bool mWriteIsPending = false;
    std::unique_ptr<platform::CFRunLoopTimer> mTimer;  ///< of the wait under way
    std::optional<Error_t> mError;                     ///< the first one reported
    std::unique_ptr<Device_t> mDevice;
};

}  // namespace iou
