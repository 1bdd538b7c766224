#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "WIN/WIN_Error.hpp"
#include "WIN/WIN_Mutex.hpp"

namespace win {

/// The lock of all shared state in the library. Recursive: the thread that holds it may enter again, and leaves as
/// often. The library's critical sections are each entered alone, so no order among them arises. Any thread.
class CriticalSection_t : public glo::NonCopyable_t {
  public:
    /// @param disabled  makes one that never locks
    /// @throws win::Error_t  the system has no room for another one
    explicit CriticalSection_t(bool disabled = false) : mIsDisabled(disabled) {}
    virtual ~CriticalSection_t();

    /// Locks. Blocks.
    /// @throws win::Error_t  not locked; nothing has changed
    virtual void Enter();

    /// Undoes one Enter() of this thread.
    virtual void Leave();

  private:
    Mutex_t mMutex;
    bool mIsDisabled;
};

/// Stands in for a critical section where the data is known to belong to one thread.
class DummyCriticalSection_t : public CriticalSection_t {
  public:
    DummyCriticalSection_t() : CriticalSection_t(true) {}
    void Enter() override {}  ///< nothing
    void Leave() override {}  ///< nothing
};

/// Holds a critical section for the life of a scope.
class SmartCriticalSection_t : public glo::NonCopyable_t {
  public:
    /// Enters; throws what CriticalSection_t::Enter() throws.
    /// @param section  borrowed for the life of this object
    explicit SmartCriticalSection_t(CriticalSection_t& section) : mSection(section) { mSection.Enter(); }
    ~SmartCriticalSection_t() { mSection.Leave(); }

  private:
    CriticalSection_t& mSection;
};

}  // namespace win
