#include "BIN/BIN_FileReader.hpp"

#include "libs/BIN/impl/BIN_FileAccess.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace bin {
namespace {

/// Reads so many bytes from a place that has them. Less can only be because somebody cut the file meanwhile.
void ReadExactly(fil::File_t& file, std::uint64_t position, void* destination, std::size_t size) {
    file.Seek(static_cast<std::int64_t>(position), fil::File_t::From_t::Begin);
    if (file.Read(destination, size) != size) throw glo::FileError_t("libs/BIN/BIN_FileReader", __LINE__, L"");
}

/// The string at a position of a file, without its 0 byte.
/// @return false when there is no 0 byte from there to the end
bool StringAt(fil::File_t& file, std::uint64_t position, std::uint64_t size, std::string& text) {
    text.clear();
    char block[256];
    while (position < size) {
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(size - position, sizeof block));
        ReadExactly(file, position, block, count);
        const auto length = static_cast<std::size_t>(std::find(block, block + count, '\0') - block);
        text.append(block, length);
        if (length < count) return true;
        position += count;
    }
    return false;
}

}  // namespace

std::uint64_t FileReader_t::Position() const {
    if (!mStream.mReadCursor) return mPosition;
    return mHeldOffset + static_cast<std::uint64_t>(mStream.mReadCursor - mHeld.data());
}

void FileReader_t::MoveTo(std::uint64_t position) {
    mPosition = position;
    mStream.mReadCursor = mStream.mReadEnd = nullptr;
}

void FileReader_t::Forget() {
    CloseWindow();
    mHeldSize = 0;
}

/// Lets the stream take what is held from the read position on, up to that place of the file.
void FileReader_t::OpenWindow(std::uint64_t end) {
    end = std::min(end, mHeldOffset + mHeldSize);
    if (mPosition < mHeldOffset || mPosition >= end) return;
    mStream.mReadCursor = mHeld.data() + (mPosition - mHeldOffset);
    mStream.mReadEnd = mHeld.data() + (end - mHeldOffset);
}

unsigned long FileReader_t::Remaining(std::uint64_t size) {
    if (std::exchange(mFileSize, size) != size) Forget();
    const std::uint64_t position = Position();
    return size > position ? size - position : 0;
}

void FileReader_t::Ignore(unsigned long n) {
    if (n == 0 || !Readable(mStream)) return;
    const unsigned long remaining = mStream.RemainingSize();
    MoveTo(Position() + std::min(n, remaining));
    if (n >= remaining) mStream.setstate(ios::eofbit);
}

int FileReader_t::Peek() {
    if (!mStream.good() || mStream.RemainingSize() == 0) return -1;
    unsigned char byte = 0;
    return Guarded(mStream, [&] { ReadExactly(mFile, Position(), &byte, 1); }) ? byte : -1;
}

void FileReader_t::Seek(std::uint64_t size, unsigned long position) {
    if (position > size)
        mStream.setstate(ios::failbit);
    else
        MoveTo(position);
}

void FileReader_t::Seek(std::uint64_t size, long offset, std::ios_base::seekdir from) {
    unsigned long target = 0;
    if (SeekTarget(Position(), size, offset, from, target))
        mStream.seekg(target);
    else
        mStream.setstate(ios::failbit);
}

/// Copies bytes that the file has at the read position, and moves on.
void FileReader_t::Fetch(void* destination, unsigned long n) {
    if (n >= mHeld.size()) {
        ReadExactly(mFile, mPosition, destination, n);
    } else {
        if (mPosition < mHeldOffset || mPosition + n > mHeldOffset + mHeldSize) {
            // Not valid until it has been filled: a failure on the way leaves it so.
            Forget();
            const std::uint64_t end = mFile.Size();
            const auto size = std::min<std::uint64_t>(end - std::min(mPosition, end), mHeld.size());
            ReadExactly(mFile, mPosition, mHeld.data(), std::max<std::uint64_t>(size, n));
            mHeldOffset = mPosition;
            mHeldSize = size;
        }
        std::memcpy(destination, mHeld.data() + (mPosition - mHeldOffset), n);
    }
    mPosition += n;
}

void FileReader_t::BinInput(void* destination, unsigned long n) {
    if (!Readable(mStream)) return;
    const unsigned long remaining = mStream.RemainingSize();
    if (n > remaining) {
        mStream.setstate(ios::failbit);
        return;
    }
    CloseWindow();
    const std::uint64_t end = mPosition + remaining;
    if (n > 0 && !Guarded(mStream, [&] { Fetch(destination, n); })) return;
    if (n == remaining)
        mStream.setstate(ios::eofbit);
    else
        OpenWindow(end);
}

void FileReader_t::StringInput(std::string& text) {
    if (!Readable(mStream)) return;
    const std::uint64_t end = Position() + mStream.RemainingSize();
    std::string found;
    bool isFound = false;
    if (!Guarded(mStream, [&] { isFound = StringAt(mFile, Position(), end, found); })) return;
    if (!isFound) {
        mStream.setstate(ios::failbit);
        return;
    }
    MoveTo(Position() + found.size() + 1);
    if (mPosition == end) mStream.setstate(ios::eofbit);
    text = std::move(found);
}

}  // namespace bin
