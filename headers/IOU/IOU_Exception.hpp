#pragma once

#include "GLO/GLO_Exception.hpp"

#include <cstdint>

namespace iou {

/// Failure of the USB transport.
class Exception_t : public glo::CommunicationsError_t {
  public:
    using glo::CommunicationsError_t::CommunicationsError_t;
};

/// The device is of no more use: one of its pipes, or its opening, reported an error. File and line are those of the
/// place that reported it; the message is empty. The session that threw it throws it again at every further operation.
class BadUsbDevice_t : public Exception_t {
  public:
    /// @plain
    BadUsbDevice_t(const char* file, std::uint16_t line) : Exception_t(file, line, {}) {}
};

}  // namespace iou
