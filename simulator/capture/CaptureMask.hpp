#pragma once

#include "simulator/capture/CapturedDevice.hpp"
#include "simulator/capture/UsbCapture.hpp"

#include <cstddef>

namespace simulator {

/// A capture that may be shown to others, and what was taken out of it.
struct MaskedCapture {
    UsbCapture capture;
    std::size_t removed = 0;  ///< packets of other devices
    std::size_t masked = 0;   ///< values, equal ones counted once
};

/// Leaves of a capture what passed between the host and our devices, and of that nothing that tells whose it is. Equal
/// values stay equal, lengths and the protocol's structure stay, so that the result can be dissected and played back:
///
///  - of the bus, packets of other devices go, the setting of our devices' addresses stays; requests, which are
///  addresses
///    in the kernel, are numbered;
///  - a unit id, in the packets that tell it, becomes another number of as many digits; so does one that stands in
///    the data of any packet, as a number or in digits. The serial number of the USB descriptors becomes X and a
///    number;
///  - the owner's name, the position and all records that this program does not know become X and a number, text by
///  text
///    and value by value: whatever stands between two 0 bytes. Data of two bytes or less stays, it is a count or a
///    code.
///
/// @throws CaptureError  there is no device of ours in it
MaskedCapture masked(const UsbCapture& capture);

}  // namespace simulator
