#pragma once

#include "GLO/GLO_AutoPtr.hpp"
#include "GLO/GLO_NonCopyable.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "THR/THR_Exception.hpp"
#include "THR/THR_LocalReference.hpp"
#include "THR/THR_ObjectId.hpp"

#include <cstdint>

namespace thr {

class Stack_t;

/// Base of an object that lives on a thread with a message loop, is called by other threads through messages and counts
/// as cancelled once nothing retains it. Made, used and destroyed on that thread; others reach it through a
/// RemoteReference_t only. Owner thread only.
class Object_t : public CancelSourceIntf_t, private glo::NonCopyable_t {
  public:
    Object_t() = default;

    /// Takes itself off the thread's port.
    ~Object_t() override;

    ObjectId_t Id() const { return mId; }  ///< @plain

    /// Counts who needs the object. The count doesn't own: at 0 the object counts as cancelled and is not destroyed.
    void Retain() { ++mRetainCount; }

    /// Takes one Retain() back.
    /// @return the new count
    /// @throws thr::Exception_t  the count is 0 already
    std::uint32_t Release();
    std::uint32_t RetainCount() const { return mRetainCount; }  ///< 0 for a new object

    /// Asks for cancellation and calls the hook. Another thread asks by a message that calls this.
    void RequestCancel() const;

    /// Forgets an earlier request, handles the messages that wait, and tells whether one of them asked for cancellation
    /// or nothing retains the object any more.
    bool CancelRequested() const override;

    /// Makes the functor anew, bound to this object.
    void ResetCancel() const;

    /// The object's own test: free-standing until the first ResetCancel().
    CancelRequestedFunctor_t& CancelFunctor() const { return mCancel; }

    /// Handles messages until a block of the loop throws thr::AbortThread_t or, after a message, nothing retains the
    /// object. Anything else that a block throws is dropped. Blocks.
    void RunLoop() const;

    /// Pushes what a RemoteReference_t is made from. Calls fail until a reference has been added.
    void PushOnStack(Stack_t& stack) const;

    /// Registers a reference on this thread's port, so that others may call the object.
    void AddReference(glo::AutoPtr<LocalReference_t> reference) const;

  protected:
    /// Called by RequestCancel().
    virtual void Canceled() const {}

  private:
    mutable CancelRequestedFunctor_t mCancel;
    const ObjectId_t mId = ObjectId_t::Next();
    mutable bool mIsCancelRequested = false;
    std::uint32_t mRetainCount = 0;
};

}  // namespace thr
