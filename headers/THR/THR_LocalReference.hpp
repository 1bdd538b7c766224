#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "THR/THR_ObjectId.hpp"

namespace thr {

class Object_t;
class Stack_t;

/// What a call from another thread runs: takes its arguments from the first stack, in the opposite order of their
/// pushes, and pushes its result onto the second. Callback on the object's thread.
using Method_t = void (*)(Object_t& object, Stack_t& arguments, Stack_t& result);

/// Lets other threads call an object of this thread. Registered on the thread's port, which owns it; keeps the object
/// retained until it is taken out there. Calls arrive as
///
///     pushed last   id of the object (taken by the port)
///                   address of the method, 8 bytes
///     pushed first  the arguments
///
/// Owner thread only.
class LocalReference_t : public glo::NonCopyable_t {
  public:
    /// @param object  borrowed; takes itself off the port when it is destroyed
    explicit LocalReference_t(Object_t& object);
    virtual ~LocalReference_t();

    ObjectId_t Id() const;  ///< the object's, also once it has been given up

    /// Gives the object up; no call may follow. The port does so when the object goes, which a call on it may bring
    /// about while that call still holds the reference.
    void LetGo();

    /// Runs a call that nobody waits for; its result is dropped. What the method throws passes through.
    virtual void CallAsync(Stack_t& call);

    /// Runs a call whose caller waits. The result goes back in a message to the port that the caller made for it, id
    /// 300; what the method throws goes back as id 400 and is raised again there (see LocalPort_t::InvokeSync).
    virtual void CallSync(Stack_t& call, Stack_t& result);

  private:
    Object_t* mObject;  ///< null once given up
    const ObjectId_t mId;
};

}  // namespace thr
