#include "THR/THR_LocalPort.hpp"

#include "GLO/GLO_Exception.hpp"
#include "THR/THR_Exception.hpp"
#include "THR/THR_Object.hpp"
#include "THR/THR_Stack.hpp"

#include <utility>

namespace thr {
namespace {

constexpr char gcFile[] = "libs/THR/THR_LocalPort";

// A plain pointer, good to look at even while the thread's other objects are being destroyed.
thread_local LocalPort_t* gPort = nullptr;

/// Destroys the port of a thread that ends without having released it.
struct PortRelease_t {
    ~PortRelease_t() { LocalPort_t::ReleaseLocalPort(); }
};

}  // namespace

LocalPort_t& LocalPort_t::GetLocalPort() {
    static thread_local const PortRelease_t releaseAtEnd;
    if (!gPort) gPort = new LocalPort_t;
    return *gPort;
}

LocalPort_t* LocalPort_t::FindLocalPort() noexcept {
    return gPort;
}
void LocalPort_t::ReleaseLocalPort() {
    delete std::exchange(gPort, nullptr);
}

LocalPort_t::LocalPort_t() : mPort(this) {}

LocalPort_t::~LocalPort_t() = default;

void LocalPort_t::ProcessMessage(Stack_t& stack, std::int32_t id, const std::wstring& name) {
    switch (id) {
        case gcAsyncCall:
            return InvokeAsync(stack);
        case gcSyncCall:
            return InvokeSync(stack, name);
        default:
            throw Exception_t(gcFile, __LINE__, std::wstring());
    }
}

void LocalPort_t::InvokeAsync(Stack_t& stack) {
    GetReference(stack)->CallAsync(stack);
}

void LocalPort_t::InvokeSync(Stack_t& stack, const std::wstring& replyTo) {
    ObjectId_t id;
    Stack_t reply;
    bool hasSucceeded = false;
    // The caller waits without limit, so whatever goes wrong from here on is an answer too, an unknown object included.
    try {
        const auto reference = GetReference(stack);
        id = reference->Id();
        reference->CallSync(stack, reply);
        hasSucceeded = true;
    } catch (const glo::Exception_t& exception) {
        reply = Stack_t();
        reply << exception.File() << exception.Line() << exception.Message();
    } catch (...) {
        reply = Stack_t();
        reply << std::string(gcFile) << static_cast<unsigned short>(__LINE__) << std::wstring();
    }
    reply << id;
    MessagePort_t(replyTo).SendStack(hasSucceeded ? gcSyncReply : gcSyncFailure, reply, Name());
}

std::shared_ptr<LocalReference_t> LocalPort_t::GetReference(Stack_t& stack) const {
    ObjectId_t id;
    stack >> id;
    const auto it = mReferences.find(id);
    if (it == mReferences.end()) throw Exception_t(gcFile, __LINE__, std::wstring());
    return it->second;
}

void LocalPort_t::AddReference(glo::AutoPtr<LocalReference_t> reference) {
    const ObjectId_t id = reference->Id();
    mReferences[id] = std::shared_ptr<LocalReference_t>(reference.release());
}

void LocalPort_t::RemoveReference(ObjectId_t id) {
    // Out of the map before it is destroyed: its object's end may come back here.
    const auto node = mReferences.extract(id);
    if (node) node.mapped()->LetGo();  // a call that is under way still holds the reference
}

void LocalPort_t::Push(Stack_t& stack) const {
    stack << Name();
}

void LocalPort_t::Pop(Stack_t& stack) const {
    Stack_t rest = stack;
    std::wstring name;
    rest >> name;
    if (name != Name()) throw BadStackException_t(gcFile, __LINE__, L"Another port's name: " + name);
    stack = std::move(rest);
}

LocalReference_t::LocalReference_t(Object_t& object) : mObject(&object), mId(object.Id()) {
    mObject->Retain();
}

LocalReference_t::~LocalReference_t() {
    LetGo();
}

void LocalReference_t::LetGo() {
    Object_t* const object = std::exchange(mObject, nullptr);
    // Somebody else may have let go more often than he held; that is told where it happens, not here.
    if (object && object->RetainCount() > 0) object->Release();
}

ObjectId_t LocalReference_t::Id() const {
    return mId;
}

void LocalReference_t::CallAsync(Stack_t& call) {
    Stack_t dropped;
    CallSync(call, dropped);
}

void LocalReference_t::CallSync(Stack_t& call, Stack_t& result) {
    Method_t method = nullptr;
    call >> method;
    method(*mObject, call, result);
}

}  // namespace thr
