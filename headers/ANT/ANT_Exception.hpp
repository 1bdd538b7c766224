#pragma once

#include "GLO/GLO_Exception.hpp"

namespace ant {

/// A failure of the radio layer.
class Exception_t : public glo::CommunicationsError_t {
  public:
    using glo::CommunicationsError_t::CommunicationsError_t;
};

/// The peer rejected the authentication.
class AuthenticateReject_t : public Exception_t {
  public:
    /// @plain
    AuthenticateReject_t(const char* file, unsigned short line) : Exception_t(file, line, std::wstring()) {}
};

}  // namespace ant
