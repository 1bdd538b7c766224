#include "THR/THR_Stack.hpp"

#include "GLO/GLO_HexValueDump.hpp"
#include "THR/THR_Exception.hpp"
#include "THR/THR_ObjectId.hpp"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <sstream>

namespace thr {
namespace {

constexpr char gcFile[] = "libs/THR/THR_Stack";

template <typename Character_t>
void PushText(Stack_t& stack, const std::basic_string<Character_t>& text) {
    stack.Push(text.data(), text.size() * sizeof(Character_t));
    stack << static_cast<std::uint64_t>(text.size());
}

template <typename Character_t>
void PopText(Stack_t& stack, std::basic_string<Character_t>& text) {
    std::uint64_t count = 0;
    stack.Pop(&count, sizeof count, gcFile, __LINE__);
    // A count that is no count must neither wrap round nor be allocated for.
    const std::uint64_t held = stack.Bytes().size() / sizeof(Character_t);
    if (count > held)
        stack.Require(count > SIZE_MAX / sizeof(Character_t) ? SIZE_MAX : count * sizeof(Character_t), gcFile,
                      __LINE__);
    std::basic_string<Character_t> popped(count, Character_t());
    stack.Pop(popped.data(), count * sizeof(Character_t), gcFile, __LINE__);
    text = std::move(popped);
}

}  // namespace

void Stack_t::Push(const void* source, std::size_t count) {
    const auto* const bytes = static_cast<const unsigned char*>(source);
    mBytes.insert(mBytes.end(), bytes, bytes + count);
}

void Stack_t::Require(std::size_t count, const char* file, unsigned short line) const {
    if (count <= mBytes.size()) return;
    std::wostringstream message;
    message << L"Requested Data Size: " << count << L"\nStack Size: " << mBytes.size() << L"\nStack Contents:\n";
    glo::HexValueDump(mBytes.data(), mBytes.data() + mBytes.size(), message, true);
    throw BadStackException_t(file, line, message.str());
}

void Stack_t::Pop(void* destination, std::size_t count, const char* file, unsigned short line) {
    Require(count, file, line);
    if (count == 0) return;
    std::memcpy(destination, mBytes.data() + mBytes.size() - count, count);
    mBytes.resize(mBytes.size() - count);
}

Stack_t& operator<<(Stack_t& stack, const std::string& text) {
    PushText(stack, text);
    return stack;
}

Stack_t& operator<<(Stack_t& stack, const std::wstring& text) {
    PushText(stack, text);
    return stack;
}

Stack_t& operator>>(Stack_t& stack, std::string& text) {
    PopText(stack, text);
    return stack;
}

Stack_t& operator>>(Stack_t& stack, std::wstring& text) {
    PopText(stack, text);
    return stack;
}

ObjectId_t ObjectId_t::Next() {
    static std::atomic<std::uint64_t> last{0};
    ObjectId_t id;
    id.mNumber = ++last;
    return id;
}

void ObjectId_t::Push(Stack_t& stack) const {
    stack << mNumber;
}
void ObjectId_t::Pop(Stack_t& stack) {
    stack >> mNumber;
}

}  // namespace thr
