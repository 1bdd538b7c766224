#pragma once

#include <string>

namespace explore {

/// Ends this world: what it did wrong is said, and the process with it is over.
[[noreturn]] void fail(const std::string& what);

/// Something that this world has reached, for the tally.
void fact(const std::string& what);

/// What happens in this world, for whoever follows it.
void trace(const std::string& line);

}  // namespace explore
