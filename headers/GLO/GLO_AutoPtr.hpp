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
    AutoPtr() = default;
    AutoPtr(std::nullptr_t) noexcept {}
    explicit AutoPtr(T* object) noexcept : mObject(object) {}
    AutoPtr(const AutoPtr&) = delete;
    AutoPtr& operator=(const AutoPtr&) = delete;
    AutoPtr(AutoPtr&& other) noexcept : mObject(other.release()) {}
    template <typename U>
    AutoPtr(AutoPtr<U>&& other) noexcept : mObject(other.release()) {}
    AutoPtr& operator=(AutoPtr&& other) noexcept {
        reset(other.release());
        return *this;
    }
    ~AutoPtr() { delete mObject; }

    // The line numbers are stable identifiers that crash reports carry.
    T& operator*() const {
        Assert(mObject != nullptr, "../GLO/GLO_AutoPtr.hpp", 138);
        return *mObject;
    }
    T* operator->() const {
        Assert(mObject != nullptr, "../GLO/GLO_AutoPtr.hpp", 151);
        return mObject;
    }

    T* get() const noexcept { return mObject; }
    explicit operator bool() const noexcept { return mObject != nullptr; }

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
