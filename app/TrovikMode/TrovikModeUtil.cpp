#include "app/TrovikMode/TrovikModeUtil.hpp"

#include <utility>

#include "GLO/GLO_String.hpp"
#include "app/Util/Logging/DDLog.hpp"

namespace {

constexpr char gcFile[] = "app/TrovikMode/TrovikModeUtil";
constexpr int gcLogLine = 55;  ///< stable identifier of the log call, known to support

std::string lastPathComponent(std::string const& path) {
    return path.substr(path.find_last_of('/') + 1);
}

}  // namespace

void TrovikModeUtil::populateError(Error* error, long code, std::string const& message,
                                   glo::Exception_t const& exception) {
    if (!error) return;
    std::string text = "TrovikModeIoLink: " + message + " [File: " + lastPathComponent(exception.File()) +
                       " at Line: " + std::to_string(exception.Line());
    if (!exception.Message().empty()) text += " Reason: " + glo::string(exception.Message(), glo::gcUtf8Encoding);
    text += "]";

    std::uint32_t const level = ddLogLevel.load(std::memory_order_relaxed);
    if (level & DDLogFlagError)
        DDLog::log(false, level, DDLogFlagError, 0, gcFile, __func__, gcLogLine, nullptr, "%s", text.c_str());

    error->domain = NonvolToolErrorDomain;
    error->code = code;
    error->userInfo[NSLocalizedDescriptionKey] = std::move(text);
}
