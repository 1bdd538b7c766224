#pragma once

#include "GLO/GLO_SmartPtr.hpp"
#include "IOL/IOL_Exception.hpp"

#include <iosfwd>
#include <utility>
#include <vector>

namespace iol {

class FrameStream_t;

/// What a link carries: a 16-bit packet id and an opaque run of payload bytes. A value: built once, copied freely.
/// Copies share the payload, which never changes after construction and goes with the last frame that holds it. One
/// thread at a time uses a frame; its copies may be on other threads, unlike the link that the frame came from.
class Frame_t {
  public:
    /// The shared payload. It carries its own reference count.
    class Data_t : public glo::RefCounter_t {
      public:
        /// @plain
        /// @{
        explicit Data_t(std::vector<unsigned char> payload) : bytes(std::move(payload)) {}
        std::vector<unsigned char> bytes;
        /// @}
    };

    /// Copies the bytes.
    /// @param id     the packet id
    /// @param bytes  may be null when count is 0
    /// @param count  of bytes
    Frame_t(unsigned short id, const unsigned char* bytes, unsigned int count);

    /// Takes the bytes over without copying them.
    /// @throws iol::Exception_t  more than 4294967295 bytes
    Frame_t(unsigned short id, std::vector<unsigned char> bytes);

    /// Takes every byte that can still be read from the stream, whose read position moves to the end and sets the end
    /// bit; a stream that has nothing to read, or that has failed, gives an empty payload and is left failed.
    /// @throws iol::Exception_t  more than 4294967295 bytes
    Frame_t(unsigned short id, FrameStream_t& stream);

    unsigned short Id() const { return mId; }  ///< the packet id

    /// The payload, good as long as a frame that shares it. Not of a frame that was moved from.
    /// @{
    const unsigned char* Data() const { return mData->bytes.data(); }
    unsigned int Size() const { return static_cast<unsigned int>(mData->bytes.size()); }
    const std::vector<unsigned char>& Bytes() const { return mData->bytes; }
    /// @}

    /// Writes the dump that diagnostics show: a heading, the id in decimal, the payload as a hex dump.
    void Write(std::wostream& stream) const;

  private:
    unsigned short mId;
    glo::SmartPtr_t<const Data_t> mData;  ///< empty only in a frame that was moved from
};

}  // namespace iol
