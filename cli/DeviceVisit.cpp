#include "cli/DeviceVisit.hpp"

#include "FTX/FTX_Channel.hpp"
#include "GLO/GLO_Exception.hpp"
#include "GLO/GLO_String.hpp"
#include "IOA/IOA_Channel.hpp"
#include "app/TrovikMode/ResetSteps.hpp"
#include "app/TrovikMode/TrovikModeUtil.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/usb/OpenFailure.hpp"

#include <utility>

namespace twin {
namespace {

/// Where it was raised, which support knows. Not what(), whose text all threads share.
std::string raiseSite(const glo::Exception_t& exception) {
    const std::string& file = exception.File();
    std::string text = "Seen at " + file.substr(file.find_last_of('/') + 1) + ", " + std::to_string(exception.Line());
    if (!exception.Message().empty()) text += ": " + exception.NarrowMessage();
    return text + ".";
}

Status statusOf(Cause cause) {
    switch (cause) {
        case Cause::RuleNotInstalled:
        case Cause::NotAttachedSinceRule:
        case Cause::UserNotInAccessList:
        case Cause::DeniedBeyondPermissions:
            return Status::NotAllowed;
        case Cause::HeldByProgram:
        case Cause::HeldByDriver:
            return Status::Busy;
        default:
            return Status::Failed;
    }
}

Failure failureOf(Cause cause, std::string seen) {
    return {cause, statusOf(cause), std::move(seen), cause == Cause::GoneWhileOpening};
}

}  // namespace

Failure plainDiagnosis(const std::string&, platform::IOReturn result) {
    if (result == platform::kIOReturnNotPermitted) return failureOf(Cause::DeniedBeyondPermissions, {});
    if (result == platform::kIOReturnExclusiveAccess) return failureOf(Cause::HeldByProgram, {});
    // Without any result the registry had no such entry any more.
    if (result == platform::kIOReturnNoDevice || result == platform::kIOReturnSuccess)
        return failureOf(Cause::GoneWhileOpening, {});
    return failureOf(Cause::OpenIOFailure, std::string("The system says: ") + platform::IOReturnText(result) + ".");
}

Failure systemDiagnosis(const std::string& path, platform::IOReturn result) {
    if (result == platform::kIOReturnSuccess) return plainDiagnosis(path, result);
    platform::OpenFailure found = platform::diagnoseOpenFailure(path, result);
    return failureOf(ErrorCatalogue::causeOf(found.cause), std::move(found.seen));
}

Failure DeviceVisit::closedGate() const {
    if (mGate.state() == UsbGate::State::Cancelled) return Failure::cancelled();
    return {Cause::TimedOut, Status::TimedOut, "The limit has passed."};
}

template <typename Action>
std::optional<Failure> DeviceVisit::guarded(const Action& action) {
    const auto isClosed = [&] { return mGate.state() != UsbGate::State::Open; };
    try {
        action();
        return std::nullopt;
    } catch (const glo::Exception_t& exception) {
        if (isClosed()) return closedGate();
        Cause cause = TrovikModeUtil::causeOf(exception, mPath);
        // The next attach may be on the port already.
        if (cause == Cause::UsbFailure && mGate.lastFailure() == platform::kIOReturnNoDevice)
            cause = Cause::Disconnected;
        const Status status = cause == Cause::TimedOut ? Status::TimedOut : Status::Failed;
        return Failure{cause, status, raiseSite(exception), cause == Cause::Disconnected};
    } catch (...) {  // a bare number, from an opening
        return isClosed() ? closedGate() : mDiagnosis(mPath, mGate.lastFailure());
    }
}

std::optional<Failure> DeviceVisit::open() {
    return guarded([&] {
        mLink = std::make_unique<iou::UsbLink_t>(mNoCancelSource, mPath, iou::UsbLink_t::PacketCheckingModeDefault,
                                                 iol::gcDefaultTimeout);
    });
}

std::optional<Failure> DeviceVisit::run(Stage stage, double deadline, const std::function<void()>& aboutToSend) {
    mGate.setDeadline(deadline);
    return guarded([&] {
        if (const ResetStep* const step = info(stage).step)
            return ResetSteps::issue(*mLink, step->command, step->data, step->awaitResponse,
                                     [&](const ioa::Channel_t&) { aboutToSend(); });
        const ftx::Channel_t channel(*mLink);
    });
}

std::optional<Failure> DeviceVisit::identify(Identity& identity) {
    return guarded([&] {
        const ftx::Channel_t channel(*mLink);
        identity.unit = mLink->UnitId();
        identity.product = glo::string(channel.Product().DisplayName(), glo::gcUtf8Encoding);
        identity.productId = channel.Product().productId;
        identity.softwareVersion = channel.Product().softwareVersion;
    });
}

}  // namespace twin
