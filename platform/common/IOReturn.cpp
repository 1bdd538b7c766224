#include "platform/IOReturn.hpp"

namespace platform {

const char* IOReturnText(IOReturn result) {
    switch (result) {
        case kIOReturnSuccess:
            return "success";
        case kIOReturnError:
            return "general failure";
        case kIOReturnNoMemory:
            return "out of memory";
        case kIOReturnNoDevice:
            return "the device has gone";
        case kIOReturnBadArgument:
            return "bad argument";
        case kIOReturnExclusiveAccess:
            return "held by another program";
        case kIOReturnUnsupported:
            return "not supported";
        case kIOReturnIOError:
            return "input/output failure on the bus";
        case kIOReturnNotOpen:
            return "not open";
        case kIOReturnTimeout:
            return "timed out";
        case kIOReturnNotPermitted:
            return "access denied";
        case kIOReturnOverrun:
            return "more data than room for it";
        case kIOReturnAborted:
            return "aborted";
        case kIOReturnNotFound:
            return "not found";
        case kIOUSBPipeStalled:
            return "the endpoint is halted";
        default:
            return "unknown result";
    }
}

}  // namespace platform
