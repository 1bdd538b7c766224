#pragma once

#include <memory>

class DDFileLogger;

/// The tool's log: a file a day, of which the last seven are kept, in the lines of the tool's own form.
/// @return null where there is no place for a log
std::shared_ptr<DDFileLogger> makeDailyLog();
