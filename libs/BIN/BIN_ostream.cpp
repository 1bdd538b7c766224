#include "BIN/BIN_ostream.hpp"

#include "GLO/GLO_String.hpp"

#include <algorithm>
#include <array>

namespace bin {

ostream& ostream::operator<<(const std::string& value) {
    BinOutput(value.c_str(), value.size() + 1);
    return *this;
}

ostream& ostream::operator<<(const std::wstring& value) {
    glo::Assert(mEncoding.IsKnown(), "libs/BIN/BIN_ostream", 229);  // a stable identifier that support knows
    return *this << glo::string(value, mEncoding.Value());
}

ostream& ostream::fill(char byte, unsigned long n) {
    std::array<char, 256> block;
    block.fill(byte);
    while (n > 0) {
        const unsigned long count = std::min<unsigned long>(n, block.size());
        BinOutput(block.data(), count);
        n -= count;
    }
    return *this;
}

}  // namespace bin
