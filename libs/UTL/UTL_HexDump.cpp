#include "UTL/UTL_HexDump.hpp"

#include "GLO/GLO_HexValueDump.hpp"

namespace utl {

std::string HexDump(std::span<const unsigned char> bytes) {
    return glo::HexRows(bytes, true);
}

}  // namespace utl
