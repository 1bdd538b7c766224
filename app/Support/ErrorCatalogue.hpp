#pragma once

#include "platform/OpenFailureCause.hpp"

#include <span>
#include <string>
#include <string_view>

/// Everything that can keep a reset from its end and that the log, the diagnosis or a program's output can name.
enum class Cause {
    // Finding the device.
    DeviceNotFound,
    SeveralDevices,
    AttachesNotSeen,
    // Opening it.
    RuleNotInstalled,
    NotAttachedSinceRule,
    UserNotInAccessList,
    DeniedBeyondPermissions,
    HeldByProgram,
    HeldByDriver,
    OpenIOFailure,
    GoneWhileOpening,
    DeviceNotUsable,
    // Talking to it.
    Disconnected,
    UsbFailure,
    TimedOut,
    UnexpectedReply,
    UnknownProtocols,
    AccessRejected,
    // How a reset ended.
    StoreNotCleared,
    DidNotComeBack,
    StoppedHalfway,
    // This computer.
    NoHomeFolder,
    LogNotWritable,
    DamagedSettings,
    DamagedInstallation,
    NoDisplay,
    NoThread,
    DevicesNotAwaited,
    NotLocked,
    MaySleep,
    InternalError,
};

/// One cause as people meet it. The texts are English; bundles have them in each language, under the keys below.
struct CatalogueEntry {
    Cause cause;
    std::string_view id;        ///< "TRV-101"; stays the cause's own for ever, also when its texts change
    std::string_view sentence;  ///< what is the matter
    std::string_view remedy;    ///< what to do about it

    std::string sentenceKey() const { return std::string(id) + ".Cause"; }
    std::string remedyKey() const { return std::string(id) + ".Remedy"; }
};

/// The one table of causes. docs/USING.md lists the same. Class operations; any thread.
class ErrorCatalogue {
  public:
    ErrorCatalogue() = delete;

    static std::span<const CatalogueEntry> entries();
    static const CatalogueEntry& entry(Cause cause);

    /// The cause as one English line for a log: id, sentence, remedy, and what was seen, if anything.
    /// @param seen  whole sentences, without a line break
    static std::string logLine(Cause cause, std::string_view seen = {});
    static std::string logLine(const platform::OpenFailure& failure);

    /// A line from below the application, which knows causes by their ids alone: behind an id at its start come
    /// sentence and remedy unless they are there. Other lines as they are.
    static std::string completed(const std::string& line);

    static Cause causeOf(platform::OpenFailureCause cause);

    /// In the language of the main bundle.
    static std::string localizedSentence(Cause cause);
    static std::string localizedRemedy(Cause cause);
};
