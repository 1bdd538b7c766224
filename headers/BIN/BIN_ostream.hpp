#pragma once

#include "BIN/BIN_ios.hpp"
#include "GLO/GLO_Optional.hpp"

#include <cstdint>
#include <cstring>
#include <string>

namespace bin {

/// Output half of a binary stream; writes what istream reads, in the same widths. A `long` keeps only its low 32 bits
/// but occupies eight bytes, the upper four of them zero: that is what the devices expect. Nothing is written while the
/// stream is bad or failed.
class ostream : public virtual ios {
  public:
    ~ostream() override = default;

    /// Moves the write position. Beyond the data of a memory stream the gap is filled with zeros.
    virtual void seekp(unsigned long position) = 0;
    virtual unsigned long tellp() = 0;  ///< the write position, in bytes from the start
    /// Writes n bytes at the write position.
    virtual void BinOutput(const void* source, unsigned long n) = 0;

    /// Writes one value in the width of its type (see istream).
    /// @{
    ostream& operator<<(char value) { return Scalar(value); }
    ostream& operator<<(signed char value) { return Scalar(value); }
    ostream& operator<<(unsigned char value) { return Scalar(value); }
    ostream& operator<<(bool value) { return Scalar(static_cast<unsigned char>(value ? 1 : 0)); }
    ostream& operator<<(short value) { return Scalar(value); }
    ostream& operator<<(unsigned short value) { return Scalar(value); }
    ostream& operator<<(int value) { return Scalar(value); }
    ostream& operator<<(unsigned int value) { return Scalar(value); }
    ostream& operator<<(long value) { return *this << static_cast<unsigned long>(value); }
    ostream& operator<<(unsigned long value) { return Scalar(static_cast<std::uint64_t>(value & 0xFFFFFFFFU)); }
    ostream& operator<<(long long value) { return Scalar(value); }
    ostream& operator<<(unsigned long long value) { return Scalar(value); }
    ostream& operator<<(float value) { return Scalar(value); }
    ostream& operator<<(double value) { return Scalar(value); }
    /// @}

    /// Writes the characters and one 0 byte.
    /// @{
    ostream& operator<<(const std::string& value);
    ostream& operator<<(const char* value) { return *this << std::string(value); }
    /// @}

    /// Writes the text in the output encoding and one 0 byte. Without an encoding this is a mistake of the program and
    /// stops the process.
    /// @{
    ostream& operator<<(const std::wstring& value);
    ostream& operator<<(const wchar_t* value) { return *this << std::wstring(value); }
    /// @}

    ostream& operator<<(const void*) = delete;  // a pointer would else be taken for a bool

    ostream& put(unsigned char byte) { return Scalar(byte); }  ///< @plain
    /// Writes n bytes.
    ostream& write(const void* source, unsigned long n) {
        BinOutput(source, n);
        return *this;
    }
    /// Writes n copies of a byte.
    ostream& fill(char byte, unsigned long n);

    /// The output encoding: the code page of wide strings (see GLO_String); unknown at first.
    /// @{
    void encodingp(const glo::Optional_t<unsigned int>& codePage) { mEncoding.Assign(codePage); }
    const glo::Optional_t<unsigned int>& encodingp() const { return mEncoding; }
    /// @}

  protected:
    ostream() = default;

    /// Room of a memory stream that can be written without asking it, from the write position on; the scalar operators
    /// fill it and call BinOutput() where it does not suffice. Empty while the stream is bad or failed, and for streams
    /// that are no memory.
    /// @{
    unsigned char* mWriteCursor = nullptr;
    unsigned char* mWriteEnd = nullptr;
    /// @}

  private:
    template <typename T>
    ostream& Scalar(T value) {
        if (mWriteEnd - mWriteCursor >= static_cast<std::ptrdiff_t>(sizeof value)) [[likely]] {
            std::memcpy(mWriteCursor, &value, sizeof value);
            mWriteCursor += sizeof value;
        } else {
            BinOutput(&value, sizeof value);
        }
        return *this;
    }

    glo::Optional_t<unsigned int> mEncoding;
};

}  // namespace bin
