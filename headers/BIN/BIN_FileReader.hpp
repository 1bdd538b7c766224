#pragma once

#include "BIN/BIN_istream.hpp"
#include "FIL/FIL_File.hpp"
#include "GLO/GLO_NonCopyable.hpp"

#include <array>
#include <cstdint>
#include <ios>
#include <string>

namespace bin {

/// How a stream reads a file: at a position of its own, with a read-ahead of 1024 bytes. Numbers that lie in it are
/// taken without asking the system. Whatever needs more than it holds, and every other operation of the stream, asks
/// for the file's size first and drops what is held once that is another than before. So a file that has grown is read
/// on, and one that was cut ends a read-ahead late at the most, where numbers alone are read; bytes that another
/// program writes over in place may be seen as late. Owned by the stream whose state it sets, beside the file; the file
/// is open. One thread at a time.
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
