#pragma once

#include "GLO/GLO_Assert.hpp"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace glo {

/// Base of an object that carries its own reference count, for SmartPtr_t. A copy starts with a count of its own. The
/// count is atomic, so that pointers to one object may be let go on any thread.
class RefCounter_t {
  public:
    /// Leaves each count as it is: it belongs to the object, not to the value.
    /// @{
    RefCounter_t(const RefCounter_t&) {}
    RefCounter_t& operator=(const RefCounter_t&) { return *this; }
    /// @}

    /// Any thread that holds a reference already, or has just made the object.
    void AddReference() const noexcept {
        // Nobody else knows an object that was just made: its first reference needs no atomic change.
        if (mCount.load(std::memory_order_relaxed) == 0)
            mCount.store(1, std::memory_order_relaxed);
        else
            mCount.fetch_add(1, std::memory_order_relaxed);
    }

    /// @return true when this was the last reference: the caller deletes the object. Any thread.
    [[nodiscard]] bool ReleaseReference() const noexcept {
        // The only holder needs no atomic change: nobody else could take a new reference meanwhile.
        if (mCount.load(std::memory_order_acquire) == 1) return true;
        return mCount.fetch_sub(1, std::memory_order_acq_rel) == 1;
    }

  protected:
    RefCounter_t() = default;
    ~RefCounter_t() = default;

  private:
    mutable std::atomic<std::uint32_t> mCount{0};
};

/// Shared owner of an object derived from RefCounter_t. The object is deleted, as a T, with its last pointer. Different
/// pointers to one object may be used by different threads; one pointer belongs to one thread at a time.
template <typename T>
class SmartPtr_t {
  public:
    /// Empty.
    /// @{
    SmartPtr_t() = default;
    SmartPtr_t(std::nullptr_t) noexcept {}
    /// @}

    /// Becomes one more owner of the object, which was made with new; null makes an empty pointer.
    explicit SmartPtr_t(T* object) noexcept : mObject(object) {
        if (mObject) mObject->AddReference();
    }

    /// Copies share the object; what is moved from is left empty.
    /// @{
    SmartPtr_t(const SmartPtr_t& other) noexcept : SmartPtr_t(other.mObject) {}
    SmartPtr_t(SmartPtr_t&& other) noexcept : mObject(std::exchange(other.mObject, nullptr)) {}
    template <typename U>
    SmartPtr_t(const SmartPtr_t<U>& other) noexcept : SmartPtr_t(static_cast<T*>(other.get())) {}
    SmartPtr_t& operator=(SmartPtr_t other) noexcept {
        std::swap(mObject, other.mObject);
        return *this;
    }
    /// @}

    ~SmartPtr_t() {
        if (mObject && mObject->ReleaseReference()) delete mObject;
    }

    /// The object. An empty pointer stops the process.
    /// @{
    T& operator*() const { return *operator->(); }
    T* operator->() const {
        Assert(mObject != nullptr, "../GLO/GLO_SmartPtr.hpp", 104);  // a stable identifier that crash reports carry
        return mObject;
    }
    /// @}

    T* get() const noexcept { return mObject; }                             ///< null when empty; stays an owner
    explicit operator bool() const noexcept { return mObject != nullptr; }  ///< @plain
    bool operator==(const SmartPtr_t& other) const = default;               ///< the same object

  private:
    T* mObject = nullptr;
};

}  // namespace glo
