#pragma once

#include "platform/common/FileDescriptor.hpp"

#include <QObject>
#include <QSocketNotifier>

#include <functional>
#include <memory>
#include <string>

/// Tells of the signals by which the system, a closed terminal or a person ends programs before the process goes with
/// them, and logs the session manager's word that the session is about to end, after which it may go on all the same. A
/// signal is told of on the main thread and then does what it does without this; where the main thread does not get to
/// that, a second one of the kind does it at once. One at a time, for the life of the process; main thread only.
class SessionEnd final : public QObject {
  public:
    /// @param observer  told why the process ends, in words
    explicit SessionEnd(std::function<void(const std::string& why)> observer);

  private:
    void takeSignal();

    const std::function<void(const std::string&)> mObserver;
    platform::FileDescriptor mReader;
    std::unique_ptr<QSocketNotifier> mNotifier;
};
