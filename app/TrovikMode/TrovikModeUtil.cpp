#include "app/TrovikMode/TrovikModeUtil.hpp"

#include "ANT/ANT_Exception.hpp"
#include "GLO/GLO_String.hpp"
#include "IOA/IOA_Exception.hpp"
#include "IOL/IOL_Exception.hpp"
#include "IOU/IOU_Exception.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "platform/IORegistry.hpp"
#include "platform/Platform.hpp"
#include "platform/common/OneLine.hpp"

#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

namespace {

constexpr char gcFile[] = "app/TrovikMode/TrovikModeUtil";
constexpr int kLogLine = 55;  ///< stable identifier of the log call, known to support

std::string lastPathComponent(const std::string& path) {
    return path.substr(path.find_last_of('/') + 1);
}

/// Where the device is plugged in, "1-2.3".
std::string portOf(const std::string& path) {
    std::string name;
    const auto entry = platform::kIOMasterPortDefault().IORegistryEntryFromPath(path);
    const bool isNamed = entry && entry->IORegistryEntryGetName(name) == platform::kIOReturnSuccess;
    return isNamed ? name : lastPathComponent(path);
}

template <typename Kind>
bool isA(const glo::Exception_t& exception) {
    return dynamic_cast<const Kind*>(&exception) != nullptr;
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

Cause TrovikModeUtil::causeOf(const glo::Exception_t& exception, const std::string& path) {
    if (isA<glo::Timeout_t>(exception)) return Cause::TimedOut;
    if (isA<ant::AuthenticateReject_t>(exception)) return Cause::AccessRejected;
    if (isA<ioa::InvalidProtocolInformation_t>(exception)) return Cause::UnknownProtocols;
    if (isA<iol::Exception_t>(exception)) return Cause::UnexpectedReply;
    if (!isA<glo::CommunicationsError_t>(exception)) return Cause::InternalError;
    return platform::kIOMasterPortDefault().IORegistryEntryFromPath(path) ? Cause::UsbFailure : Cause::Disconnected;
}

std::string TrovikModeUtil::identificationLine(const std::string& path, std::uint32_t unitId,
                                               const ioa::Channel_t& channel) {
    constexpr std::size_t kLongest = 1000;  // bytes; a device may say a great deal
    const ioa::ProductData_t& product = channel.Product();
    char version[16];
    const int hundredths = product.softwareVersion;
    std::snprintf(version, sizeof version, "%s%d.%02d", hundredths < 0 ? "-" : "", std::abs(hundredths / 100),
                  std::abs(hundredths % 100));
    std::string text = "Device at port " + portOf(path) + ": unit id " + std::to_string(unitId) + ", product " +
                       std::to_string(product.productId) + ", version " + version;
    for (const auto& descriptions : {product.descriptions, channel.ProductExt().descriptions}) {
        for (const std::wstring& description : descriptions)
            text += ", \"" + glo::string(description, glo::gcUtf8Encoding) + '"';
    }
    return platform::oneLine(text, kLongest);
}
