#pragma once

#include "BIN/BIN_istream.hpp"

#include <cstddef>
#include <iterator>

namespace bin {

template <typename T>
class istream_iterator;

/// Takes a stream byte by byte. Looking at the byte leaves it in the stream; stepping on takes it. The end iterator
/// (without a stream) equals every iterator whose stream has the end bit set; two iterators on streams are never equal.
template <>
class istream_iterator<unsigned char> {
  public:
    /// @plain
    /// @{
    using iterator_category = std::input_iterator_tag;
    using value_type = unsigned char;
    using difference_type = std::ptrdiff_t;
    using pointer = const unsigned char*;
    using reference = unsigned char;
    /// @}

    /// What `it++` answers: the byte that was stepped over.
    class Byte_t {
      public:
        /// @plain
        /// @{
        explicit Byte_t(unsigned char byte) : mByte(byte) {}
        unsigned char operator*() const { return mByte; }
        /// @}

      private:
        unsigned char mByte;
    };

    istream_iterator() = default;                            ///< the end
    istream_iterator(istream& stream) : mStream(&stream) {}  ///< borrows the stream

    /// The next byte, left in the stream; 255 where there is none. Not on the end iterator.
    unsigned char operator*() const { return static_cast<unsigned char>(mStream->peek()); }

    /// Takes the byte. Not on the end iterator.
    /// @{
    istream_iterator& operator++() {
        mStream->ignore(1);
        return *this;
    }
    Byte_t operator++(int) {
        const Byte_t byte(**this);
        ++*this;
        return byte;
    }
    /// @}

    /// Whether both have come to the end, as the class says.
    friend bool operator==(const istream_iterator& a, const istream_iterator& b) {
        if (a.mStream && b.mStream) return false;
        const istream* stream = a.mStream ? a.mStream : b.mStream;
        return !stream || stream->eof();
    }

  private:
    istream* mStream = nullptr;
};

}  // namespace bin
