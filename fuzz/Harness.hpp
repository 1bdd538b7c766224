#pragma once

#include "GLO/GLO_Exception.hpp"
#include "platform/Clock.hpp"

#include <cstddef>

namespace fuzz {

/// Ends the process with a message unless the condition holds: what a fuzzer reports as a finding.
void require(bool condition, const char* what);

/// Switches all traces of the library on, for the rest of the process, and lets them end nowhere. Before the library
/// has traced anything; further calls do nothing.
void traceIntoNothing();

/// Holds what the library does to its limits: simulated time, heap, and nothing thrown but what the headers say.
class Limits {
  public:
    explicit Limits(platform::Clock& clock) : mClock(clock) {}

    /// @param seconds  most simulated time that the action may take
    /// @param bytes    most heap that may be held at one moment of it, above what was held at its beginning
    /// @return false when it ended with one of the library's exceptions
    template <typename Action>
    bool hold(double seconds, std::size_t bytes, const char* what, Action action) {
        begin();
        bool isDone = true;
        try {
            action();
        } catch (const glo::Exception_t&) {
            isDone = false;
        } catch (int) {  // iou::gcDeviceUnusable
            isDone = false;
        }
        end(seconds, bytes, what);
        return isDone;
    }

  private:
    void begin();
    void end(double seconds, std::size_t bytes, const char* what);

    platform::Clock& mClock;
    double mStart = 0;
};

}  // namespace fuzz
