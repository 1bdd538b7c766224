#include "IOA/IOA_Exception.hpp"

namespace ioa {

Exception_t::Exception_t(char const* file, unsigned short line, std::wstring const& message)
    : iol::Exception_t(file, line, message) {}

GftpException_t::GftpException_t(char const* file, unsigned short line, std::wstring const& message)
    : glo::Exception_t(file, line, message, {}) {}

}  // namespace ioa
