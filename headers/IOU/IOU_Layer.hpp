#pragma once

#include <cstdint>

namespace iou {

/// First byte of a USB packet: who the packet is for.
enum class Layer_t : std::uint8_t {
    UsbProtocol = 0,   ///< the session's own control packets
    Application = 20,  ///< every frame of the link layer
};

}  // namespace iou
