#include "bench/trace/empty.hpp"

namespace bench {

void Empty(const char*) {}

}  // namespace bench
