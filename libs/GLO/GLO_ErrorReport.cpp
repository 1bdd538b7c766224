#include "GLO/GLO_ErrorReport.hpp"

#include "GLO/GLO_String.hpp"
#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"
#include "platform/ScriptRunner.hpp"

#include <fstream>
#include <iterator>
#include <string_view>

namespace glo {
namespace {

/// The text as a literal of the script language.
std::string Quoted(std::wstring_view text) {
    std::string quoted = "\"";
    for (const char c : string(text, gcUtf8Encoding)) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + "\"";
}

}  // namespace

void sendErrorReport(const std::wstring& a, const std::wstring& b, const std::wstring& c, const std::wstring& d,
                     std::int32_t n, const std::wstring& e) {
    const auto path = platform::mainBundle().pathForResource("ErrorReport", "scpt", "Scripts");
    if (!path) return;
    std::ifstream file(*path, std::ios::binary);
    const std::string script((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file || script.empty()) {
        platform::NSLog("%s", ("The script " + *path + " could not be read").c_str());
        return;
    }
    // The subroutine call stands behind the script's own text; nobody looks at what comes of it.
    static_cast<void>(platform::scriptRunner().executeAndReturnError(
        script + "\nerror_report(" + Quoted(a) + ", " + Quoted(b) + ", " + Quoted(c) + ", " + Quoted(d) + ", " +
            std::to_string(n) + ", " + Quoted(e) + ")\n",
        {}));
}

}  // namespace glo
