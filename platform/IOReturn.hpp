#pragma once

#include <cstdint>

namespace platform {

/// Result of a device operation. The numbers are the platform's own: traces and logs print them, and they must not
/// change from one implementation to the next.
using IOReturn = std::int32_t;

namespace detail {
constexpr IOReturn ioReturn(std::uint32_t value) {
    return static_cast<IOReturn>(value);
}
}  // namespace detail

inline constexpr IOReturn kIOReturnSuccess = 0;                                     ///< @plain
inline constexpr IOReturn kIOReturnError = detail::ioReturn(0xE00002BC);            ///< no closer word for it
inline constexpr IOReturn kIOReturnNoMemory = detail::ioReturn(0xE00002BD);         ///< out of memory
inline constexpr IOReturn kIOReturnNoDevice = detail::ioReturn(0xE00002C0);         ///< the device has gone
inline constexpr IOReturn kIOReturnBadArgument = detail::ioReturn(0xE00002C2);      ///< the caller's mistake
inline constexpr IOReturn kIOReturnExclusiveAccess = detail::ioReturn(0xE00002C5);  ///< somebody else holds it
inline constexpr IOReturn kIOReturnUnsupported = detail::ioReturn(0xE00002C7);      ///< not offered by this object
inline constexpr IOReturn kIOReturnIOError = detail::ioReturn(0xE00002CA);          ///< the bus reported a failure
inline constexpr IOReturn kIOReturnNotOpen = detail::ioReturn(0xE00002CD);          ///< open it first
inline constexpr IOReturn kIOReturnTimeout = detail::ioReturn(0xE00002D6);          ///< took too long
inline constexpr IOReturn kIOReturnNotPermitted = detail::ioReturn(0xE00002E2);     ///< access denied
inline constexpr IOReturn kIOReturnOverrun = detail::ioReturn(0xE00002E8);          ///< more data than room
inline constexpr IOReturn kIOReturnAborted = detail::ioReturn(0xE00002EB);          ///< AbortPipe ended it
inline constexpr IOReturn kIOReturnNotFound = detail::ioReturn(0xE00002F0);         ///< no such thing
inline constexpr IOReturn kIOUSBPipeStalled = detail::ioReturn(0xE000404F);         ///< the endpoint is halted

/// The result in words, for logs ("access denied"). Any thread.
const char* IOReturnText(IOReturn result);

}  // namespace platform
