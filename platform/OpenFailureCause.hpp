#pragma once

#include <string>

namespace platform {

/// Why a USB device could not be opened.
enum class OpenFailureCause {
    RuleNotInstalled,         ///< access is denied, and the udev rule that would grant it is not there
    NotAttachedSinceRule,     ///< the rule is younger than what udev last did to the device's node
    UserNotInAccessList,      ///< the rule has been applied, and lets another user in or nobody
    DeniedBeyondPermissions,  ///< the permissions let this process in, and it was refused all the same
    HeldByProgram,
    HeldByDriver,
    IOFailure,  ///< the bus or the device; permissions have nothing to do with it
    Gone,
    Other,
};

/// A cause, and what was found out about it: whole sentences for the log, without a line break.
struct OpenFailure {
    OpenFailureCause cause = OpenFailureCause::Other;  ///< which of them
    std::string seen;                                  ///< what was found out
};

}  // namespace platform
