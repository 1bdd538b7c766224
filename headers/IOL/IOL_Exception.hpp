#pragma once

#include "GLO/GLO_Exception.hpp"

#include <string>

namespace iol {

class Frame_t;

/// Failure of the link layer, and root of what the application protocol throws.
class Exception_t : public glo::CommunicationsError_t {
  public:
    Exception_t(const char* file, unsigned short line, const std::wstring& message);  ///< @plain
};

/// A frame whose payload isn't what its id promises. The message is the frame's dump.
class BadFrame_t : public Exception_t {
  public:
    BadFrame_t(const Frame_t& frame, const char* file, unsigned short line);  ///< announces itself without the dump
};

/// A transfer was abandoned.
class Abort_t : public Exception_t {
  public:
    /// Who gave up.
    enum Cause_t : unsigned int {
        gcSourceUnreadable = 0,   ///< the data source of a file send could not be read
        gcSenderAbandoned = 1,    ///< given up by the file sender
        gcProtocolAbandoned = 2,  ///< given up by the file transfer protocol
    };

    /// @plain
    /// @{
    Abort_t(const char* file, unsigned short line, Cause_t cause);
    Cause_t Cause() const { return mCause; }
    /// @}

  private:
    Cause_t mCause;
};

}  // namespace iol
