#pragma once

namespace bench {

/// Does nothing, where the compiler can't see it.
void Empty(char const* text);

}  // namespace bench
