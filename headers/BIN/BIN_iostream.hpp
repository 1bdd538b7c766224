#pragma once

#include "BIN/BIN_istream.hpp"
#include "BIN/BIN_ostream.hpp"

namespace bin {

/// A stream with both halves. They share the state word and nothing else.
class iostream : public istream, public ostream {
  public:
    ~iostream() override = default;

  protected:
    iostream() = default;
};

}  // namespace bin
