#pragma once

#include "GLO/GLO_AutoPtr.hpp"
#include "GLO/GLO_NonCopyable.hpp"

namespace win {
class Error_t;
}

namespace glo {

/// A lock as this lowest module sees it; win::CriticalSection_t is one.
class LockIntf_t {
  public:
    virtual ~LockIntf_t() = default;
    virtual void Enter() = 0;
    virtual void Leave() = 0;
};

/// Holds a lock for the life of a scope.
class SmartLock_t : public NonCopyable_t {
  public:
    explicit SmartLock_t(LockIntf_t& lock) : mLock(lock) { mLock.Enter(); }
    ~SmartLock_t() { mLock.Leave(); }

  private:
    LockIntf_t& mLock;
};

/// Makes a recursive lock (a win::CriticalSection_t).
/// @throws win::Error_t  the system has no room for another one
AutoPtr<LockIntf_t> NewLock();

/// Serializes the creation of process-wide objects. Taken alone, never together with another lock. Any thread.
LockIntf_t& SingletonCriticalSection();

}  // namespace glo
