#pragma once

namespace bench {

/// Does nothing, where the compiler can't see it.
void Empty(const char* text);

}  // namespace bench
