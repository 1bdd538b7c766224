#pragma once

#include "explore/Plan.hpp"

#include <string>

namespace explore {

/// Carries out a plan in this process, whose process-wide objects nobody has touched, and looks at what must hold. What
/// does not ends the process (fail). Flows that were abandoned are left where they are: the process has to end after
/// it.
/// @param folder  for locks, journal and log files; it must be there, and have no "disk" and no "locks" in it
void run(const Plan& plan, const std::string& folder);

}  // namespace explore
