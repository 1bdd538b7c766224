#pragma once

#include "GLO/GLO_Assert.hpp"
#include "GLO/GLO_AutoPtr.hpp"

#include <type_traits>

namespace glo {

class Time_t;

/// Storage of an optional value on the heap: one pointer, null while the value is unknown.
template <typename T>
class OptionalHeapStorageBase_t {
  public:
    OptionalHeapStorageBase_t() = default;

    bool IsKnown() const noexcept { return mValue.get() != nullptr; }  ///< @plain

    /// The value. Asking for an unknown one stops the process (the line is a stable identifier).
    const T& Value() const {
        Assert(IsKnown(), "../GLO/GLO_Optional.hpp", 105);
        return *mValue.get();
    }

    /// Makes the value known. A copy that exists is assigned to, so references to it stay good.
    void Value(const T& value) {
        if (mValue)
            *mValue.get() = value;
        else
            mValue.reset(new T(value));
    }

    void MakeUnknown() noexcept { mValue.reset(); }  ///< ends every reference to the value

  private:
    AutoPtr<T> mValue;
};

/// Storage of an optional value in place: the value, then the known flag.
template <typename T>
class OptionalInternalStorageBase_t {
  public:
    OptionalInternalStorageBase_t() = default;

    bool IsKnown() const noexcept { return mIsKnown; }  ///< @plain

    /// The value. Asking for an unknown one stops the process (the line is a stable identifier).
    const T& Value() const {
        Assert(mIsKnown, "../GLO/GLO_Optional.hpp", 581);
        return mValue;
    }

    /// Makes the value known.
    void Value(const T& value) {
        mValue = value;
        mIsKnown = true;
    }

    void MakeUnknown() noexcept { mIsKnown = false; }  ///< @plain

  private:
    T mValue{};
    bool mIsKnown = false;
};

/// True for the value types that are kept in place; all others live on the heap.
template <typename T>
inline constexpr bool gcOptionalIsInternal =
    std::is_same_v<T, unsigned char> || std::is_same_v<T, unsigned short> || std::is_same_v<T, unsigned int> ||
    std::is_same_v<T, float> || std::is_same_v<T, double> || std::is_same_v<T, Time_t>;

/// A value that may be unknown. Device records use it for every field that a device may leave out. A plain value;
/// copies are deep.
template <typename T>
class Optional_t : public std::conditional_t<gcOptionalIsInternal<T>, OptionalInternalStorageBase_t<T>,
                                             OptionalHeapStorageBase_t<T>> {
  public:
    Optional_t() = default;                             ///< unknown
    Optional_t(const T& value) { this->Value(value); }  ///< known
    /// @plain
    /// @{
    Optional_t(const Optional_t& other) { Assign(other); }
    Optional_t& operator=(const Optional_t& other) {
        Assign(other);
        return *this;
    }
    /// @}
    ~Optional_t() = default;

    /// Takes over the other's state, known or unknown.
    void Assign(const Optional_t& other) {
        if (this == &other) return;
        if (other.IsKnown())
            this->Value(other.Value());
        else
            this->MakeUnknown();
    }
};

}  // namespace glo
