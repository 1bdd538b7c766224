#include "IOA/IOA_Exception.hpp"

namespace ioa {

Exception_t::Exception_t(const char* file, unsigned short line, const std::wstring& message)
    : iol::Exception_t(file, line, message) {}

GftpException_t::GftpException_t(const char* file, unsigned short line, const std::wstring& message)
    : glo::Exception_t(file, line, message, {}) {}

}  // namespace ioa
