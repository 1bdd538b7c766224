#include "platform/common/CrashReporter.hpp"

#include <cstdlib>
#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <memory>

namespace platform {
namespace {

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};

}  // namespace

std::vector<std::string> callStackSymbols(std::size_t mostFrames) {
    std::vector<void*> addresses(mostFrames + 1);  // the first is this function's own
    const int count = ::backtrace(addresses.data(), static_cast<int>(addresses.size()));
    const std::unique_ptr<char*, Free> symbols(::backtrace_symbols(addresses.data(), count));
    std::vector<std::string> lines;
    for (int i = 1; symbols && i < count; ++i) lines.push_back(demangledStackLine(symbols.get()[i]));
    return lines;
}

std::string demangledStackLine(const std::string& line) {
    const std::size_t plus = line.rfind('+');
    if (plus == std::string::npos) return line;
    // A path in front of the name stands outside its parenthesis and may hold a "_" of its own.
    const std::size_t bracket = line.rfind('(', plus);
    const std::size_t begin = line.find('_', bracket == std::string::npos ? 0 : bracket);
    if (begin == std::string::npos || begin >= plus) return line;
    const std::size_t end = line[plus - 1] == ' ' ? plus - 1 : plus;
    return line.substr(0, begin) + demangled(line.substr(begin, end - begin)) + line.substr(end);
}

std::string demangled(const std::string& name) {
    const std::unique_ptr<char, Free> text(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, nullptr));
    return text ? text.get() : name;
}

const char** crashReporterInfo() noexcept {
    return static_cast<const char**>(::dlsym(RTLD_DEFAULT, "__crashreporter_info__"));
}

}  // namespace platform
