#pragma once

#include "GLO/GLO_HexValueDump.hpp"

#include <span>
#include <string>

namespace utl {

/// Bytes as text for a trace: rows of 16, each opened by its offset in 4 hexadecimal digits, then the bytes, then their
/// characters ("." for what is not printable). Nothing follows a full last row. No bytes give no text. Any thread.
///
///     0000: 14 00 00 00 0a 00 00 00 02 00 00 00 ae 00       ..............
[[nodiscard]] inline std::string HexDump(std::span<const unsigned char> bytes) {
    return glo::HexRows(bytes, true);
}

}  // namespace utl
