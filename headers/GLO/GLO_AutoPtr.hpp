#pragma once

#include "GLO/GLO_Assert.hpp"

#include <cstddef>
#include <utility>

namespace glo {

/// Single owner of a heap object. Passing one by value hands the object over. Using an empty one is a mistake of the
/// program and stops the process.
template <typename T>
class AutoPtr {
  public:
    /// Empty.
    /// @{
    AutoPtr() = default;
    AutoPtr(std::nullptr_t) noexcept {}
    /// @}

    /// Takes the object, which was made with new; null makes an empty pointer.
    explicit AutoPtr(T* object) noexcept : mObject(object) {}
    AutoPtr(const AutoPtr&) = delete;
    AutoPtr& operator=(const AutoPtr&) = delete;

    /// Takes the other's object and leaves it empty. The object held before is deleted.
    /// @{
    AutoPtr(AutoPtr&& other) noexcept : mObject(other.release()) {}
    template <typename U>
    AutoPtr(AutoPtr<U>&& other) noexcept : mObject(other.release()) {}
    AutoPtr& operator=(AutoPtr&& other) noexcept {
        reset(other.release());
        return *this;
    }
    /// @}

    ~AutoPtr() { delete mObject; }

    /// The object. An empty pointer stops the process (the line numbers are stable identifiers in crash reports).
    /// @{
    T& operator*() const {
        Assert(mObject != nullptr, "../GLO/GLO_AutoPtr.hpp", 138);
        return *mObject;
    }
    T* operator->() const {
        Assert(mObject != nullptr, "../GLO/GLO_AutoPtr.hpp", 151);
        return mObject;
    }
    /// @}

    T* get() const noexcept { return mObject; }                             ///< null when empty; stays the owner
    explicit operator bool() const noexcept { return mObject != nullptr; }  ///< @plain

    /// Gives the object away without deleting it.
    [[nodiscard]] T* release() noexcept { return std::exchange(mObject, nullptr); }

    /// Deletes the held object, unless it is the given one, and holds the given one. The old object's destructor runs
    /// after the change, so that it may look at this pointer.
    void reset(T* object = nullptr) noexcept {
        if (object == mObject) return;
        delete std::exchange(mObject, object);
    }

  private:
    T* mObject = nullptr;
};

}  // namespace glo
