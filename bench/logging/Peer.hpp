#pragma once

#include <memory>
#include <string>

/// One way to log: this system's, or the one that it is measured against. Two outputs, a file and the standard error
/// stream, and the same line in both kinds. The owner makes and destroys it; call() is for any thread.
class Peer {
  public:
    virtual ~Peer() = default;
    virtual const char* name() const = 0;
    virtual void call(int number, int thread) = 0;  ///< one log call, asynchronous or not as the peer was made
    virtual void flush() = 0;                       ///< returns when everything is with the system
};

enum class PeerMode {
    Asynchronous,          ///< a queue of 1000; callers wait for room
    Synchronous,           ///< the call returns when both outputs have had the line
    SynchronousAndFlushed  ///< and the line is with the system, so that it outlives the process
};

std::unique_ptr<Peer> makeOwnPeer(PeerMode mode, const std::string& file);
std::unique_ptr<Peer> makeSpdlogPeer(PeerMode mode, const std::string& file);
