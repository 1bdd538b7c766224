#pragma once

#include <string>
#include <string_view>

namespace explore {

// Called by whoever has the baton (Baton.hpp), in a world's process; trace() also by the parent before it forks. Never
// by the threads of loggers: nothing here is guarded.

/// Ends this world's process at once, with status 1; the parent reads what the world did wrong.
[[noreturn]] void fail(const std::string& what);

/// Something that this world has reached, for the tally of --facts.
void fact(std::string_view kind, std::string_view what);

/// A line on standard output where --trace was given; else nothing.
void trace(const std::string& line);

}  // namespace explore
