#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "WIN/WIN_Error.hpp"

#include <sys/types.h>  // where the system has the bare type

namespace win {

/// A recursive mutex of the system.
class Mutex_t : public glo::NonCopyable_t {
  public:
    /// @throws win::Error_t  the system has no room for another one
    Mutex_t();
    ~Mutex_t();

    /// Lock() blocks. Any thread.
    /// @return 0, or the system's error number; nothing has changed then
    /// @{
    [[nodiscard]] int Lock() noexcept;
    int Unlock() noexcept;
    /// @}

  private:
    pthread_mutex_t mMutex;
};

}  // namespace win
