#include "libs/IOU/impl/IOU_UsbLinkImpl.hpp"

namespace iou {

UsbLinkImpl_t::UsbLinkImpl_t(const std::string& registryPath, UsbLink_t::PacketCheckingMode_t /*mode*/,
                             UsbLink_t& owner)
    : mSession(registryPath, owner.DefaultTimeout()) {}

UsbLinkImpl_t::~UsbLinkImpl_t() = default;

}  // namespace iou
