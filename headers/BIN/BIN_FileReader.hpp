#pragma once

#include "BIN/BIN_istream.hpp"
#include "FIL/FIL_File.hpp"
#include "GLO/GLO_NonCopyable.hpp"

#include <array>
#include <cstdint>
#include <ios>
#include <string>

namespace bin {

/// How a stream reads a file: at a position of its own, with a read-ahead of 1024 bytes. Numbers are taken out of the
/// read-ahead without asking the file for its size. Every other operation, and a number that the read-ahead does not
/// hold, asks for the size first and drops the read-ahead when the size has changed. So a file that has grown is read
/// on. A file that is cut may still give up to 1024 bytes that had been read before. Bytes that are overwritten are
/// seen late, when the read-ahead is used up. Owned by the stream whose state it sets, beside the file; the file is
/// open. One thread at a time.
class FileReader_t : private glo::NonCopyable_t {
  public:
    FileReader_t(istream& stream, fil::File_t& file) : mStream(stream), mFile(file) {}  ///< borrows both

    std::uint64_t Position() const;       ///< the read position, bytes from the file's start
    void MoveTo(std::uint64_t position);  ///< anywhere; sets no bit

    /// Drops the read-ahead: the file was written to or is another one.
    void Forget();

    /// Has the next number ask again: the stream's state has changed.
    void CloseWindow() { MoveTo(Position()); }

    /// Bytes from the read position to the end.
    /// @param size  of the file at this moment, in bytes
    unsigned long Remaining(std::uint64_t size);

    /// The stream's operation of the same name, by the rules of istream.
    /// @{
    void Ignore(unsigned long n);
    int Peek();
    void Seek(std::uint64_t size, unsigned long position);
    void Seek(std::uint64_t size, long offset, std::ios_base::seekdir from);
    void BinInput(void* destination, unsigned long n);
    void StringInput(std::string& text);
    /// @}

  private:
    void Fetch(void* destination, unsigned long n);
    void OpenWindow(std::uint64_t end);

    istream& mStream;
    fil::File_t& mFile;
    std::uint64_t mPosition = 0;    ///< while the stream has no window: that has its own
    std::uint64_t mFileSize = 0;    ///< as it was last seen
    std::uint64_t mHeldOffset = 0;  ///< in the file
    std::uint64_t mHeldSize = 0;    ///< bytes of the read-ahead that are valid
    std::array<unsigned char, 1024> mHeld;
};

}  // namespace bin
