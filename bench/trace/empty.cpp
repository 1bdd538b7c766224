#include "bench/trace/empty.hpp"

namespace bench {

void Empty(char const*) {}

}  // namespace bench
