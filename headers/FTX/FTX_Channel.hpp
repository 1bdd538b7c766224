#pragma once

#include "IOA/IOA_Channel.hpp"

namespace ftx {

/// The channel of fitness devices. What it adds to the application channel are its transfers, none of which this build
/// has; the identification is the base's.
class Channel_t : public ioa::Channel_t {
  public:
    using ioa::Channel_t::Channel_t;
};

}  // namespace ftx
