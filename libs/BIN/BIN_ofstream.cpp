#include "BIN/BIN_fstream.hpp"
#include "libs/BIN/impl/BIN_FileAccess.hpp"

namespace bin {

using From_t = fil::File_t::From_t;

ofstream::ofstream(const std::wstring& path, fil::ShareMode_t share) {
    open(path, share);
}
ofstream::~ofstream() = default;

void ofstream::open(const std::wstring& path, fil::ShareMode_t share) {
    close();
    clear();
    Guarded(*this, [&] { mFile.Open(path, fil::OpenMode_t::Write, share); });
}

void ofstream::close() {
    mFile.Close();
}

void ofstream::seekp(unsigned long position) {
    if (!fail()) Guarded(*this, [&] { mFile.Seek(static_cast<std::int64_t>(position), From_t::Begin); });
}

void ofstream::seekp(long offset, std::ios_base::seekdir from) {
    if (fail()) return;
    Guarded(*this, [&] {
        unsigned long target = 0;
        if (SeekTarget(mFile.Position(), mFile.Size(), offset, from, target))
            mFile.Seek(static_cast<std::int64_t>(target), From_t::Begin);
        else
            setstate(failbit);
    });
}

unsigned long ofstream::tellp() {
    unsigned long position = 0;
    if (mFile.IsOpen()) Guarded(*this, [&] { position = mFile.Position(); });
    return position;
}

void ofstream::BinOutput(const void* source, unsigned long n) {
    if (!fail()) Guarded(*this, [&] { mFile.Write(source, n); });
}

void ofstream::expand(unsigned long n, unsigned char byte) {
    if (!mFile.IsOpen() || fail() || n == 0) return;
    Guarded(*this, [&] {
        const std::uint64_t position = mFile.Position();
        Expand(mFile, n, byte);
        mFile.Seek(static_cast<std::int64_t>(position), From_t::Begin);
    });
}

}  // namespace bin
