#pragma once

#include "app/Support/ErrorCatalogue.hpp"
#include "app/TrovikMode/ResetSteps.hpp"

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace twin {

/// How the program, or one device's reset, ended: the exit status.
enum class Status {
    Done = 0,
    Failed = 1,
    Usage = 2,         ///< the command line was wrong, or nobody could be asked
    NoneFound = 3,     ///< there is no such device
    Ambiguous = 4,     ///< several devices and none chosen
    NotAllowed = 5,    ///< this account may not open the device
    Busy = 6,          ///< another program holds the device
    TimedOut = 7,      ///< a stage took longer than its limit
    NotSeenAgain = 8,  ///< cleared, but the device has not come back and identified itself
    OtherRun = 9,      ///< another run of this program, or the window, works on the device
    Cancelled = 130,
};

inline constexpr std::array<Status, 11> kStatuses = {
    Status::Done, Status::Failed,   Status::Usage,        Status::NoneFound, Status::Ambiguous, Status::NotAllowed,
    Status::Busy, Status::TimedOut, Status::NotSeenAgain, Status::OtherRun,  Status::Cancelled};

/// The status in a word, for JSON: "done", "timed-out".
[[nodiscard]] std::string_view nameOf(Status status);

/// The status of a run over several devices: the gravest of theirs.
[[nodiscard]] Status overall(std::span<const Status> statuses);

/// The stages of one device's reset, in their order: each that is over is followed by the next.
enum class Stage { Quit, Reboot, Gone, Back, Hold, Clear, Resume, BackAgain, IdentifiedAgain };

/// What is fixed about a stage.
struct StageInfo {
    std::string_view name;            ///< in JSON and in --limit
    double limit;                     ///< seconds, unless --limit says otherwise
    std::string_view text;            ///< for people: what is going on
    const ResetStep* step = nullptr;  ///< of the command that is sent in it; null where it only waits or looks
};

inline constexpr std::array<StageInfo, 9> kStages = {{
    {"quit", 15, "asking Trovik Station to quit"},
    {"reboot", 15, "telling the device to reboot", &ResetSteps::kReboot},
    {"gone", 10, "waiting for the device to leave"},
    {"back", 60, "waiting for the device to come back"},
    {"hold", 15, "holding the device in its boot loader", &ResetSteps::kHold},
    {"clear", 15, "clearing the settings", &ResetSteps::kClear},
    {"resume", 15, "letting the device start", &ResetSteps::kResume},
    {"back-again", 60, "waiting for the device to start"},
    {"identified-again", 15, "looking whether the device is the same"},
}};

[[nodiscard]] constexpr const StageInfo& info(Stage stage) {
    return kStages[static_cast<std::size_t>(stage)];
}
static_assert(info(Stage::Clear).step == info(Stage::Hold).step + 1 &&
                  info(Stage::Resume).step == info(Stage::Clear).step + 1,
              "the order of the clear sequence, in which the window takes it");
[[nodiscard]] std::optional<Stage> stageNamed(std::string_view name);

/// Why something failed: the cause by which documents and scripts know it, the status that follows, and what was seen.
struct Failure {
    Cause cause = Cause::InternalError;
    Status status = Status::Failed;
    std::string seen;           ///< whole sentences, beyond the catalogue's; may be empty
    bool disconnected = false;  ///< it was the device's leaving

    [[nodiscard]] static Failure cancelled() { return {Cause::StoppedHalfway, Status::Cancelled, "It was cancelled."}; }

    /// A time-out with where it was, which is what --limit and support ask for; any other failure as it is.
    [[nodiscard]] Failure at(std::string_view where) const;

    [[nodiscard]] std::string_view id() const { return ErrorCatalogue::entry(cause).id; }
    [[nodiscard]] std::string text() const;  ///< what is the matter, for people
    [[nodiscard]] std::string_view remedy() const { return ErrorCatalogue::entry(cause).remedy; }
};

}  // namespace twin
