#pragma once

#include "GLO/GLO_AutoPtr.hpp"
#include "IOL/IOL_Frame.hpp"
#include "IOL/IOL_Link.hpp"
#include "IOU/IOU_Exception.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "WIN/WIN_Duration.hpp"

#include <cstdint>
#include <string>

namespace iou {

class UsbLinkImpl_t;

/// The link over a device attached by USB. Holds the device open, and a session with it, for as long as it lives.
///
/// It belongs to the thread that constructed it: that thread's run loop delivers what the device does, and only while
/// the thread is inside one of the calls below. Every call, the destructor included, must come from that thread.
class UsbLink_t : public iol::Link_t {
  public:
    /// How strictly packets are checked. This link checks all of them in every mode; the type is there for its callers.
    enum PacketCheckingMode_t { PacketCheckingModeDefault = 0 };

    /// Opens the device and starts a session with it.
    /// @param cancel        held by reference for the life of the link; this link's own operations do not consult it
    /// @param registryPath  the device's path, as AttachedDevices() gave it
    /// @param mode          of no effect, see above
    /// @param timeout       milliseconds; how long to go on asking for a session, and the limit of each answer after it
    /// @throws glo::Timeout_t       the device does not answer the start of the session, or does not take the question
    ///                              for its largest packet
    /// @throws iou::BadUsbDevice_t  a pipe reported an error
    /// @throws int                  always 1: the device could not be opened; the system log says why
    /// Whatever is thrown, the device has been closed again. Blocks. Owner thread only.
    UsbLink_t(thr::CancelRequested_t& cancel, const std::string& registryPath,
              PacketCheckingMode_t mode = PacketCheckingModeDefault, win::Duration_t timeout = iol::gcDefaultTimeout);

    /// Ends the session and closes the device; transfers under way are taken back. Owner thread only.
    ~UsbLink_t() override;

    /// Waits for the next packet from the device, whatever its layer.
    /// @param timeout  milliseconds; win::gcDurationInfinite waits for a year
    /// @throws glo::Timeout_t       nothing came in time; the session stays usable
    /// @throws iou::BadUsbDevice_t  a pipe reported an error, now or earlier
    /// Blocks. Owner thread only.
    iol::Frame_t GetFrameWithTimeout(win::Duration_t timeout) override;

    /// Sends one frame on the application layer and waits until the device has taken it.
    /// @param timeout  milliseconds; win::gcDurationInfinite waits until the write completes
    /// @throws glo::Timeout_t       not written in time; part of it may have left, the session stays usable
    /// @throws iou::BadUsbDevice_t  a pipe reported an error, now or earlier
    /// Blocks. Owner thread only.
    void SendFrameWithTimeout(const iol::Frame_t& frame, win::Duration_t timeout) override;

    /// Bytes of payload that one frame may carry: what the device said at the start of the session, else 255. Never
    /// blocks. Owner thread only.
    std::uint32_t MaxPacketSize() const override;

    /// The number by which the device called itself at the start of the session. Never blocks. Owner thread only.
    std::uint32_t UnitId() const;

    /// What the constructor was given, in milliseconds.
    win::Duration_t DefaultTimeout() const { return mDefaultTimeout; }

  private:
    [[maybe_unused]] thr::CancelRequested_t& mCancel;  ///< held, and read by nothing: see the constructor
    win::Duration_t mDefaultTimeout;
    glo::AutoPtr<UsbLinkImpl_t> mImpl;
};

}  // namespace iou
