#pragma once

#include "BIN/BIN_FileReader.hpp"
#include "BIN/BIN_iostream.hpp"
#include "FIL/FIL_File.hpp"
#include "GLO/GLO_NonCopyable.hpp"

#include <cstdint>
#include <ios>
#include <string>

namespace bin {

/// A file being read, with a read-ahead of 1024 bytes (FileReader_t says what that means for a file that changes
/// meanwhile). An open or a read that fails sets the bad bit and throws nothing. Unlike the other streams, a
/// read of 0 bytes sets the fail bit, as does any read or skip while no file is open; callers depend on it.
class ifstream : public glo::NonCopyable_t, public istream {
  public:
    ifstream() = default;  ///< not open
    /// Opens, as open() does.
    explicit ifstream(const std::wstring& path, fil::ShareMode_t share = fil::ShareMode_t::DenyNone);
    ~ifstream() override;

    /// Closes, clears the state and opens. An empty file sets the end bit at once. Blocks.
    void open(const std::wstring& path, fil::ShareMode_t share = fil::ShareMode_t::DenyNone);
    void close();                  ///< leaves the state word as it is
    virtual unsigned long size();  ///< of the file now, in bytes; 0 when none is open

    void ignore(unsigned long n) override;
    int peek() override;
    void seekg(unsigned long position) override;
    /// Moves the read position. A place outside the file sets the fail bit and moves nothing.
    virtual void seekg(long offset, std::ios_base::seekdir from);
    unsigned long tellg() override;
    void BinInput(void* destination, unsigned long n) override;
    unsigned long RemainingSize() override;
    void StringInput(std::string& text) override;

  private:
    void StateChanged() override { mReader.CloseWindow(); }
    bool IsOpen();

    fil::File_t mFile;
    FileReader_t mReader{*this, mFile};
};

/// A file being written, from empty. A failure sets the bad bit and throws nothing.
class ofstream : public glo::NonCopyable_t, public ostream {
  public:
    ofstream() = default;  ///< not open
    /// Opens, as open() does.
    explicit ofstream(const std::wstring& path, fil::ShareMode_t share = fil::ShareMode_t::DenyNone);
    ~ofstream() override;

    /// Closes, clears the state, and makes or empties the file. Blocks.
    void open(const std::wstring& path, fil::ShareMode_t share = fil::ShareMode_t::DenyNone);
    void close();  ///< leaves the state word as it is

    void seekp(unsigned long position) override;
    unsigned long tellp() override;
    void BinOutput(const void* source, unsigned long n) override;
    /// Moves the write position. A place before the file's start sets the fail bit and moves nothing.
    virtual void seekp(long offset, std::ios_base::seekdir from);
    /// Appends n copies of a byte to the file; the write position stays.
    virtual void expand(unsigned long n, unsigned char byte);

  private:
    fil::File_t mFile;
};

/// A file open both ways, with a position for each and a read-ahead of 1024 bytes. Reads while no file is open do
/// nothing and set no bit. A write past the end clears the end bit where it gives the reader something to read.
class fstream : public iostream {
  public:
    fstream() = default;  ///< not open
    /// Opens, as open() does.
    fstream(const std::wstring& path, std::ios_base::openmode mode,
            fil::ShareMode_t share = fil::ShareMode_t::DenyNone);
    ~fstream() override;

    /// Closes, clears the state and opens. A combination of modes that has no meaning (see FileOpenMode()) sets the bad
    /// bit. Blocks.
    void open(const std::wstring& path, std::ios_base::openmode mode,
              fil::ShareMode_t share = fil::ShareMode_t::DenyNone);
    virtual unsigned long size();                           ///< of the file now, in bytes; 0 when none is open
    virtual bool isopen() const { return mFile.IsOpen(); }  ///< @plain
    virtual void close();                                   ///< leaves the state word as it is

    void ignore(unsigned long n) override;
    int peek() override;
    void seekg(unsigned long position) override;
    /// Moves the read position. A place outside the file sets the fail bit and moves nothing.
    virtual void seekg(long offset, std::ios_base::seekdir from);
    unsigned long tellg() override;
    void BinInput(void* destination, unsigned long n) override;
    unsigned long RemainingSize() override;
    void StringInput(std::string& text) override;

    void seekp(unsigned long position) override;
    unsigned long tellp() override;
    void BinOutput(const void* source, unsigned long n) override;
    /// Moves the write position. A place before the file's start sets the fail bit and moves nothing.
    virtual void seekp(long offset, std::ios_base::seekdir from);
    /// Appends n copies of a byte to the file; the write position stays.
    virtual void expand(unsigned long n, unsigned char byte);

  private:
    void StateChanged() override { mReader.CloseWindow(); }

    fil::File_t mFile;
    std::uint64_t mWritePosition = 0;
    FileReader_t mReader{*this, mFile};
};

/// The file object's mode for a combination of the standard open modes; `ate` and `binary` do not matter.
///
/// | standard modes | file mode |
/// |---|---|
/// | in | Read |
/// | out; out, trunc | Write |
/// | out, app | Append |
/// | in, out | ReadWrite |
/// | in, out, trunc | ReadWriteCreate |
/// | in, out, app; in, app | ReadAppend |
///
/// @param fileMode  set only when the combination has a meaning
/// @return false when it has none
/// Any thread.
bool FileOpenMode(std::ios_base::openmode mode, fil::OpenMode_t& fileMode);

}  // namespace bin
