#include "BIN/BIN_fstream.hpp"

#include <algorithm>
#include <cstring>

#include "libs/BIN/impl/BIN_FileAccess.hpp"

namespace bin {

using From_t = fil::File_t::From_t;
using std::ios_base;

bool FileOpenMode(ios_base::openmode mode, fil::OpenMode_t& fileMode) {
    static const struct {
        ios_base::openmode mode;
        fil::OpenMode_t fileMode;
    } sRows[] = {
        {ios_base::in, fil::OpenMode_t::Read},
        {ios_base::out, fil::OpenMode_t::Write},
        {ios_base::out | ios_base::trunc, fil::OpenMode_t::Write},
        {ios_base::out | ios_base::app, fil::OpenMode_t::Append},
        {ios_base::in | ios_base::out, fil::OpenMode_t::ReadWrite},
        {ios_base::in | ios_base::out | ios_base::trunc, fil::OpenMode_t::ReadWriteCreate},
        {ios_base::in | ios_base::out | ios_base::app, fil::OpenMode_t::ReadAppend},
        {ios_base::in | ios_base::app, fil::OpenMode_t::ReadAppend},
    };
    const auto wanted = mode & ~(ios_base::ate | ios_base::binary);
    for (const auto& row : sRows) {
        if (row.mode != wanted) continue;
        fileMode = row.fileMode;
        return true;
    }
    return false;
}

fstream::fstream(const std::wstring& path, ios_base::openmode mode, fil::ShareMode_t share) {
    open(path, mode, share);
}
fstream::~fstream() = default;

void fstream::open(const std::wstring& path, ios_base::openmode mode, fil::ShareMode_t share) {
    close();
    clear();
    fil::OpenMode_t fileMode{};
    if (!FileOpenMode(mode, fileMode)) {
        setstate(badbit);
        return;
    }
    if (!Guarded(*this, [&] { mFile.Open(path, fileMode, share); })) return;
    const bool atEnd = (mode & ios_base::ate) != 0;
    try {
        mReadPosition = mWritePosition = mFile.Seek(0, atEnd ? From_t::End : From_t::Begin);
        if (!atEnd && mFile.Size() == 0) setstate(eofbit);
    } catch (const glo::FileError_t&) {
        close();
        if (!atEnd) setstate(badbit);
    }
}

void fstream::close() {
    mFile.Close();
    mReadPosition = mWritePosition = 0;
    mReadAheadOffset = gcNoBuffer;
}

unsigned long fstream::size() {
    unsigned long size = 0;
    if (mFile.IsOpen()) Guarded(*this, [&] { size = mFile.Size(); });
    return size;
}

unsigned long fstream::tellg() {
    return mReadPosition;
}
unsigned long fstream::tellp() {
    return mWritePosition;
}

unsigned long fstream::RemainingSize() {
    const unsigned long end = size();
    return end > mReadPosition ? end - mReadPosition : 0;
}

void fstream::ignore(unsigned long n) {
    if (n == 0 || !mFile.IsOpen() || !Readable(*this)) return;
    const unsigned long remaining = RemainingSize();
    mReadPosition += std::min(n, remaining);
    if (n >= remaining) setstate(eofbit);
}

void fstream::ignore_string() {
    std::string text;
    StringInput(text);
}

int fstream::peek() {
    if (!good() || RemainingSize() == 0) return -1;
    unsigned char byte = 0;
    return Guarded(*this, [&] { ReadExactly(mFile, mReadPosition, &byte, 1); }) ? byte : -1;
}

void fstream::seekg(unsigned long position) {
    if (position > size())
        setstate(failbit);
    else
        mReadPosition = position;
}

void fstream::seekg(long offset, ios_base::seekdir from) {
    unsigned long target = 0;
    if (SeekTarget(mReadPosition, size(), offset, from, target))
        seekg(target);
    else
        setstate(failbit);
}

/// Copies bytes that the file has at the read position, and moves on.
void fstream::Fetch(void* destination, unsigned long n) {
    if (n >= mReadAhead.size()) {
        ReadExactly(mFile, mReadPosition, destination, n);
        mReadPosition = mFile.Position();
        return;
    }
    const bool isHeld = mReadAheadOffset != gcNoBuffer && mReadPosition >= mReadAheadOffset &&
                        mReadPosition + n <= mReadAheadOffset + mReadAheadLength;
    if (!isHeld) {
        // Not valid until it has been filled: a failure on the way leaves it so.
        mReadAheadOffset = gcNoBuffer;
        mReadAheadLength = std::min<std::uint64_t>(mFile.Size() - mReadPosition, mReadAhead.size());
        ReadExactly(mFile, mReadPosition, mReadAhead.data(), mReadAheadLength);
        mReadAheadOffset = mReadPosition;
    }
    std::memcpy(destination, mReadAhead.data() + (mReadPosition - mReadAheadOffset), n);
    mReadPosition += n;
}

void fstream::BinInput(void* destination, unsigned long n) {
    if (!mFile.IsOpen() || !Readable(*this)) return;
    const unsigned long remaining = RemainingSize();
    if (n > remaining) {
        setstate(failbit);
        return;
    }
    if (n > 0 && !Guarded(*this, [&] { Fetch(destination, n); })) return;
    if (n == remaining) setstate(eofbit);
}

void fstream::StringInput(std::string& text) {
    if (!mFile.IsOpen() || !Readable(*this)) return;
    const unsigned long end = size();
    std::string found;
    bool isFound = false;
    if (!Guarded(*this, [&] { isFound = StringAt(mFile, mReadPosition, end, found); })) return;
    if (!isFound) {
        setstate(failbit);
        return;
    }
    mReadPosition += found.size() + 1;
    if (mReadPosition == end) setstate(eofbit);
    text = std::move(found);
}

void fstream::seekp(unsigned long position) {
    mWritePosition = position;
}

void fstream::seekp(long offset, ios_base::seekdir from) {
    unsigned long target = 0;
    if (SeekTarget(mWritePosition, size(), offset, from, target))
        seekp(target);
    else
        setstate(failbit);
}

void fstream::BinOutput(const void* source, unsigned long n) {
    if (fail()) return;
    mReadAheadOffset = gcNoBuffer;
    Guarded(*this, [&] {
        mFile.Seek(static_cast<std::int64_t>(mWritePosition), From_t::Begin);
        mFile.Write(source, n);
        mWritePosition = mFile.Position();
        if (eof() && mReadPosition < mFile.Size()) clear(rdstate() & ~eofbit);
    });
}

void fstream::expand(unsigned long n, unsigned char byte) {
    if (!mFile.IsOpen() || fail() || n == 0) return;
    mReadAheadOffset = gcNoBuffer;
    Guarded(*this, [&] {
        Expand(mFile, n, byte);
        if (eof()) clear(rdstate() & ~eofbit);
    });
}

}  // namespace bin
