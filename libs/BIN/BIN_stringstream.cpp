#include "BIN/BIN_stringstream.hpp"

#include <algorithm>
#include <cstring>

namespace bin {

stringstream::stringstream(const std::vector<unsigned char>& buffer)
    : stringstream(Borrowed_t{buffer.data(), buffer.size()}) {
    Reserve(buffer.size());
}

stringstream::stringstream(Borrowed_t bytes) : mData(bytes.begin), mLength(bytes.size) {
    if (bytes.size == 0) {
        UseRoom();
        return;
    }
    mReadCursor = bytes.begin;
    mReadEnd = bytes.begin + bytes.size;
}

unsigned long stringstream::Length() const {
    return std::max(mLength, WritePosition());
}

unsigned long stringstream::WritePosition() const {
    return mStorage == Storage_t::Borrowed ? mWritePosition : static_cast<unsigned long>(mWriteCursor - mData);
}

/// Makes the bytes the stream's own, if they are not, and makes room for at least so many in all.
void stringstream::Reserve(unsigned long size) {
    const unsigned long readPosition = tellg();
    const unsigned long writePosition = WritePosition();
    mLength = Length();
    size = std::max(size, mLength);
    if (mStorage != Storage_t::Buffer && size <= mRoom.size()) {
        if (mStorage == Storage_t::Borrowed) std::copy_n(mData, mLength, mRoom.data());
        mStorage = Storage_t::Room;
        Place(mRoom.data(), mRoom.size(), readPosition, writePosition);
        return;
    }
    // What is borrowed is mostly patched and not appended to; what grows once grows again.
    const unsigned long room = mStorage == Storage_t::Borrowed ? size : std::max(size, 2 * mLength);
    if (mStorage != Storage_t::Buffer) {
        mBuffer.reserve(room);
        mBuffer.assign(mData, mData + mLength);
    }
    mBuffer.resize(room);
    mStorage = Storage_t::Buffer;
    Place(mBuffer.data(), room, readPosition, writePosition);
}

/// Points everything at the bytes' present place.
void stringstream::Place(unsigned char* data, unsigned long room, unsigned long readPosition,
                         unsigned long writePosition) {
    mData = data;
    mReadCursor = data + readPosition;
    mWriteCursor = data + writePosition;
    mWriteLimit = data + room;
    StateChanged();
}

void stringstream::StateChanged() {
    OpenReadWindow();
    mWriteEnd = fail() ? mWriteCursor : mWriteLimit;
}

/// Brings the read window up to the data's present end, where reading is possible at all.
void stringstream::OpenReadWindow() {
    mReadEnd = good() ? mData + Length() : mReadCursor;
}

/// After a read: a read position at the end of the data sets the end bit.
void stringstream::AdvanceTo(unsigned long position) {
    const unsigned long length = Length();
    mReadCursor = mData + position;
    mReadEnd = mData + length;
    if (position == length) MarkState(eofbit);  // the window is empty by itself
}

const std::vector<unsigned char>& stringstream::Buffer() {
    const unsigned long readPosition = tellg();
    const unsigned long writePosition = WritePosition();
    mLength = Length();
    if (mStorage == Storage_t::Buffer)
        mBuffer.resize(mLength);  // the room behind the data goes
    else
        mBuffer.assign(mData, mData + mLength);
    mStorage = Storage_t::Buffer;
    Place(mBuffer.data(), mLength, readPosition, writePosition);
    return mBuffer;
}

std::vector<unsigned char> stringstream::TakeRemaining() {
    if (!good()) return {};
    const unsigned long length = Length();
    if (Remaining() == 0) {
        setstate(failbit);
        return {};
    }
    std::vector<unsigned char> bytes(mReadCursor, mData + length);
    AdvanceTo(length);
    return bytes;
}

void stringstream::ignore(unsigned long n) {
    if (n == 0 || !Readable()) return;
    AdvanceTo(tellg() + std::min(n, Remaining()));
}

void stringstream::ignore_string() {
    if (const unsigned char* zero = FindZero()) AdvanceTo(static_cast<unsigned long>(zero - mData) + 1);
}

int stringstream::peek() {
    return good() && Remaining() > 0 ? *mReadCursor : -1;
}

void stringstream::seekg(unsigned long position) {
    if (position > Length()) {
        setstate(failbit);
        return;
    }
    mReadCursor = mData + position;
    OpenReadWindow();
}

unsigned long stringstream::tellg() {
    return static_cast<unsigned long>(mReadCursor - mData);
}

void stringstream::BinInput(void* destination, unsigned long n) {
    if (!Readable()) return;
    if (n > Remaining()) {
        setstate(failbit);
        return;
    }
    if (n > 0) std::memcpy(destination, mReadCursor, n);
    AdvanceTo(tellg() + n);
}

unsigned long stringstream::RemainingSize() {
    return Length() - tellg();
}

void stringstream::StringInput(std::string& text) {
    if (const unsigned char* zero = FindZero()) {
        text.assign(mReadCursor, zero);
        AdvanceTo(static_cast<unsigned long>(zero - mData) + 1);
    }
}

/// What every read starts with: nothing is read after a failure, and a read at the end is one.
bool stringstream::Readable() {
    if (fail()) return false;
    if (eof()) setstate(failbit);
    return !fail();
}

/// The 0 byte that ends the string at the read position; null, with the fail bit set, where there is none.
const unsigned char* stringstream::FindZero() {
    if (!Readable()) return nullptr;
    const unsigned long remaining = Remaining();
    const void* zero = remaining > 0 ? std::memchr(mReadCursor, 0, remaining) : nullptr;
    if (!zero) setstate(failbit);
    return static_cast<const unsigned char*>(zero);
}

void stringstream::seekp(unsigned long position) {
    mLength = Length();
    if (position > mLength) {
        Reserve(position);
        std::memset(mWriteCursor - WritePosition() + mLength, 0, position - mLength);
        mLength = position;
    }
    if (mStorage == Storage_t::Borrowed)
        mWritePosition = position;
    else
        mWriteCursor = mWriteCursor - WritePosition() + position;
    StateChanged();
}

unsigned long stringstream::tellp() {
    return WritePosition();
}

void stringstream::BinOutput(const void* source, unsigned long n) {
    if (n == 0 || fail()) return;
    if (static_cast<unsigned long>(mWriteLimit - mWriteCursor) < n) Reserve(WritePosition() + n);
    std::memcpy(mWriteCursor, source, n);
    mWriteCursor += n;
}

}  // namespace bin
