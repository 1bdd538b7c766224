#pragma once

#include "GLO/GLO_Exception.hpp"

namespace win {

/// A failure of the platform layer.
class Error_t : public glo::Exception_t {
  public:
    /// @plain
    Error_t(const char* file, unsigned short line) : glo::Exception_t(file, line, std::wstring(), std::string()) {}
};

/// A failure of the platform layer with a file.
class FileError_t : public glo::FileError_t {
  public:
    using glo::FileError_t::FileError_t;
};

/// A failure of the settings store.
class RegException_t : public glo::Exception_t {
  public:
    /// @plain
    RegException_t(const char* file, unsigned short line, const std::wstring& message)
        : glo::Exception_t(file, line, message, std::string()) {}
};

/// A settings value that could not be read.
class RegError_t : public RegException_t {
  public:
    using RegException_t::RegException_t;
};

}  // namespace win
