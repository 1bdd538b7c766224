#pragma once

#include "THR/THR_Exception.hpp"

namespace thr {

class Stack_t;

/// Starts a thread that runs the entry function with the arguments and then releases its port. What the entry throws is
/// logged. Nobody joins it: it has to end before the process exits normally, which takes down what an exception
/// announces itself on.
/// @param arguments  copied; the entry's address is left on top of the caller's stack
/// @throws thr::Exception_t  the system has no room for another thread
/// Any thread.
void StartThread(void (*entry)(Stack_t&), Stack_t& arguments);

/// Serve the calling thread's run loop in its default mode, where its messages arrive. What a block of the loop throws
/// passes through; messages throw nothing.
void ProcessMessageWithNoWait();        ///< handles what waits already
void ProcessMessageWithInfiniteWait();  ///< handles one thing, and waits for it without limit

/// @param absoluteTime  on the platform's absolute clock, in seconds; one that has come returns at once
void ProcessMessageUntil(double absoluteTime);

}  // namespace thr
