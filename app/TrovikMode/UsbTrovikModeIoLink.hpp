#pragma once

#include "GLO/GLO_AutoPtr.hpp"
#include "IOA/IOA_ProductData.hpp"
#include "IOL/IOL_Link.hpp"
#include "app/TrovikMode/DeviceLock.hpp"
#include "app/Util/Error.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace ioa {
class Channel_t;
}

using ByteView = std::span<const unsigned char>;

/// The application's one way to a device: holds a USB link for its whole life and sends one command at a time over a
/// channel made for that command. No exception of the device library gets past sendIopCommand.
///
/// It belongs to the thread that made it, its destruction included, which closes the device.
class UsbTrovikModeIoLink {
  public:
    UsbTrovikModeIoLink(const UsbTrovikModeIoLink&) = delete;
    UsbTrovikModeIoLink& operator=(const UsbTrovikModeIoLink&) = delete;

    /// Opens the device at a registry path.
    /// @param path  nothing counts as a failure of the library
    /// @return null when the library reports a failure or another program resets the device, which has been logged
    /// @throws anything but a glo::Exception_t as it came: above all the integer 1 of a device that can't be opened
    /// Blocks for some seconds at most. Owner thread only.
    static std::unique_ptr<UsbTrovikModeIoLink> initWithPath(const std::optional<std::string>& path);

    /// A new link on the device at a registry path. The caller owns it.
    /// @throws glo::InvalidInput_t  no path; and whatever iou::UsbLink_t throws
    /// Blocks. Owner thread only.
    static glo::AutoPtr<iol::Link_t> getIolLinkForPath(const std::optional<std::string>& path);

    /// A new link on this object's own path.
    glo::AutoPtr<iol::Link_t> getIolLink() const { return getIolLinkForPath(mIoPath); }

    /// Identifies the device anew, then sends one command.
    /// @param command        the command's number
    /// @param data           its argument bytes
    /// @param awaitResponse  also wait for a packet of the command's number: 3 seconds, and up to twice that while
    ///                       other packets keep coming
    /// @param error          where to describe a failure; may be null, and then nothing is logged either
    /// @return true when the command has been sent, and answered if an answer was awaited
    /// Never throws. Blocks. Owner thread only.
    bool sendIopCommand(std::uint16_t command, ByteView data, bool awaitResponse, Error* error);

    /// Told, once a command has identified the device at a path and before the command leaves, what the device has said
    /// of itself. Nothing is asked for this, and what leaves the observer as an exception changes nothing.
    using IdentificationObserver = std::function<void(const std::string& path, const ioa::ProductData_t& product)>;

    /// Sets the observer of all links; empty for none. The one before may still be told of a command that is under way.
    /// Any thread. Callback on the command's thread.
    static void setIdentificationObserver(IdentificationObserver observer);

    /// What the device has said of itself when this link's first command identified it, as one line for the log; the
    /// first time only, empty afterwards and before. Owner thread only.
    std::string takeIdentification();

    /// Lets others open the device, another link of this process included, although this link is there still. For the
    /// time after the last command. Owner thread only.
    void giveUpLock() { mLock.reset(); }

    const std::string& ioPath() const { return mIoPath; }

    /// Always 0; nothing sets it.
    std::uint32_t unitId() const { return mUnitId; }

  private:
    UsbTrovikModeIoLink() = default;
    void keepIdentification(const ioa::Channel_t& channel);

    std::optional<DeviceLock> mLock;  ///< before the link: given up after it, unless earlier
    glo::AutoPtr<iol::Link_t> mLink;
    std::string mIoPath;
    std::uint32_t mUnitId = 0;
    std::optional<std::string> mIdentification;  ///< empty once it was taken
};
