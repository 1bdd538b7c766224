#include "IOL/IOL_FrameStream.hpp"

namespace iol {

FrameStream_t::FrameStream_t() = default;
FrameStream_t::FrameStream_t(Frame_t const& frame)
    : bin::stringstream(Borrowed_t{frame.Data(), frame.Size()}), mPayload(frame.Payload()) {}
FrameStream_t::~FrameStream_t() = default;

}  // namespace iol
