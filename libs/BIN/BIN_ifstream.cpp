#include "BIN/BIN_fstream.hpp"
#include "libs/BIN/impl/BIN_FileAccess.hpp"

namespace bin {

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
    mReader.MoveTo(0);
    mReader.Forget();
}

unsigned long ifstream::size() {
    unsigned long size = 0;
    if (mFile.IsOpen()) Guarded(*this, [&] { size = mFile.Size(); });
    return size;
}

unsigned long ifstream::tellg() {
    return mReader.Position();
}

unsigned long ifstream::RemainingSize() {
    return mReader.Remaining(size());
}

/// Sets the fail bit where no file is open.
bool ifstream::IsOpen() {
    if (!mFile.IsOpen() && !fail()) setstate(failbit);
    return mFile.IsOpen();
}

void ifstream::ignore(unsigned long n) {
    if (n > 0 && IsOpen()) mReader.Ignore(n);
}

int ifstream::peek() {
    return mReader.Peek();
}

void ifstream::seekg(unsigned long position) {
    mReader.Seek(size(), position);
}

void ifstream::seekg(long offset, std::ios_base::seekdir from) {
    mReader.Seek(size(), offset, from);
}

void ifstream::BinInput(void* destination, unsigned long n) {
    if (n == 0 && !fail()) setstate(failbit);
    if (IsOpen()) mReader.BinInput(destination, n);
}

void ifstream::StringInput(std::string& text) {
    if (IsOpen()) mReader.StringInput(text);
}

}  // namespace bin
