#pragma once

#include <iosfwd>
#include <span>
#include <string>

namespace glo {

/// Bytes in rows of 16: offset in 4 hexadecimal digits (more where it has more) and ": ", each byte as 2 digits and a
/// space, then two spaces and the row's characters ("." for what is not printable ASCII). No bytes give no text.
/// Any thread.
[[nodiscard]] std::string HexRows(std::span<const unsigned char> bytes, bool withTextColumn);

/// Writes these rows. Where the last row is full, or there are no bytes at all, the text column brings one more line of
/// two spaces; readers of these dumps expect it. Any thread.
void HexValueDump(const unsigned char* begin, const unsigned char* end, std::wostream& stream, bool withTextColumn);

}  // namespace glo
