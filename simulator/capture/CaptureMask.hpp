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
/// - packets of other devices go; the requests that give our devices their addresses stay;
/// - ids of requests, which are addresses in the kernel, become 1, 2, 3 and so on;
/// - a unit id becomes another number of as many digits, in the packets that tell it and, from 65536 on, also as a
///   number or in digits in the data of packets that stay open, and in string descriptors;
/// - the serial number of the USB descriptors becomes X and a number, unless it is a unit id from 65536 on; one of four
///   characters or more also where it stands in those data;
/// - the owner's name, the position and all records that this program does not know become X and a number, text by text
///   and value by value, which is whatever stands between two 0 bytes. So do requests to endpoint 0 that USB does not
///   define, and the device's container id;
/// - a packet's data of two bytes or less stays: it is a count or a code.
///
/// @throws CaptureError  there is no device of ours in it
MaskedCapture masked(const UsbCapture& capture);

}  // namespace simulator
