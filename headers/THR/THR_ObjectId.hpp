#pragma once

#include "THR/THR_Exception.hpp"

#include <compare>
#include <cstdint>

namespace thr {

class Stack_t;

/// Identity of a thr::Object_t: unlike its address it is never used again. A plain value. Any thread.
class ObjectId_t {
  public:
    ObjectId_t() = default;  ///< of no object

    /// One that no other object of the process has.
    static ObjectId_t Next();

    auto operator<=>(const ObjectId_t&) const = default;  ///< the older one is less

    /// Pushes 8 bytes.
    void Push(Stack_t& stack) const;

    /// Takes what Push() pushed.
    /// @throws thr::BadStackException_t  too few bytes; this identity is unchanged
    void Pop(Stack_t& stack);

  private:
    std::uint64_t mNumber = 0;
};

}  // namespace thr
