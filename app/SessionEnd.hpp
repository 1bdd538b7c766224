#pragma once

#include "platform/common/FileDescriptor.hpp"

#include <QObject>
#include <QSocketNotifier>

#include <functional>
#include <memory>
#include <string>

/// Tells of the end of the user's session before the process goes with it: of the session manager's word, and of the
/// signals by which the system, a closed terminal or a person ends programs. A signal is told of on the main thread and
/// then does what it does without this; where the main thread does not get to that, a second one of the kind does it at
/// once. One at a time, for the life of the process; main thread only.
class SessionEnd final : public QObject {
  public:
    /// @param observer  told why the process is to end, in words. After the session manager's word it may go on
    explicit SessionEnd(std::function<void(const std::string& why)> observer);

  private:
    void takeSignal();

    const std::function<void(const std::string&)> mObserver;
    platform::FileDescriptor mReader;
    std::unique_ptr<QSocketNotifier> mNotifier;
};
