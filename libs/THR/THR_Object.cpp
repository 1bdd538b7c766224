#include "THR/THR_Object.hpp"

#include "THR/THR_Exception.hpp"
#include "THR/THR_LocalPort.hpp"
#include "THR/THR_Stack.hpp"
#include "THR/THR_Thread.hpp"

#include <utility>

namespace thr {

Object_t::~Object_t() {
    if (LocalPort_t* port = LocalPort_t::FindLocalPort()) port->RemoveReference(mId);
}

std::uint32_t Object_t::Release() {
    if (mRetainCount == 0) throw Exception_t("libs/THR/THR_Object", __LINE__, std::wstring());
    return --mRetainCount;
}

void Object_t::RequestCancel() const {
    mIsCancelRequested = true;
    Canceled();
}

bool Object_t::CancelRequested() const {
    // A request is a message that waits in this thread's queue, and is served here. One that an earlier question has
    // answered is not lost either: the functor that asked has latched it.
    mIsCancelRequested = false;
    ProcessMessageWithNoWait();
    return mIsCancelRequested || mRetainCount == 0;
}

void Object_t::ResetCancel() const {
    mCancel = CancelRequestedFunctor_t(this);
}

void Object_t::RunLoop() const {
    do {
        try {
            ProcessMessageWithInfiniteWait();
        } catch (const AbortThread_t&) {
            return;
        } catch (...) {
            // One bad call must not end the loop that serves all others.
        }
    } while (mRetainCount > 0);
}

void Object_t::PushOnStack(Stack_t& stack) const {
    stack << LocalPort_t::GetLocalPort() << mId;
}

void Object_t::AddReference(glo::AutoPtr<LocalReference_t> reference) const {
    LocalPort_t::GetLocalPort().AddReference(std::move(reference));
}

}  // namespace thr
