#pragma once

namespace win {

/// Marks that this thread is making one of the process-wide objects that the debug server is made from: settings,
/// metadata. An exception raised meanwhile announces itself on the debug server, whose own first use would come back to
/// the object that is being made and wait for ever; DebugServer() answers with a switched-off stand-in instead.
class FirstUseScope_t {
  public:
    FirstUseScope_t() { ++gDepth; }
    ~FirstUseScope_t() { --gDepth; }
    FirstUseScope_t(const FirstUseScope_t&) = delete;
    FirstUseScope_t& operator=(const FirstUseScope_t&) = delete;

    static bool IsInside() { return gDepth > 0; }

  private:
    static inline thread_local int gDepth = 0;
};

}  // namespace win
