#pragma once

#include "BIN/BIN_iostream.hpp"
#include "GLO/GLO_NonCopyable.hpp"

#include <algorithm>
#include <vector>

namespace bin {

/// A binary stream over a buffer in memory. The read and the write position are independent and start at 0.
class stringstream : public glo::NonCopyable_t, public iostream {
  public:
    stringstream() = default;                                         ///< over no bytes
    explicit stringstream(const std::vector<unsigned char>& buffer);  ///< over a copy of the bytes
    ~stringstream() override = default;

    /// The whole buffer. The reference is good until the next write.
    const std::vector<unsigned char>& Buffer();

    /// Takes every byte that can still be read, in one go, as reading them one by one would: the read position moves to
    /// the end and the end bit is set, or the fail bit where not even one byte was left. A stream that is not good
    /// gives nothing.
    std::vector<unsigned char> TakeRemaining();

    void ignore(unsigned long n) override;
    int peek() override;
    void seekg(unsigned long position) override;
    unsigned long tellg() override;
    void BinInput(void* destination, unsigned long n) override;
    unsigned long RemainingSize() override;
    void StringInput(std::string& text) override;

    void seekp(unsigned long position) override;
    unsigned long tellp() override;
    void BinOutput(const void* source, unsigned long n) override;

  private:
    void StateChanged() override;
    unsigned long ReadPosition() const { return static_cast<unsigned long>(mReadCursor - mBuffer.data()); }
    unsigned long WritePosition() const { return static_cast<unsigned long>(mWriteCursor - mBuffer.data()); }
    unsigned long Length() const { return std::max(mLength, WritePosition()); }
    unsigned long Remaining() const { return Length() - ReadPosition(); }
    void AdvanceTo(unsigned long position);
    void Resize(unsigned long size);

    std::vector<unsigned char> mBuffer;  ///< the data, and behind it room to write into, all zero
    unsigned long mLength = 0;           ///< bytes of data, but for those written since through the write cursor
};

}  // namespace bin
