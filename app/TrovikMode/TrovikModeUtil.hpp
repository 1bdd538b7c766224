#pragma once

#include "GLO/GLO_Exception.hpp"
#include "IOA/IOA_Channel.hpp"
#include "app/Support/ErrorCatalogue.hpp"
#include "app/Util/Error.hpp"

#include <cstdint>
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

    /// What an exception of the library that ended a command, or the making of a link, says about the device.
    /// @param path  the device's, by which a connection that fails is told from a device that has gone
    /// Any thread.
    static Cause causeOf(const glo::Exception_t& exception, const std::string& path);

    /// What a device has said of itself, as one line for the log, whatever characters it sends. Nothing is asked for
    /// it.
    /// @param unitId  of the link
    /// Any thread.
    static std::string identificationLine(const std::string& path, std::uint32_t unitId, const ioa::Channel_t& channel);
};
