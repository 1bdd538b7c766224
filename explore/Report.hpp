#pragma once

#include <string>
#include <string_view>

namespace explore {

/// Ends this world: what it did wrong is said, and the process with it is over.
[[noreturn]] void fail(const std::string& what);

/// Something that this world has reached, for the tally.
void fact(std::string_view kind, std::string_view what);

/// What happens in this world, for whoever follows it.
void trace(const std::string& line);

}  // namespace explore
