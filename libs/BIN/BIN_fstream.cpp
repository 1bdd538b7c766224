#include "BIN/BIN_fstream.hpp"

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
        {ios_base::in | ios_base::app, fil::OpenMode_t::ReadAppend},  // what is appended is wanted to be read too
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
    fstream::close();
    clear();
    fil::OpenMode_t fileMode{};
    if (!FileOpenMode(mode, fileMode)) {
        setstate(badbit);
        return;
    }
    if (!Guarded(*this, [&] { mFile.Open(path, fileMode, share); })) return;
    const bool atEnd = (mode & ios_base::ate) != 0;
    try {
        mWritePosition = mFile.Seek(0, atEnd ? From_t::End : From_t::Begin);
        mReader.MoveTo(mWritePosition);
        if (!atEnd && mFile.Size() == 0) setstate(eofbit);
    } catch (const glo::FileError_t&) {
        fstream::close();
        if (!atEnd) setstate(badbit);
    }
}

void fstream::close() {
    mFile.Close();
    mWritePosition = 0;
    mReader.MoveTo(0);
    mReader.Forget();
}

unsigned long fstream::size() {
    unsigned long size = 0;
    if (mFile.IsOpen()) Guarded(*this, [&] { size = mFile.Size(); });
    return size;
}

unsigned long fstream::tellg() {
    return mReader.Position();
}
unsigned long fstream::tellp() {
    return mWritePosition;
}

unsigned long fstream::RemainingSize() {
    return mReader.Remaining(size());
}

void fstream::ignore(unsigned long n) {
    if (mFile.IsOpen()) mReader.Ignore(n);
}

int fstream::peek() {
    return mReader.Peek();
}

void fstream::seekg(unsigned long position) {
    mReader.Seek(size(), position);
}

void fstream::seekg(long offset, ios_base::seekdir from) {
    mReader.Seek(size(), offset, from);
}

void fstream::BinInput(void* destination, unsigned long n) {
    if (mFile.IsOpen()) mReader.BinInput(destination, n);
}

void fstream::StringInput(std::string& text) {
    if (mFile.IsOpen()) mReader.StringInput(text);
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
    mReader.Forget();
    Guarded(*this, [&] {
        mFile.Seek(static_cast<std::int64_t>(mWritePosition), From_t::Begin);
        mFile.Write(source, n);
        mWritePosition = mFile.Position();
        if (eof() && mReader.Position() < mFile.Size()) clear(rdstate() & ~eofbit);
    });
}

void fstream::expand(unsigned long n, unsigned char byte) {
    if (!mFile.IsOpen() || fail() || n == 0) return;
    mReader.Forget();
    Guarded(*this, [&] {
        Expand(mFile, n, byte);
        if (eof()) clear(rdstate() & ~eofbit);
    });
}

}  // namespace bin
