#pragma once

#include "IOA/IOA_Channel.hpp"

namespace ftx {

/// The channel of fitness devices. What it adds to the application channel are its transfers, none of which this build
/// has; the identification is the base's.
class Channel_t : public ioa::Channel_t {
  public:
    explicit Channel_t(iol::Link_t& link);
    ~Channel_t() override;
};

}  // namespace ftx
