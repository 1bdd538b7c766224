#pragma once

#include "GLO/GLO_AutoPtr.hpp"
#include "GLO/GLO_NonCopyable.hpp"
#include "THR/THR_Exception.hpp"
#include "THR/THR_LocalReference.hpp"
#include "THR/THR_MessagePort.hpp"
#include "THR/THR_ObjectId.hpp"

#include <cstdint>
#include <map>
#include <memory>

namespace thr {

/// A thread's receiving port, with the objects of the thread that others may call. Made at its first use; a thread that
/// StartThread() started releases it as it ends. Calls run on the thread, in the order of their arrival, whenever it
/// serves its run loop. Owner thread only.
class LocalPort_t : public MessageHandlerIntf_t, private glo::NonCopyable_t {
  public:
    /// The calling thread's port.
    /// @throws thr::Exception_t  it could not be made
    static LocalPort_t& GetLocalPort();
    [[nodiscard]] static LocalPort_t* FindLocalPort() noexcept;  ///< null when the thread has none
    static void ReleaseLocalPort();                              ///< destroys it; nothing when the thread has none

    LocalPort_t();  ///< for GetLocalPort(); throws what that throws
    ~LocalPort_t() override;

    /// Ids 100 and 200, see the header of the port.
    /// @throws thr::Exception_t  any other id, or no such object
    void ProcessMessage(Stack_t& stack, std::int32_t id, const std::wstring& name) override;

    /// Runs a call that nobody waits for.
    /// @throws thr::Exception_t  no such object here
    /// What the method throws passes through.
    void InvokeAsync(Stack_t& stack);

    /// Runs the call and sends its outcome to the caller's port:
    ///
    ///     id 300, pushed last   id of the object
    ///             pushed first  the result
    ///     id 400, pushed last   id of the object, then message, line in 2 bytes and file of the exception
    ///
    /// @throws thr::Exception_t  the caller is gone
    void InvokeSync(Stack_t& stack, const std::wstring& replyTo);

    /// Pops an object's id and finds its reference. Shared, since the call that is about to run may take it out.
    /// @throws thr::Exception_t  no such object here
    std::shared_ptr<LocalReference_t> GetReference(Stack_t& stack) const;

    /// Registers an object for calls, in place of an earlier reference to it. The port owns the reference.
    void AddReference(glo::AutoPtr<LocalReference_t> reference);

    /// Ends the calls to an object. One that is under way goes on.
    void RemoveReference(ObjectId_t id);

    /// Pushes the port's name, for MessagePort_t to connect to.
    void Push(Stack_t& stack) const;

    /// Takes this port's name back off.
    /// @throws thr::BadStackException_t  it is not on top; the stack is unchanged
    void Pop(Stack_t& stack) const;

    const std::wstring& Name() const { return mPort.Name(); }  ///< what others connect to

  private:
    std::map<ObjectId_t, std::shared_ptr<LocalReference_t>> mReferences;
    MessagePort_t mPort;  ///< last: it goes before what its messages use
};

}  // namespace thr
