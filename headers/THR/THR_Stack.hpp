#pragma once

#include "GEO/GEO_Position.hpp"
#include "GLO/GLO_Time.hpp"
#include "THR/THR_Exception.hpp"
#include "WIN/WIN_Duration.hpp"

#include <concepts>
#include <cstddef>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace thr {

class Stack_t;

/// A value type that knows its own layout on a stack.
template <typename T>
concept StackValue = requires(const T& constant, T& value, Stack_t& stack) {
    constant.Push(stack);
    value.Pop(stack);
};

/// T is one of the listed types.
template <typename T, typename... Types>
concept OneOf = (std::same_as<T, Types> || ...);

/// A number, an address or one of the library's plain values, which goes onto a stack as its bytes. A pointer to
/// characters is none: of char and wchar_t it is pushed as the text that it points to, which can't be popped as a
/// pointer; of the others it is refused.
template <typename T>
concept StackScalar = (std::is_arithmetic_v<T> && !std::is_same_v<T, bool>) || std::is_enum_v<T> ||
                      (std::is_pointer_v<T> && !OneOf<std::remove_cv_t<std::remove_pointer_t<T>>, char, signed char,
                                                      unsigned char, wchar_t, char8_t, char16_t, char32_t>) ||
                      OneOf<T, win::Duration_t, glo::Time_t, glo::TimeSpan_t, geo::Position_t>;

/// The arguments of a call to another thread of this process, packed into bytes. Last in, first out: values are popped
/// in the opposite order of their pushes.
///
///     number, address   its bytes, in host order; so durations, times and positions
///     narrow string     the bytes, then their count in 8 bytes
///     wide string       4 bytes a character, then the count of characters in 8 bytes
///
/// A plain value, one thread at a time.
class Stack_t {
  public:
    Stack_t() = default;                                                              ///< empty
    explicit Stack_t(std::vector<unsigned char> bytes) : mBytes(std::move(bytes)) {}  ///< of bytes as Bytes() gave them

    /// Puts bytes on top.
    void Push(const void* source, std::size_t count);

    /// Takes the last bytes off.
    /// @param file  the caller's source, for the exception
    /// @param line  the caller's line, for the exception
    /// @throws thr::BadStackException_t  fewer bytes are left; the stack is unchanged
    void Pop(void* destination, std::size_t count, const char* file, unsigned short line);

    /// Checks that so many bytes are left.
    /// @throws thr::BadStackException_t  they are not; its message has both numbers and a dump of the stack
    void Require(std::size_t count, const char* file, unsigned short line) const;

    bool IsEmpty() const { return mBytes.empty(); }                     ///< @plain
    const std::vector<unsigned char>& Bytes() const { return mBytes; }  ///< the bottom first

  private:
    std::vector<unsigned char> mBytes;
};

/// Each pushes one value, in the form that the class describes. A StackValue pushes itself.
/// @{
template <StackScalar T>
Stack_t& operator<<(Stack_t& stack, const T& value) {
    stack.Push(&value, sizeof value);
    return stack;
}

template <StackValue T>
Stack_t& operator<<(Stack_t& stack, const T& value) {
    value.Push(stack);
    return stack;
}

Stack_t& operator<<(Stack_t& stack, const std::string& text);
Stack_t& operator<<(Stack_t& stack, const std::wstring& text);
/// @}

/// Each takes what its counterpart above pushed.
/// @throws thr::BadStackException_t  too few bytes; the value is unchanged
/// @{
template <StackScalar T>
Stack_t& operator>>(Stack_t& stack, T& value) {
    stack.Pop(&value, sizeof value, "headers/THR/THR_Stack", __LINE__);
    return stack;
}

template <StackValue T>
Stack_t& operator>>(Stack_t& stack, T& value) {
    value.Pop(stack);
    return stack;
}

Stack_t& operator>>(Stack_t& stack, std::string& text);
Stack_t& operator>>(Stack_t& stack, std::wstring& text);
/// @}

}  // namespace thr
