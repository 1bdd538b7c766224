#pragma once

#include "BIN/BIN_stringstream.hpp"
#include "IOL/IOL_Frame.hpp"

namespace iol {

/// A binary stream over a copy of a frame's payload; both positions start at 0. Packets read their fields from one, or
/// write their fields into one over an empty frame: little-endian, no padding, a text as its bytes and one 0 byte.
class FrameStream_t : public bin::stringstream {
  public:
    /// A stream over no bytes, to be written into.
    FrameStream_t() = default;
    /// A stream over a copy of the payload, to be read.
    explicit FrameStream_t(const Frame_t& frame) : bin::stringstream(frame.Bytes()) {}
};

}  // namespace iol
