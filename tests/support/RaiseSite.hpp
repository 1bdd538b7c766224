#pragma once

#include "GLO/GLO_Exception.hpp"

#include <exception>
#include <string>

namespace support {

/// "file line" of the exception of type E that the action ends with, "other, file line" of one of the library's that is
/// no E, and empty when it ends without one.
template <typename E>
std::string raisedAt(const auto& action) {
    try {
        action();
    } catch (const glo::Exception_t& exception) {
        const std::exception& any = exception;  // E may be the root itself
        return (dynamic_cast<const E*>(&any) ? "" : "other, ") + exception.File() + " " +
               std::to_string(exception.Line());
    }
    return {};
}

}  // namespace support
