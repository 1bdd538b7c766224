#include "IOL/IOL_FrameStream.hpp"

namespace iol {

FrameStream_t::FrameStream_t() = default;
FrameStream_t::FrameStream_t(Frame_t const& frame) : bin::stringstream(frame.Bytes()) {}
FrameStream_t::~FrameStream_t() = default;

}  // namespace iol
