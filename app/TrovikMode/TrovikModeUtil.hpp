#pragma once

#include "GLO/GLO_Exception.hpp"
#include "app/Util/Error.hpp"

#include <string>

/// Domain of every error that a command to a device ends with.
inline constexpr const char* NonvolToolErrorDomain = "NonvolToolErrorDomain";

/// Turns the library's exceptions into error objects.
class TrovikModeUtil {
  public:
    /// Describes a failure by its message and by where and why the exception was raised, logs the description as an
    /// error, and stores it. What the user information held already, other than the description, is kept.
    /// @param error  where to store it; null does nothing at all, not even log
    /// Any thread.
    static void populateError(Error* error, long code, const std::string& message, const glo::Exception_t& exception);
};
