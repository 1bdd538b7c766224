#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "IOU/IOU_UsbLink.hpp"
#include "libs/IOU/mac/IOU_Session.hpp"

#include <string>

namespace iou {

/// What a USB link hides: the session. Owned by the link.
class UsbLinkImpl_t : private glo::NonCopyable_t {
  public:
    /// Opens the device and the session, with the link's default time-out.
    /// @throws whatever iou::Session_t throws
    UsbLinkImpl_t(const std::string& registryPath, UsbLink_t::PacketCheckingMode_t /*mode*/, UsbLink_t& owner)
        : mSession(registryPath, owner.DefaultTimeout()) {}
    virtual ~UsbLinkImpl_t() = default;

    Session_t& Session() { return mSession; }

  private:
    Session_t mSession;
};

}  // namespace iou
