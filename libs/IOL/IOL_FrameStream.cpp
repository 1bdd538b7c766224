#include "IOL/IOL_FrameStream.hpp"

namespace iol {

FrameStream_t::FrameStream_t() = default;
FrameStream_t::FrameStream_t(const Frame_t& frame) : bin::stringstream(frame.Bytes()) {}
FrameStream_t::~FrameStream_t() = default;

}  // namespace iol
