#pragma once

#include "BIN/BIN_ios.hpp"
#include "GLO/GLO_Optional.hpp"

#include <cstdint>
#include <cstring>
#include <string>

namespace bin {

/// Input half of a binary stream. Every operator takes raw bytes in the host's order, no separators, no padding:
///
/// | type | bytes |
/// |---|---|
/// | char kinds, bool | 1 |
/// | short kinds | 2 |
/// | int kinds, float | 4 |
/// | long kinds | 8, of which the upper 32 bits are dropped |
/// | long long kinds, double | 8 |
/// | std::string | the characters and one 0 byte |
/// | std::wstring | the same, in the input encoding |
///
/// A read that can't be satisfied whole sets the fail bit, consumes nothing and leaves its target as it was. The read
/// that reaches the end sets the end bit, and the next one then fails.
class istream : public virtual ios {
    friend class FileReader_t;  // gives the streams that it reads for their window

  public:
    ~istream() override = default;

    /// Skips up to n bytes, never past the end.
    virtual void ignore(unsigned long n) = 0;
    /// Skips a string and its 0 byte.
    virtual void ignore_string();
    /// The next byte without taking it; -1 where there is none or any state bit is set.
    virtual int peek() = 0;
    /// Moves the read position. Beyond the data it sets the fail bit and stays. The end bit is left alone.
    virtual void seekg(unsigned long position) = 0;
    virtual unsigned long tellg() = 0;  ///< the read position, in bytes from the start
    /// Takes n bytes, or none.
    virtual void BinInput(void* destination, unsigned long n) = 0;
    /// Bytes from the read position to the end.
    virtual unsigned long RemainingSize() = 0;
    /// Takes a string and its 0 byte; without a 0 byte ahead it sets the fail bit and takes nothing.
    virtual void StringInput(std::string& text) = 0;

    /// Takes one value in the width of its type (see the table).
    /// @{
    istream& operator>>(char& value) { return Scalar(value); }
    istream& operator>>(signed char& value) { return Scalar(value); }
    istream& operator>>(unsigned char& value) { return Scalar(value); }
    istream& operator>>(short& value) { return Scalar(value); }
    istream& operator>>(unsigned short& value) { return Scalar(value); }
    istream& operator>>(int& value) { return Scalar(value); }
    istream& operator>>(unsigned int& value) { return Scalar(value); }
    istream& operator>>(long long& value) { return Scalar(value); }
    istream& operator>>(unsigned long long& value) { return Scalar(value); }
    istream& operator>>(float& value) { return Scalar(value); }
    istream& operator>>(double& value) { return Scalar(value); }
    istream& operator>>(bool& value) {
        return Via<unsigned char>(value, [](auto raw) { return raw != 0; });
    }
    istream& operator>>(long& value) {
        return Via<std::uint64_t>(value, [](auto raw) { return static_cast<long>(raw & gcLow32); });
    }
    istream& operator>>(unsigned long& value) {
        return Via<std::uint64_t>(value, [](auto raw) { return raw & gcLow32; });
    }
    /// @}

    istream& operator>>(std::string& value);  ///< as StringInput()
    /// Takes a string and its 0 byte and decodes it. Without an input encoding this is a mistake of the program and
    /// stops the process.
    istream& operator>>(std::wstring& value);

    /// Takes one byte; 0 where that fails.
    unsigned char get() {
        unsigned char byte = 0;
        Scalar(byte);
        return byte;
    }

    /// Takes min(n, RemainingSize()) bytes; asking for more than there is is no error.
    istream& read(char* destination, unsigned long n);
    /// Bytes that the last read() delivered.
    std::uint64_t gcount() const { return mGcount; }

    /// The input encoding: the code page of wide strings (see GLO_String); unknown at first.
    /// @{
    void encodingg(const glo::Optional_t<unsigned int>& codePage) { mEncoding.Assign(codePage); }
    const glo::Optional_t<unsigned int>& encodingg() const { return mEncoding; }
    /// @}

  protected:
    istream() = default;

    /// Bytes that can be taken without asking the stream, those of a memory stream or of a file stream's read-ahead:
    /// the scalar operators take from here while more than they need is left, and call BinInput() at the edge. It may
    /// end before the data does. Empty while the stream is not good, so that it need not be asked.
    /// @{
    const unsigned char* mReadCursor = nullptr;
    const unsigned char* mReadEnd = nullptr;
    /// @}

  private:
    static constexpr std::uint64_t gcLow32 = 0xFFFFFFFFU;

    template <typename T>
    istream& Scalar(T& value) {
        // Strictly more than needed: the read that reaches the end has the end bit to set.
        if (mReadEnd - mReadCursor > static_cast<std::ptrdiff_t>(sizeof value)) [[likely]] {
            std::memcpy(&value, mReadCursor, sizeof value);
            mReadCursor += sizeof value;
        } else {
            BinInput(&value, sizeof value);
        }
        return *this;
    }

    template <typename Raw, typename T, typename Convert>
    istream& Via(T& value, Convert convert) {
        Raw raw{};
        Scalar(raw);
        if (!fail()) value = convert(raw);
        return *this;
    }

    std::uint64_t mGcount = 0;
    glo::Optional_t<unsigned int> mEncoding;
};

}  // namespace bin
