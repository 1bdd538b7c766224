#pragma once

#include "GLO/GLO_Exception.hpp"

namespace thr {

class CancelRequested_t;

/// Sleeps, through the cancellation test's own wait.
/// @param milliseconds  0 returns at once
/// @throws glo::Terminate_t  cancelled during the delay
/// Blocks. Any thread.
void Delay(unsigned int milliseconds, const CancelRequested_t& cancel);

}  // namespace thr
