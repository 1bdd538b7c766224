#pragma once

#include "platform/IOReturn.hpp"

#include <libusb.h>

namespace platform {

/// What libusb and the kernel say, in the platform's result codes. Any thread.

/// How a transfer ended. A short transfer is a success.
IOReturn IOReturnOfTransfer(libusb_transfer_status status);

/// What a libusb function returned; everything from 0 up is a success.
IOReturn IOReturnOfLibusb(int result);

/// What a system call left in errno.
IOReturn IOReturnOfErrno(int error);

}  // namespace platform
