#pragma once

#include <compare>
#include <cstdint>
#include <string>

namespace win {

/// The library's version number of four parts. A plain value. Any thread.
class Version_t {
  public:
    Version_t() = default;  ///< 0.0.0.0
    /// @plain
    Version_t(std::uint16_t majorPart, std::uint16_t minorPart, std::uint16_t thirdPart, std::uint16_t fourthPart)
        : mMajor(majorPart), mMinor(minorPart), mThird(thirdPart), mFourth(fourthPart) {}

    /// Reads the numbers between the dots. What is no number is skipped and the following ones move up: "5.x.7" is
    /// 5.7.0.0. StringToVersion() deliberately reads it otherwise.
    explicit Version_t(const std::wstring& text);

    /// The parts in their order.
    /// @{
    std::uint16_t Major() const { return mMajor; }
    std::uint16_t Minor() const { return mMinor; }
    std::uint16_t Third() const { return mThird; }
    std::uint16_t Fourth() const { return mFourth; }
    /// @}

    std::wstring Str() const;               ///< all four parts: "1.2.0.0"
    std::wstring MajorMinorString() const;  ///< "3.7"
    std::wstring DeviceString() const;      ///< as devices show it, two digits of minor at least: "3.07"

    /// By the first part that differs.
    /// @{
    bool LessThan(const Version_t& other) const { return *this < other; }
    auto operator<=>(const Version_t&) const = default;
    /// @}

    /// Onto a thr::Stack_t, the four numbers in their order. The stack belongs to a row above and is a parameter here.
    template <typename Stack>
    void Push(Stack& stack) const {
        stack << mMajor << mMinor << mThird << mFourth;
    }

    /// Takes what Push() pushed.
    /// @throws thr::BadStackException_t  too few bytes; this version is unchanged
    template <typename Stack>
    void Pop(Stack& stack) {
        Version_t popped;
        stack >> popped.mFourth >> popped.mThird >> popped.mMinor >> popped.mMajor;
        *this = popped;
    }

  private:
    std::uint16_t mMajor = 0;
    std::uint16_t mMinor = 0;
    std::uint16_t mThird = 0;
    std::uint16_t mFourth = 0;
};

/// Reads the first four pieces between the dots, each by its leading digits: 0 where there are none, cut to 16 bits.
/// "5.x.7" is 5.0.7.0; "1.2.3 Beta" is 1.2.3.0. Any thread.
Version_t StringToVersion(const std::string& text);

}  // namespace win
