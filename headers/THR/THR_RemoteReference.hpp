#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "THR/THR_Exception.hpp"
#include "THR/THR_LocalReference.hpp"
#include "THR/THR_MessagePort.hpp"
#include "THR/THR_ObjectId.hpp"
#include "THR/THR_Stack.hpp"

namespace thr {

/// The caller's end of an object that lives on another thread (or on this one). Belongs to the thread that made it.
class RemoteReference_t : public glo::NonCopyable_t {
  public:
    /// Pops what Object_t::PushOnStack() pushed.
    /// @throws thr::BadStackException_t  it isn't there
    explicit RemoteReference_t(Stack_t& stack);

    /// Has the method run on the object's thread and doesn't wait for it.
    /// @throws thr::Exception_t  the object's thread is gone
    /// Blocks while that thread's queue is full.
    void CallAsync(Method_t method, Stack_t arguments);

    /// Has the method run on the object's thread and waits for its result, without limit. Meanwhile this thread's run
    /// loop is served, so calls to this thread run inside this call.
    /// @return what the method pushed
    /// @throws thr::Exception_t  the method threw (the exception carries the file, line and message of what it threw),
    ///                           there is no such object, or its thread is gone
    /// Blocks.
    Stack_t CallSync(Method_t method, Stack_t arguments);

  private:
    ObjectId_t mId;
    MessagePort_t mPort;
};

}  // namespace thr
