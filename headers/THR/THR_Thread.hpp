#pragma once

#include "THR/THR_Exception.hpp"

namespace thr {

class Stack_t;

/// Starts a thread that runs the entry function with the arguments and then releases its port. What the entry throws is
/// logged. Nobody joins it: it has to end before the process exits normally, which takes down what an exception
/// announces itself on.
/// @param entry      runs on the new thread, with a stack of its own
/// @param arguments  copied; the entry's address is left on top of the caller's stack
/// @throws thr::Exception_t  the system has no room for another thread
/// Any thread.
void StartThread(void (*entry)(Stack_t&), Stack_t& arguments);

/// Serves the calling thread's run loop in its default mode, where its messages arrive, for what waits already. What a
/// block of the loop throws passes through; messages throw nothing.
void ProcessMessageWithNoWait();

/// The same for one thing, which it waits for without limit. Blocks.
void ProcessMessageWithInfiniteWait();

/// The same until a moment. Blocks.
/// @param absoluteTime  on the platform's absolute clock, in seconds; one that has come returns at once
void ProcessMessageUntil(double absoluteTime);

}  // namespace thr
