#pragma once

#include "GLO/GLO_AutoPtr.hpp"
#include "GLO/GLO_Exception.hpp"
#include "WIN/WIN_Duration.hpp"

#include <atomic>
#include <vector>

namespace thr {

/// What a functor can be bound to. Implemented by the library's thread objects; owned here so that a cancellation test
/// knows nothing of threads and message ports.
class CancelSourceIntf_t {
  public:
    virtual ~CancelSourceIntf_t() = default;

    /// Tells whether the operations of this object should stop. May run code: a thread object handles the messages that
    /// wait for the calling thread.
    virtual bool CancelRequested() const = 0;
};

/// The cancellation test that every long or blocking operation is handed. The operation asks it between steps and
/// throws glo::Terminate_t when it answers true. Set() and Clear() may come from any thread; the rest is for the thread
/// that runs the operation.
class CancelRequested_t {
  public:
    virtual ~CancelRequested_t();

    virtual void Clear() = 0;  ///< takes the request back

    /// A test that watches the same thing and may be set and cleared.
    virtual glo::AutoPtr<CancelRequested_t> Clone() = 0;

    /// A test that watches the same thing and may only be asked.
    virtual glo::AutoPtr<CancelRequested_t> Clone() const = 0;

    virtual void Set() = 0;  ///< requests cancellation

    /// Sleeps for the duration, in milliseconds.
    /// @return 1 after the full time, 0 when cancelled during it
    /// Blocks.
    /// @{
    virtual int Wait(win::Duration_t duration) const = 0;
    virtual int Wait(const std::vector<int>& handles, win::Duration_t duration) const = 0;
    /// @}

    virtual bool operator()() const = 0;  ///< true when the operation should stop
};

/// The one real cancellation test: a free-standing flag, or bound to an object whose request it latches.
/// Asked on the thread that runs the operation. Set() and Clear() may come from any thread; they are seen at some later
/// test, without any other ordering.
class CancelRequestedFunctor_t : public CancelRequested_t {
  public:
    /// @param source  the object to watch, none for a free-standing flag; borrowed, must outlive the functor
    explicit CancelRequestedFunctor_t(const CancelSourceIntf_t* source = nullptr) : mSource(source) {}

    /// Watches the same object and starts with the same flag; from then on the flags are apart.
    /// @{
    CancelRequestedFunctor_t(const CancelRequestedFunctor_t& other);
    CancelRequestedFunctor_t& operator=(const CancelRequestedFunctor_t& other);
    /// @}
    ~CancelRequestedFunctor_t() override;

    void Clear() override;

    /// Bound: a test that forwards to this functor, which must outlive it. Free-standing: a new free-standing functor
    /// with its flag cleared; a pending request is deliberately not inherited.
    /// A clone can't be cloned again, and one made from a constant can't be set or cleared: both are assertions.
    /// @{
    glo::AutoPtr<CancelRequested_t> Clone() override;
    glo::AutoPtr<CancelRequested_t> Clone() const override;
    /// @}

    void Set() override;

    /// Sleeps for the duration, in milliseconds, by the process's clock, and returns 1. The flag is not looked at
    /// meanwhile; the list of handles is ignored.
    /// Blocks.
    /// @{
    int Wait(win::Duration_t duration) const override;
    int Wait(const std::vector<int>& handles, win::Duration_t duration) const override;
    /// @}

    /// Once true it stays true until Clear().
    bool operator()() const override;

  private:
    const CancelSourceIntf_t* mSource;
    mutable std::atomic<bool> mRequested{false};
};

}  // namespace thr
