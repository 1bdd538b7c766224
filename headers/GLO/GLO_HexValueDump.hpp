#pragma once

#include <iosfwd>

namespace glo {

/// Dumps bytes in rows of 16: offset in 4 hexadecimal digits and ": ", each byte as 2 digits and a space, then two
/// spaces and the row's characters ("." for what is not printable ASCII). Where the last row is full, or there are no
/// bytes at all, the text column brings one more line of two spaces; readers of these dumps expect it.
/// Any thread.
void HexValueDump(const unsigned char* begin, const unsigned char* end, std::wostream& stream, bool withTextColumn);

}  // namespace glo
