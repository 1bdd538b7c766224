#include "app/TrovikMode/UsbTrovikModeIoLink.hpp"

#include "ANT/ANT_Exception.hpp"
#include "GLO/GLO_Exception.hpp"
#include "IOA/IOA_Channel.hpp"
#include "IOU/IOU_UsbLink.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "app/TrovikMode/ResetSteps.hpp"
#include "app/TrovikMode/TrovikModeUtil.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "platform/common/Boundary.hpp"

#include <mutex>
#include <string_view>
#include <utility>

namespace {

constexpr char gcFile[] = "app/TrovikMode/UsbTrovikModeIoLink";
constexpr std::uint16_t kNoPathLine = 81;  ///< stable identifier of the raise site, known to support

/// Nobody ever cancels a link of this tool. One object for all of them, since a link holds it by reference. Never
/// destroyed: the listener may be talking to a device until the process has ended.
thr::CancelRequested_t& noCancelSource() {
    static auto& functor = *new thr::CancelRequestedFunctor_t;
    return functor;
}

/// What all links share. Never destroyed, as the above.
struct SharedObserver {
    std::mutex mutex;
    UsbTrovikModeIoLink::IdentificationObserver observer;
};
SharedObserver& sharedObserver() {
    static auto& shared = *new SharedObserver;
    return shared;
}

void tellIdentification(const std::string& path, const ioa::ProductData_t& product) noexcept {
    const auto tell = [&] {
        UsbTrovikModeIoLink::IdentificationObserver observer;
        {
            const std::lock_guard lock(sharedObserver().mutex);
            observer = sharedObserver().observer;
        }
        if (observer) observer(path, product);
    };
    platform::runGuarded(tell, gcFile, __LINE__);
}

/// A warning: the failure itself has its line, an error, before.
void logCause(const glo::Exception_t& exception, const std::string& path) {
    DDLogWarn("%s", ErrorCatalogue::logLine(TrovikModeUtil::causeOf(exception, path)).c_str());
}

/// Stores how a command failed, and logs that and the cause.
void describe(Error* error, const std::string& message, const glo::Exception_t& exception, const std::string& path) {
    TrovikModeUtil::populateError(error, 0, message, exception);
    if (error) logCause(exception, path);
}

}  // namespace

std::unique_ptr<UsbTrovikModeIoLink> UsbTrovikModeIoLink::initWithPath(const std::optional<std::string>& path) {
    DDLogVerbose("New UsbTrovikModeIoLink");
    std::unique_ptr<UsbTrovikModeIoLink> facade(new UsbTrovikModeIoLink);
    if (path) {
        facade->mLock = DeviceLock::takePort(*path);
        if (!facade->mLock) {
            constexpr std::string_view kSeen = "Another run of this tool, or trovik-reset, is resetting it.";
            DDLogError("%s", ErrorCatalogue::logLine(Cause::HeldByProgram, kSeen).c_str());
            return nullptr;
        }
    }
    try {
        facade->mLink = getIolLinkForPath(path);
    } catch (const glo::Exception_t& exception) {
        DDLogError("Error creating UsbTrovikModeIoLink at path:%s\n%s on line %d", path ? path->c_str() : "(null)",
                   exception.File().c_str(), exception.Line());
        logCause(exception, path.value_or(std::string()));
        return nullptr;
    }
    if (path) facade->mIoPath = *path;
    return facade;
}

glo::AutoPtr<iol::Link_t> UsbTrovikModeIoLink::getIolLinkForPath(const std::optional<std::string>& path) {
    if (!path) throw glo::InvalidInput_t(L"USB IO Path not specified", gcFile, kNoPathLine);
    return glo::AutoPtr<iol::Link_t>(
        new iou::UsbLink_t(noCancelSource(), *path, iou::UsbLink_t::PacketCheckingModeDefault, iol::gcDefaultTimeout));
}

void UsbTrovikModeIoLink::setIdentificationObserver(IdentificationObserver observer) {
    const std::lock_guard lock(sharedObserver().mutex);
    sharedObserver().observer.swap(observer);
}

bool UsbTrovikModeIoLink::sendIopCommand(std::uint16_t command, ByteView data, bool awaitResponse, Error* error) {
    try {
        const auto identified = [&](const ioa::Channel_t& channel) {
            tellIdentification(mIoPath, channel.Product());
            keepIdentification(channel);
        };
        ResetSteps::issue(*mLink, command, {data.begin(), data.end()}, awaitResponse, identified);
        return true;
    } catch (const glo::Timeout_t& exception) {
        describe(error, "issueCommand Timeout", exception, mIoPath);
    } catch (const ant::AuthenticateReject_t& exception) {
        describe(error, "issueCommand Authentication Rejected", exception, mIoPath);
    } catch (const glo::Exception_t& exception) {
        describe(error, "issueCommand Failed", exception, mIoPath);
    } catch (...) {
        describe(error, "issueCommand Failed: Unknown Exception", glo::Exception_t(), mIoPath);
    }
    return false;
}

void UsbTrovikModeIoLink::keepIdentification(const ioa::Channel_t& channel) {
    if (mIdentification) return;
    const auto* const link = dynamic_cast<const iou::UsbLink_t*>(mLink.get());  // the one kind that there is
    mIdentification = TrovikModeUtil::identificationLine(mIoPath, link ? link->UnitId() : 0, channel);
}

std::string UsbTrovikModeIoLink::takeIdentification() {
    return mIdentification ? std::exchange(*mIdentification, {}) : std::string();
}
