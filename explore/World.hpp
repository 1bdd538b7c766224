#pragma once

#include "explore/Plan.hpp"

#include <functional>
#include <string>

namespace explore {

/// Carries out a plan in this process, whose process-wide objects nobody has touched, and looks at what must hold. What
/// does not ends the process (fail). Flows that were abandoned are left where they are: the process has to end after
/// it.
/// @param folder  for locks and the journal; empty at first
/// @param trace   told of all that happens, in its order; empty for nobody
void run(const Plan& plan, const std::string& folder, const std::function<void(const std::string&)>& trace);

/// Something that this world has reached, for the tally.
void fact(const std::string& what);

}  // namespace explore
