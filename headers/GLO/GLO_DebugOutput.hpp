#pragma once

namespace glo {

class Exception_t;

/// Where exceptions announce themselves; win::DebugServer_t is one. Kept here so that the exceptions need not know of
/// the trace files above them.
class DebugOutputIntf_t {
  public:
    virtual ~DebugOutputIntf_t() = default;

    /// Writes one line about the exception (see ExceptionLine). Called from the exception's constructor, on the thread
    /// that raises it. What it throws is discarded.
    virtual void PrintException(const Exception_t& exception) = 0;
};

/// The process-wide debug output, win::DebugServer(). Any thread.
DebugOutputIntf_t& DefaultDebugOutput();

}  // namespace glo
