#pragma once

#include "GLO/GLO_Time.hpp"

#include <string>

namespace win {

/// The moment's local text in UTF-8 for a trace; "00:00:00  " for one that has none.
std::string TimeStampText(glo::Time_t moment, glo::Time_t::DateFlag_t date);

}  // namespace win
