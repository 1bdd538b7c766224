#include "FTX/FTX_Channel.hpp"

namespace ftx {

Channel_t::Channel_t(iol::Link_t& link) : ioa::Channel_t(link) {}
Channel_t::~Channel_t() = default;

}  // namespace ftx
