#include "GLO/GLO_CallStack.hpp"

#include "GLO/GLO_String.hpp"

#include <array>
#include <cstdlib>
#include <cxxabi.h>
#include <execinfo.h>
#include <memory>

namespace glo {
namespace {

struct Free_t {
    void operator()(void* memory) const { std::free(memory); }
};

}  // namespace

std::string DemangledStackLine(const std::string& line) {
    const std::size_t plus = line.rfind('+');
    if (plus == std::string::npos) return line;
    // A path in front of the name stands outside its parenthesis and may hold a "_" of its own.
    const std::size_t bracket = line.rfind('(', plus);
    const std::size_t begin = line.find('_', bracket == std::string::npos ? 0 : bracket);
    if (begin == std::string::npos || begin >= plus) return line;
    const std::size_t end = line[plus - 1] == ' ' ? plus - 1 : plus;
    int status = 0;
    const std::unique_ptr<char, Free_t> name(
        abi::__cxa_demangle(line.substr(begin, end - begin).c_str(), nullptr, nullptr, &status));
    if (!name) return line;
    return line.substr(0, begin) + name.get() + line.substr(end);
}

std::wstring CallStack() {
    std::array<void*, 1024> addresses{};
    const int count = backtrace(addresses.data(), static_cast<int>(addresses.size()));
    const std::unique_ptr<char*, Free_t> lines(backtrace_symbols(addresses.data(), count));
    std::wstring text;
    for (int i = 0; lines && i < count; ++i)
        text += wstring(DemangledStackLine(lines.get()[i]), gcUtf8Encoding) + L"\n";
    return text;
}

}  // namespace glo
