#pragma once

#include <pthread.h>

#include "GLO/GLO_NonCopyable.hpp"

namespace win {

class Error_t;

/// A recursive mutex of the system.
class Mutex_t : public glo::NonCopyable_t {
  public:
    /// @throws win::Error_t  the system has no room for another one
    Mutex_t();
    ~Mutex_t();

    /// Blocks. @return 0, or the system's error number. Any thread.
    int Lock() { return pthread_mutex_lock(&mMutex); }
    int Unlock() { return pthread_mutex_unlock(&mMutex); }

  private:
    pthread_mutex_t mMutex;
};

}  // namespace win
