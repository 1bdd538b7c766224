#include <algorithm>

#include "BIN/BIN_fstream.hpp"
#include "libs/BIN/impl/BIN_FileAccess.hpp"

namespace bin {

using From_t = fil::File_t::From_t;

ifstream::ifstream(const std::wstring& path, fil::ShareMode_t share) {
    open(path, share);
}
ifstream::~ifstream() = default;

void ifstream::open(const std::wstring& path, fil::ShareMode_t share) {
    close();
    clear();
    // Asked first, so that a file that may well be missing is no announced error.
    if (!fil::File_t::Exists(path)) {
        setstate(badbit);
        return;
    }
    Guarded(*this, [&] {
        mFile.Open(path, fil::OpenMode_t::Read, share);
        if (mFile.Size() == 0) setstate(eofbit);
    });
}

void ifstream::close() {
    mFile.Close();
}

unsigned long ifstream::size() {
    unsigned long size = 0;
    if (mFile.IsOpen()) Guarded(*this, [&] { size = mFile.Size(); });
    return size;
}

unsigned long ifstream::tellg() {
    unsigned long position = 0;
    if (mFile.IsOpen()) Guarded(*this, [&] { position = mFile.Position(); });
    return position;
}

unsigned long ifstream::RemainingSize() {
    const unsigned long position = tellg();
    const unsigned long end = size();
    return end > position ? end - position : 0;
}

void ifstream::ignore(unsigned long n) {
    if (n == 0 || !Readable(*this)) return;
    if (!mFile.IsOpen()) {
        setstate(failbit);
        return;
    }
    const unsigned long remaining = RemainingSize();
    const unsigned long count = std::min(n, remaining);
    if (!Guarded(*this, [&] { mFile.Seek(static_cast<std::int64_t>(count), From_t::Current); })) return;
    if (count == remaining) setstate(eofbit);
}

void ifstream::ignore_string() {
    std::string text;
    StringInput(text);
}

int ifstream::peek() {
    if (!good() || RemainingSize() == 0) return -1;
    unsigned char byte = 0;
    const bool done = Guarded(*this, [&] {
        ReadExactly(mFile, mFile.Position(), &byte, 1);
        mFile.Seek(-1, From_t::Current);
    });
    return done ? byte : -1;
}

void ifstream::seekg(unsigned long position) {
    if (position > size())
        setstate(failbit);
    else if (mFile.IsOpen())
        Guarded(*this, [&] { mFile.Seek(static_cast<std::int64_t>(position), From_t::Begin); });
}

void ifstream::seekg(long offset, std::ios_base::seekdir from) {
    unsigned long target = 0;
    if (SeekTarget(tellg(), size(), offset, from, target))
        seekg(target);
    else
        setstate(failbit);
}

void ifstream::BinInput(void* destination, unsigned long n) {
    if (fail()) return;
    if (n == 0 || !mFile.IsOpen()) {
        setstate(failbit);
        return;
    }
    if (!Readable(*this)) return;
    const unsigned long remaining = RemainingSize();
    if (n > remaining) {
        setstate(failbit);
        return;
    }
    if (Guarded(*this, [&] { ReadExactly(mFile, mFile.Position(), destination, n); }) && n == remaining)
        setstate(eofbit);
}

void ifstream::StringInput(std::string& text) {
    if (!Readable(*this)) return;
    const unsigned long position = tellg();
    const unsigned long end = size();
    std::string found;
    bool isFound = false;
    const bool done = !mFile.IsOpen() || Guarded(*this, [&] {
        isFound = StringAt(mFile, position, end, found);
        mFile.Seek(static_cast<std::int64_t>(isFound ? position + found.size() + 1 : position), From_t::Begin);
    });
    if (!done) return;
    if (!isFound) {
        setstate(failbit);
        return;
    }
    if (position + found.size() + 1 == end) setstate(eofbit);
    text = std::move(found);
}

}  // namespace bin
