#pragma once

#include <array>
#include <vector>

#include "BIN/BIN_iostream.hpp"
#include "GLO/GLO_NonCopyable.hpp"

namespace bin {

/// A binary stream over a buffer in memory. The read and the write position are independent and start at 0.
class stringstream : public glo::NonCopyable_t, public iostream {
  public:
    stringstream() { UseRoom(); }
    explicit stringstream(const std::vector<unsigned char>& buffer);
    ~stringstream() override = default;

    /// The whole buffer. The reference is good until the next write.
    const std::vector<unsigned char>& Buffer();

    /// Takes every byte that can still be read, in one go, as reading them one by one would: the read position moves to
    /// the end and the end bit is set, or the fail bit where not even one byte was left. A stream that is not good
    /// gives nothing.
    std::vector<unsigned char> TakeRemaining();

    void ignore(unsigned long n) override;
    void ignore_string() override;
    int peek() override;
    void seekg(unsigned long position) override;
    unsigned long tellg() override;
    void BinInput(void* destination, unsigned long n) override;
    unsigned long RemainingSize() override;
    void StringInput(std::string& text) override;

    void seekp(unsigned long position) override;
    unsigned long tellp() override;
    void BinOutput(const void* source, unsigned long n) override;

  protected:
    /// Bytes of somebody else, which must stay as they are for the life of the stream.
    struct Borrowed_t {
        const unsigned char* begin;
        unsigned long size;
    };

    /// Starts with a copy of the bytes, as far as anyone can tell: they are really copied at the first write, or when
    /// Buffer() is asked for. Most streams over a received frame are only read.
    explicit stringstream(Borrowed_t bytes);

  private:
    /// Where the bytes are.
    enum class Storage_t : unsigned char {
        Borrowed,  ///< with somebody else
        Room,      ///< in the object itself: most records fit, and most streams are gone before anyone needs a vector
        Buffer,    ///< in the vector, which may be longer than the data
    };

    void StateChanged() override;
    unsigned long Length() const;
    unsigned long Remaining() const { return Length() - static_cast<unsigned long>(mReadCursor - mData); }
    unsigned long WritePosition() const;
    bool Readable();
    void AdvanceTo(unsigned long position);
    const unsigned char* FindZero();
    void Reserve(unsigned long size);
    void Place(unsigned char* data, unsigned long room, unsigned long readPosition, unsigned long writePosition);
    void OpenReadWindow();
    void UseRoom() {
        mData = mReadCursor = mReadEnd = mRoom.data();
        mWriteCursor = mRoom.data();
        mWriteEnd = mWriteLimit = mRoom.data() + mRoom.size();
        mStorage = Storage_t::Room;
    }

    const unsigned char* mData = nullptr;
    unsigned long mLength = 0;             ///< bytes of data, but for those written since through the write cursor
    unsigned long mWritePosition = 0;      ///< while the bytes are borrowed; otherwise the write cursor tells
    unsigned char* mWriteLimit = nullptr;  ///< end of the room, also while the write window is closed
    Storage_t mStorage = Storage_t::Borrowed;
    std::vector<unsigned char> mBuffer;
    std::array<unsigned char, 128> mRoom;
};

}  // namespace bin
