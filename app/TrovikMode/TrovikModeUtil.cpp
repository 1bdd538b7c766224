#include "app/TrovikMode/TrovikModeUtil.hpp"

#include "GLO/GLO_String.hpp"
#include "app/Util/Logging/DDLog.hpp"

#include <utility>

namespace {

constexpr char gcFile[] = "app/TrovikMode/TrovikModeUtil";
constexpr int kLogLine = 55;  ///< stable identifier of the log call, known to support

std::string lastPathComponent(const std::string& path) {
    return path.substr(path.find_last_of('/') + 1);
}

}  // namespace

void TrovikModeUtil::populateError(Error* error, long code, const std::string& message,
                                   const glo::Exception_t& exception) {
    if (!error) return;
    std::string text = "TrovikModeIoLink: " + message + " [File: " + lastPathComponent(exception.File()) +
                       " at Line: " + std::to_string(exception.Line());
    if (!exception.Message().empty()) text += " Reason: " + glo::string(exception.Message(), glo::gcUtf8Encoding);
    text += "]";

    const std::uint32_t level = ddLogLevel.load(std::memory_order_relaxed);
    if (level & DDLogFlagError)
        DDLog::log(false, level, DDLogFlagError, 0, gcFile, __func__, kLogLine, nullptr, "%s", text.c_str());

    error->domain = NonvolToolErrorDomain;
    error->code = code;
    error->userInfo[NSLocalizedDescriptionKey] = std::move(text);
}
