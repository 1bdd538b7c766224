#include "BIN/BIN_stringstream.hpp"

#include "libs/BIN/impl/BIN_FileAccess.hpp"

#include <cstring>

namespace bin {

stringstream::stringstream(const std::vector<unsigned char>& buffer) : mBuffer(buffer), mLength(buffer.size()) {
    mReadCursor = mWriteCursor = mBuffer.data();
    stringstream::StateChanged();
}

/// Gives the buffer a size, of which the data is a part, and points everything at its present place.
void stringstream::Resize(unsigned long size) {
    const unsigned long readPosition = ReadPosition();
    const unsigned long writePosition = WritePosition();
    mLength = Length();
    mBuffer.resize(size);
    mReadCursor = mBuffer.data() + readPosition;
    mWriteCursor = mBuffer.data() + writePosition;
    StateChanged();
}

/// Opens the windows as far as the data and the room go, where reading and writing are possible at all.
void stringstream::StateChanged() {
    mReadEnd = good() ? mBuffer.data() + Length() : mReadCursor;
    mWriteEnd = fail() ? mWriteCursor : mBuffer.data() + mBuffer.size();
}

/// After a read: a read position at the end of the data sets the end bit.
void stringstream::AdvanceTo(unsigned long position) {
    mReadCursor = mBuffer.data() + position;
    mReadEnd = mBuffer.data() + Length();
    if (mReadCursor == mReadEnd) MarkState(eofbit);  // the window is empty by itself
}

const std::vector<unsigned char>& stringstream::Buffer() {
    Resize(Length());  // the room behind the data goes
    return mBuffer;
}

std::vector<unsigned char> stringstream::TakeRemaining() {
    if (!good()) return {};
    const unsigned char* const begin = mReadCursor;
    if (Remaining() == 0)
        setstate(failbit);
    else
        AdvanceTo(Length());
    return {begin, mReadCursor};
}

void stringstream::ignore(unsigned long n) {
    if (n == 0 || !Readable(*this)) return;
    AdvanceTo(ReadPosition() + std::min(n, Remaining()));
}

int stringstream::peek() {
    return good() && Remaining() > 0 ? *mReadCursor : -1;
}

void stringstream::seekg(unsigned long position) {
    if (position > Length()) {
        setstate(failbit);
        return;
    }
    mReadCursor = mBuffer.data() + position;
    StateChanged();
}

unsigned long stringstream::tellg() {
    return ReadPosition();
}

void stringstream::BinInput(void* destination, unsigned long n) {
    if (!Readable(*this)) return;
    if (n > Remaining()) {
        setstate(failbit);
        return;
    }
    if (n > 0) std::memcpy(destination, mReadCursor, n);
    AdvanceTo(ReadPosition() + n);
}

unsigned long stringstream::RemainingSize() {
    return Remaining();
}

void stringstream::StringInput(std::string& text) {
    if (!Readable(*this)) return;
    const unsigned long remaining = Remaining();
    const void* const zero = remaining > 0 ? std::memchr(mReadCursor, 0, remaining) : nullptr;
    if (!zero) {
        setstate(failbit);
        return;
    }
    const auto* const end = static_cast<const unsigned char*>(zero);
    text.assign(mReadCursor, end);
    AdvanceTo(static_cast<unsigned long>(end + 1 - mBuffer.data()));
}

void stringstream::seekp(unsigned long position) {
    mLength = std::max(Length(), position);
    if (position > mBuffer.size()) Resize(position);
    mWriteCursor = mBuffer.data() + position;
    StateChanged();
}

unsigned long stringstream::tellp() {
    return WritePosition();
}

void stringstream::BinOutput(const void* source, unsigned long n) {
    if (n == 0 || fail()) return;
    const unsigned long end = WritePosition() + n;
    // What grows once grows again.
    if (end > mBuffer.size()) Resize(std::max({end, 2 * Length(), 64UL}));
    std::memcpy(mWriteCursor, source, n);
    mWriteCursor += n;
}

}  // namespace bin
