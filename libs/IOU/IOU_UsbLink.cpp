#include "IOU/IOU_UsbLink.hpp"

#include "libs/IOU/impl/IOU_UsbLinkImpl.hpp"

namespace iou {

UsbLink_t::UsbLink_t(thr::CancelRequested_t& cancel, const std::string& registryPath, PacketCheckingMode_t mode,
                     win::Duration_t timeout)
    : mCancel(cancel), mDefaultTimeout(timeout), mImpl(new UsbLinkImpl_t(registryPath, mode, *this)) {}

UsbLink_t::~UsbLink_t() = default;

iol::Frame_t UsbLink_t::GetFrameWithTimeout(win::Duration_t timeout) {
    return mImpl->Session().GetFrameWithTimeout(timeout);
}

void UsbLink_t::SendFrameWithTimeout(const iol::Frame_t& frame, win::Duration_t timeout) {
    mImpl->Session().SendFrameWithTimeout(frame, Layer_t::Application, timeout);
}

std::uint32_t UsbLink_t::MaxPacketSize() const {
    return mImpl->Session().MaxPacketSize();
}

std::uint32_t UsbLink_t::UnitId() const {
    return mImpl->Session().UnitId();
}

}  // namespace iou
