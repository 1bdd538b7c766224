#include "platform/linux/usb/UsbErrors.hpp"

#include <cerrno>

namespace platform {

// No switch over an enumeration has a default, so that the compiler names a value that a new libusb brings.

IOReturn IOReturnOfTransfer(libusb_transfer_status status) {
    switch (status) {
        case LIBUSB_TRANSFER_COMPLETED:
            return kIOReturnSuccess;
        case LIBUSB_TRANSFER_ERROR:
            return kIOReturnIOError;
        case LIBUSB_TRANSFER_TIMED_OUT:
            return kIOReturnTimeout;
        case LIBUSB_TRANSFER_CANCELLED:
            return kIOReturnAborted;
        case LIBUSB_TRANSFER_STALL:
            return kIOUSBPipeStalled;
        case LIBUSB_TRANSFER_NO_DEVICE:
            return kIOReturnNoDevice;
        case LIBUSB_TRANSFER_OVERFLOW:
            return kIOReturnOverrun;
    }
    return kIOReturnError;
}

IOReturn IOReturnOfLibusb(int result) {
    if (result >= 0) return kIOReturnSuccess;
    switch (static_cast<libusb_error>(result)) {
        case LIBUSB_SUCCESS:
            return kIOReturnSuccess;
        case LIBUSB_ERROR_IO:
            return kIOReturnIOError;
        case LIBUSB_ERROR_INVALID_PARAM:
            return kIOReturnBadArgument;
        case LIBUSB_ERROR_ACCESS:
            return kIOReturnNotPermitted;
        case LIBUSB_ERROR_NO_DEVICE:
            return kIOReturnNoDevice;
        case LIBUSB_ERROR_NOT_FOUND:
            return kIOReturnNotFound;
        case LIBUSB_ERROR_BUSY:
            return kIOReturnExclusiveAccess;
        case LIBUSB_ERROR_TIMEOUT:
            return kIOReturnTimeout;
        case LIBUSB_ERROR_OVERFLOW:
            return kIOReturnOverrun;
        case LIBUSB_ERROR_PIPE:
            return kIOUSBPipeStalled;
        case LIBUSB_ERROR_INTERRUPTED:
            return kIOReturnAborted;
        case LIBUSB_ERROR_NO_MEM:
            return kIOReturnNoMemory;
        case LIBUSB_ERROR_NOT_SUPPORTED:
            return kIOReturnUnsupported;
        case LIBUSB_ERROR_OTHER:
            return kIOReturnError;
    }
    return kIOReturnError;
}

IOReturn IOReturnOfErrno(int error) {
    switch (error) {
        case 0:
            return kIOReturnSuccess;
        case EACCES:
        case EPERM:
            return kIOReturnNotPermitted;
        case ENOENT:
        case ENODEV:
        case ENXIO:
        case ESHUTDOWN:
            return kIOReturnNoDevice;
        case EBUSY:
            return kIOReturnExclusiveAccess;
        case ENOMEM:
            return kIOReturnNoMemory;
        case EINVAL:
            return kIOReturnBadArgument;
        case ETIMEDOUT:
            return kIOReturnTimeout;
        case EPIPE:
            return kIOUSBPipeStalled;
        case EOVERFLOW:
            return kIOReturnOverrun;
        case EIO:
        case EPROTO:
        case EILSEQ:
            return kIOReturnIOError;
        default:
            return kIOReturnError;
    }
}

}  // namespace platform
