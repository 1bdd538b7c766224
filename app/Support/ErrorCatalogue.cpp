#include "app/Support/ErrorCatalogue.hpp"

#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"

#include <cstddef>

namespace {

// In the order of the enumeration. An id is never given to another cause, nor used again once its cause has gone.
constexpr CatalogueEntry kEntries[] = {
    {Cause::DeviceNotFound, "TRV-101", "No Trovik device is connected.",
     "Connect the device with its USB cable and switch it on. The command lsusb must list it with the product number "
     "0003."},
    {Cause::SeveralDevices, "TRV-102", "More than one Trovik device is connected.",
     "Disconnect all Trovik devices but the one that is to be reset."},
    {Cause::AttachesNotSeen, "TRV-103", "The system does not report devices that are being connected.",
     "Connect the device first, then start the tool again and choose Reset Now. If that does not help, restart the "
     "computer."},

    {Cause::RuleNotInstalled, "TRV-201", "The device cannot be opened: its udev rule is not installed.",
     "Install the package trovik-common, or put the rule into /etc/udev/rules.d and run udevadm control --reload. Then "
     "disconnect the device and connect it again."},
    {Cause::NotAttachedSinceRule, "TRV-202",
     "The device cannot be opened: it has not been reconnected since its udev rule was installed.",
     "Disconnect the device and connect it again."},
    {Cause::UserNotInAccessList, "TRV-203",
     "The device cannot be opened: only the person at the screen of this computer may use it.",
     "Log in at the screen of this computer, not over the network. Then disconnect the device and connect it again."},
    {Cause::DeniedBeyondPermissions, "TRV-204",
     "The device cannot be opened: access is refused although the permissions allow it.",
     "Run the tool outside any container or sandbox. Then disconnect the device and connect it again."},
    {Cause::HeldByProgram, "TRV-205", "The device cannot be opened: another program holds it.",
     "Quit the other program. Then disconnect the device and connect it again."},
    {Cause::HeldByDriver, "TRV-206", "The device cannot be opened: a driver of the system holds it.",
     "Quit all programs that use the device. Then disconnect the device and connect it again."},
    {Cause::OpenIOFailure, "TRV-207", "The device cannot be opened: the USB connection fails.",
     "Connect the device directly to this computer, at another USB port and with another cable."},
    {Cause::GoneWhileOpening, "TRV-208", "The device cannot be opened: it has gone.",
     "Wait a minute: a device that restarts comes back by itself. If it does not, connect it again."},
    {Cause::DeviceNotUsable, "TRV-209", "The device cannot be used.",
     "Disconnect the device, switch it off and on again, and reconnect it. If that does not help, send the log files "
     "to support."},

    {Cause::Disconnected, "TRV-301", "The device was disconnected during the reset.",
     "Connect the device again and leave it connected until the reset is complete."},
    {Cause::UsbFailure, "TRV-302", "The USB connection to the device failed.",
     "Connect the device directly to this computer, at another USB port and with another cable."},
    {Cause::TimedOut, "TRV-303", "The device did not answer in time.",
     "Disconnect the device, hold down its power button until it switches off, switch it on again and reconnect it."},
    {Cause::UnexpectedReply, "TRV-304", "The device sent an answer that this tool does not understand.",
     "Disconnect the device, switch it off and on again, and reconnect it. If that does not help, send the log files "
     "to support."},
    {Cause::UnknownProtocols, "TRV-305",
     "The device does not say what it understands, and this tool does not know its model.",
     "Install the newest version of this tool. If that does not help, send the log files to support."},
    {Cause::AccessRejected, "TRV-306", "The device refuses the commands of this tool.",
     "Unlock the device. Then disconnect the device and connect it again."},

    {Cause::StoreNotCleared, "TRV-401", "The settings on the device have not been erased.",
     "Leave the device connected. If the reset does not continue by itself, start it again. If that does not help, "
     "send the log files to support."},
    {Cause::DidNotComeBack, "TRV-402", "The device did not come back after its restart.",
     "Disconnect the device, hold down its power button until it switches off, switch it on again and reconnect it."},
    {Cause::StoppedHalfway, "TRV-403", "The reset was stopped before it was complete.",
     "Disconnect the device, hold down its power button until it switches off, switch it on again and reconnect it. "
     "Then reset it again."},

    {Cause::NoHomeFolder, "TRV-501", "There is no home folder, so no log files are kept.",
     "Start the tool as a user who has a home folder."},
    {Cause::LogNotWritable, "TRV-502", "The log files cannot be written.",
     "Make room on the disk, and make sure that the folder of the log files belongs to you."},
    {Cause::DamagedSettings, "TRV-503", "The preferences cannot be read or written.",
     "A reset works without them. Make sure that their file belongs to you, or delete it."},
    {Cause::DamagedInstallation, "TRV-504", "A file of the installation is damaged.", "Install the tool again."},
    {Cause::NoDisplay, "TRV-505", "There is no display for the window.", "Start the tool in a graphical session."},
    {Cause::NoThread, "TRV-506", "The system gives the tool no further thread.",
     "Quit other programs, or log out and in again."},
    {Cause::DevicesNotAwaited, "TRV-507", "The system does not let the tool wait for devices.",
     "Quit other programs, then start the tool again. If that does not help, restart the computer."},
    {Cause::NotLocked, "TRV-508", "The device is not protected from a second reset at the same time.",
     "Make sure that no other program resets the device until this reset is complete."},
    {Cause::MaySleep, "TRV-509", "The computer may go to sleep during the reset.",
     "Keep the computer awake, and its lid open, until the reset is complete."},

    {Cause::InternalError, "TRV-901", "Something went wrong inside the tool.",
     "Start the tool again. If that does not help, send the log files to support."},
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

std::string ErrorCatalogue::completed(const std::string& line) {
    for (const CatalogueEntry& named : kEntries) {
        if (!line.starts_with(std::string(named.id) + ' ')) continue;
        const std::string_view seen = std::string_view(line).substr(named.id.size() + 1);
        return seen.starts_with(named.sentence) ? line : logLine(named.cause, seen);
    }
    return line;
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
