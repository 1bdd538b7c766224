#include "IOL/IOL_Exception.hpp"

#include "IOL/IOL_Frame.hpp"

#include <sstream>

namespace iol {

Exception_t::Exception_t(const char* file, unsigned short line, const std::wstring& message)
    : glo::CommunicationsError_t(file, line, message) {}

// Announced while the message is still empty: the dump belongs to whoever reports the failure, not to the trace.
BadFrame_t::BadFrame_t(const Frame_t& frame, const char* file, unsigned short line)
    : Exception_t(file, line, std::wstring()) {
    std::wostringstream dump;
    frame.Write(dump);
    SetMessage(dump.str());
}

Abort_t::Abort_t(const char* file, unsigned short line, Cause_t cause)
    : Exception_t(file, line, std::wstring()), mCause(cause) {}

}  // namespace iol
