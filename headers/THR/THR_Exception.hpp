#pragma once

#include "GLO/GLO_Exception.hpp"

namespace thr {

/// A threading failure.
class Exception_t : public glo::Exception_t {
  public:
    /// @plain
    Exception_t(const char* file, unsigned short line, const std::wstring& message)
        : glo::Exception_t(file, line, message, std::string()) {}
};

/// A thread is told to stop: thrown by a block of its run loop, it ends Object_t::RunLoop().
class AbortThread_t : public Exception_t {
  public:
    /// @plain
    AbortThread_t(const char* file, unsigned short line) : Exception_t(file, line, std::wstring()) {}
};

/// The argument stack of a call from another thread is malformed.
class BadStackException_t : public Exception_t {
  public:
    using Exception_t::Exception_t;
};

}  // namespace thr
