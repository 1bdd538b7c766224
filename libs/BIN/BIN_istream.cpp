#include "BIN/BIN_istream.hpp"

#include "GLO/GLO_String.hpp"

#include <algorithm>
#include <utility>

namespace bin {

void istream::ignore_string() {
    std::string text;
    StringInput(text);
}

istream& istream::operator>>(std::string& value) {
    std::string text;
    StringInput(text);
    if (!fail()) value = std::move(text);
    return *this;
}

istream& istream::operator>>(std::wstring& value) {
    glo::Assert(mEncoding.IsKnown(), "libs/BIN/BIN_istream", 239);  // a stable identifier that support knows
    std::string text;
    StringInput(text);
    if (!fail()) value = glo::wstring(text, mEncoding.Value());
    return *this;
}

istream& istream::read(char* destination, unsigned long n) {
    const unsigned long count = std::min(n, RemainingSize());
    BinInput(destination, count);
    mGcount = fail() ? 0 : count;
    return *this;
}

}  // namespace bin
