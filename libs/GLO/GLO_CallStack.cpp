#include "GLO/GLO_CallStack.hpp"

#include "GLO/GLO_String.hpp"
#include "platform/common/CrashReporter.hpp"

namespace glo {

std::wstring CallStack() {
    constexpr std::size_t gcMostFrames = 1024;
    std::wstring text;
    for (const std::string& line : platform::callStackSymbols(gcMostFrames))
        text += wstring(line, gcUtf8Encoding) + L'\n';
    return text;
}

}  // namespace glo
