#pragma once

#include "GLO/GLO_NonCopyable.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace glo {
class FileError_t;
}

namespace fil {

/// How a file is opened. The numbers are those that bin::fstream's table of modes speaks of.
enum class OpenMode_t {
    Read = 0,             ///< must exist
    Write = 1,            ///< made or emptied
    Append = 2,           ///< made if need be; every write goes to the end
    ReadWrite = 3,        ///< must exist
    ReadWriteCreate = 4,  ///< made or emptied
    ReadAppend = 5,       ///< made if need be; every write goes to the end
};

/// What others may do with the file meanwhile. Advisory: it binds those who open the file through this class.
enum class ShareMode_t {
    DenyNone,   ///< takes no lock
    DenyWrite,  ///< a reader shares with other such readers; a writer has the file alone
    DenyAll,    ///< has the file alone
};

/// An open file with a position of its own. One thread at a time.
class File_t : public glo::NonCopyable_t {
  public:
    File_t() = default;
    ~File_t() { Close(); }

    /// Where Seek() counts from.
    enum class From_t { Begin = SEEK_SET, Current = SEEK_CUR, End = SEEK_END };

    /// Opens a file, after closing the one that is open.
    /// @throws glo::FileError_t  it can't be opened, it is a folder, or another one's share mode forbids it; closed
    /// Blocks.
    void Open(const std::wstring& path, OpenMode_t mode, ShareMode_t share = ShareMode_t::DenyNone);
    void Close() noexcept;                            ///< gives its share mode up too
    bool IsOpen() const { return mDescriptor >= 0; }  ///< @plain

    /// Reads from the position on.
    /// @return bytes read; fewer than asked for only at the end of the file
    /// @throws glo::FileError_t  not open, or the system reported a failure; the position is then undefined
    /// Blocks.
    [[nodiscard]] std::size_t Read(void* destination, std::size_t size);

    /// Writes all bytes at the position, or at the end in the append modes.
    /// @throws glo::FileError_t  not open, or the system reported a failure; part may have been written
    /// Blocks.
    void Write(const void* source, std::size_t size);

    /// Moves the position and answers the new one. A position past the end is allowed.
    /// @throws glo::FileError_t  not open, or before the beginning; the position stays
    std::uint64_t Seek(std::int64_t offset, From_t from);

    /// In bytes. Size() asks the system anew.
    /// @throws glo::FileError_t  not open
    /// @{
    std::uint64_t Position() const;
    std::uint64_t Size() const;
    /// @}

    /// There is a file or folder of that name, whether it can be opened or not. Any thread.
    [[nodiscard]] static bool Exists(const std::wstring& path);

  private:
    [[noreturn]] void Fail(unsigned short line, int error) const;

    int mDescriptor = -1;  ///< owned; a plain number, so that this header needs none of the platform's
    std::wstring mPath;
};

}  // namespace fil
