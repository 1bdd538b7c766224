#pragma once

#include <cstdint>

namespace bin {

/// The state word that the input and the output half of a stream share. No operation throws for bad data: what goes
/// wrong is recorded here, and after that every further read or write does nothing. One thread at a time.
class ios {
  public:
    using iostate = std::uint32_t;         ///< any of the bits below
    static constexpr iostate goodbit = 0;  ///< none of them
    static constexpr iostate badbit = 1;   ///< the file underneath failed, or could not be opened
    static constexpr iostate failbit = 2;  ///< a read that could not be satisfied, a seek out of range
    static constexpr iostate eofbit = 4;   ///< the read position stands at the end of the data

    ios(const ios&) = delete;
    ios& operator=(const ios&) = delete;

    iostate rdstate() const { return mState; }             ///< @plain
    void setstate(iostate bits) { clear(mState | bits); }  ///< adds bits
    /// Replaces the whole state word.
    void clear(iostate state = goodbit) {
        mState = state;
        StateChanged();
    }

    /// As in the standard's streams: fail() is true for a bad stream too, and reaching the end is no failure.
    /// @{
    bool good() const { return mState == goodbit; }
    bool bad() const { return (mState & badbit) != 0; }
    bool eof() const { return (mState & eofbit) != 0; }
    bool fail() const { return (mState & (badbit | failbit)) != 0; }
    explicit operator bool() const { return !fail(); }
    bool operator!() const { return fail(); }
    /// @}

  protected:
    ios() = default;
    virtual ~ios() = default;

    /// Told of each change: a memory stream closes the windows that its scalar operators use while it is not good.
    virtual void StateChanged() {}

    /// Sets bits without telling: for a stream that sees to its windows itself.
    void MarkState(iostate bits) { mState |= bits; }

  private:
    iostate mState = goodbit;
};

}  // namespace bin
