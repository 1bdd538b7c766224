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

/// Gives the output to announce an exception on. Called on the thread that raises it; what it throws is discarded.
using DebugOutputSource_t = DebugOutputIntf_t& (*)();

/// Says where exceptions that name no output announce themselves; the trace files do so in a program that links them.
/// Without it such exceptions announce themselves nowhere. Before any thread.
/// @param output  asked anew for each exception
void SetDebugOutput(DebugOutputSource_t output) noexcept;

}  // namespace glo
