#pragma once

#include <cstdint>
#include <string>

namespace glo {

/// Hands five texts and a number to the subroutine "error_report" of the script "Scripts/ErrorReport.scpt" of the main
/// bundle. Does nothing where there is no such script; one that can't be read is logged. What the script answers is
/// ignored. Nothing in this program calls it. Blocks while the script runs. Any thread.
void sendErrorReport(const std::wstring& a, const std::wstring& b, const std::wstring& c, const std::wstring& d,
                     std::int32_t n, const std::wstring& e);

}  // namespace glo
