#include "app/Support/ErrorCatalogue.hpp"

#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"

#include <cstddef>

namespace {

// In the order of the enumeration. An id is never given to another cause, nor used again once its cause has gone.
constexpr CatalogueEntry kEntries[] = {
    {Cause::DeviceNotFound, "TRV-101", "No Trovik device is connected in its USB mode.",
     "Connect the device with its USB cable and switch it on. The command lsusb must list it with the product number "
     "0003."},
    {Cause::SeveralDevices, "TRV-102", "More than one Trovik device is connected.",
     "Disconnect all devices but the one that is to be reset."},
    {Cause::AttachesNotSeen, "TRV-103", "The system does not report devices that are being connected.",
     "Connect the device first, then start the tool again and press Reset Now. If this stays so, restart the "
     "computer."},

    {Cause::RuleNotInstalled, "TRV-201", "The device can't be opened: the udev rule for it is not installed.",
     "Install the package trovik-common, or put the rule into /etc/udev/rules.d and run \"udevadm control --reload\". "
     "Then disconnect the device and connect it again."},
    {Cause::NotAttachedSinceRule, "TRV-202",
     "The device can't be opened: it has not been connected again since the udev rule was installed.",
     "Disconnect the device and connect it again."},
    {Cause::UserNotInAccessList, "TRV-203",
     "The device can't be opened: the system grants access only to the person who sits at this computer's screen.",
     "Log in at this computer's own screen, not over the network, then disconnect the device and connect it again."},
    {Cause::DeniedBeyondPermissions, "TRV-204",
     "The device can't be opened: access is refused although the permissions allow it.",
     "Disconnect the device and connect it again. If this stays so, run the tool outside any container or sandbox."},
    {Cause::HeldByProgram, "TRV-205", "The device can't be opened: another program holds it.",
     "Quit the other program, then disconnect the device and connect it again."},
    {Cause::HeldByDriver, "TRV-206", "The device can't be opened: a driver of the system holds it.",
     "Quit programs that use the device, then disconnect the device and connect it again."},
    {Cause::OpenIOFailure, "TRV-207", "The device can't be opened: the USB connection to it fails.",
     "Connect the device directly to this computer, at another USB port and with another cable."},
    {Cause::GoneWhileOpening, "TRV-208", "The device can't be opened: it has gone.",
     "Wait a minute: a device that restarts comes back by itself. Otherwise connect it again."},
    {Cause::DeviceNotUsable, "TRV-209", "The device can't be used.",
     "Disconnect the device, switch it off and on again, and reconnect it. If this stays so, send the log to support."},

    {Cause::Disconnected, "TRV-301", "The device was disconnected during the reset.",
     "Connect the device again and leave it connected until the reset is complete."},
    {Cause::UsbFailure, "TRV-302", "The USB connection to the device failed.",
     "Connect the device directly to this computer, at another USB port and with another cable."},
    {Cause::TimedOut, "TRV-303", "The device did not answer in time.",
     "Disconnect the device, hold down its power button until it switches off, switch it on again and reconnect it."},
    {Cause::UnexpectedReply, "TRV-304", "The device sent an answer that the tool does not understand.",
     "Disconnect the device, switch it off and on again, and reconnect it. If this stays so, send the log to support."},
    {Cause::UnknownProtocols, "TRV-305", "The device does not say which protocols it speaks, and its model is unknown.",
     "Look for a newer version of this tool. If there is none, send the log to support."},
    {Cause::AccessRejected, "TRV-306", "The device refuses the tool's commands.",
     "Unlock the device, then disconnect it and connect it again."},

    {Cause::StoreNotCleared, "TRV-401", "The settings on the device have not been erased.",
     "Leave the device connected: it is restarted and tried again. If this stays so, send the log to support."},
    {Cause::DidNotComeBack, "TRV-402", "The device did not come back after its restart.",
     "Disconnect the device, hold down its power button until it switches off, switch it on again and reconnect it."},
    {Cause::StoppedHalfway, "TRV-403", "The reset was stopped before it was complete.",
     "Disconnect the device, hold down its power button until it switches off, switch it on again and reconnect it. "
     "Then start the reset anew."},

    {Cause::NoHomeFolder, "TRV-501", "There is no home folder: no log files are kept.",
     "Start the tool as a user who has a home folder."},
    {Cause::LogNotWritable, "TRV-502", "The log files can't be written.",
     "Make room on the disk, and make sure that the folder of the log files belongs to this user."},
    {Cause::DamagedSettings, "TRV-503", "The file with the preferences can't be read or written.",
     "Nothing is needed for a reset. To have preferences again, make sure that the file belongs to this user, or "
     "delete "
     "it."},
    {Cause::DamagedInstallation, "TRV-504", "A file of this tool's installation is damaged.",
     "Install the tool again."},
    {Cause::NoDisplay, "TRV-505", "There is no display for the window.", "Start the tool in a graphical session."},
    {Cause::NoThread, "TRV-506", "The system gives the tool no thread to run a reset on.",
     "Quit other programs, or log out and in again."},
    {Cause::InternalError, "TRV-901", "Something went wrong inside the tool.",
     "Start the tool again. If this stays so, send the log to support."},
};

// A cause is its entry's position.
static_assert([] {
    std::size_t position = 0;
    for (const CatalogueEntry& entry : kEntries) {
        if (static_cast<std::size_t>(entry.cause) != position++) return false;
    }
    return position == static_cast<std::size_t>(Cause::InternalError) + 1;
}());

std::string localized(const std::string& key, std::string_view english) {
    return platform::mainBundle().localizedStringForKey(key, std::string(english), "");
}

}  // namespace

std::span<const CatalogueEntry> ErrorCatalogue::entries() {
    return kEntries;
}

const CatalogueEntry& ErrorCatalogue::entry(Cause cause) {
    return kEntries[static_cast<std::size_t>(cause)];
}

std::string ErrorCatalogue::logLine(Cause cause, std::string_view seen) {
    const CatalogueEntry& named = entry(cause);
    std::string line(named.id);
    for (const std::string_view part : {named.sentence, named.remedy, seen}) {
        if (!part.empty()) line.append(1, ' ').append(part);
    }
    return line;
}

std::string ErrorCatalogue::logLine(const platform::OpenFailure& failure) {
    return logLine(causeOf(failure.cause), failure.seen);
}

Cause ErrorCatalogue::causeOf(platform::OpenFailureCause cause) {
    using enum platform::OpenFailureCause;
    switch (cause) {
        case RuleNotInstalled:
            return Cause::RuleNotInstalled;
        case NotAttachedSinceRule:
            return Cause::NotAttachedSinceRule;
        case UserNotInAccessList:
            return Cause::UserNotInAccessList;
        case DeniedBeyondPermissions:
            return Cause::DeniedBeyondPermissions;
        case HeldByProgram:
            return Cause::HeldByProgram;
        case HeldByDriver:
            return Cause::HeldByDriver;
        case IOFailure:
            return Cause::OpenIOFailure;
        case Gone:
            return Cause::GoneWhileOpening;
        case Other:
            break;
    }
    return Cause::DeviceNotUsable;
}

std::string ErrorCatalogue::localizedSentence(Cause cause) {
    return localized(entry(cause).sentenceKey(), entry(cause).sentence);
}

std::string ErrorCatalogue::localizedRemedy(Cause cause) {
    return localized(entry(cause).remedyKey(), entry(cause).remedy);
}
