#include "cli/Outcome.hpp"

#include <algorithm>

namespace twin {

std::string_view nameOf(Status status) {
    switch (status) {
        case Status::Done:
            return "done";
        case Status::Failed:
            return "failed";
        case Status::Usage:
            return "usage";
        case Status::NoneFound:
            return "none-found";
        case Status::Ambiguous:
            return "ambiguous";
        case Status::NotAllowed:
            return "not-allowed";
        case Status::Busy:
            return "busy";
        case Status::TimedOut:
            return "timed-out";
        case Status::NotSeenAgain:
            return "cleared-not-seen-again";
        case Status::OtherRun:
            return "other-run";
        case Status::Cancelled:
            return "cancelled";
    }
    return {};
}

Status overall(std::span<const Status> statuses) {
    for (const Status status : {Status::Cancelled, Status::Failed, Status::TimedOut, Status::NotAllowed, Status::Busy,
                                Status::OtherRun, Status::NotSeenAgain, Status::NoneFound}) {
        if (std::ranges::find(statuses, status) != statuses.end()) return status;
    }
    return Status::Done;
}

Failure Failure::at(std::string_view where) const {
    Failure failure = *this;
    if (status == Status::TimedOut) failure.seen = "It was at \"" + std::string(where) + "\". " + seen;
    return failure;
}

std::string Failure::text() const {
    const std::string sentence(ErrorCatalogue::entry(cause).sentence);
    return seen.empty() ? sentence : sentence + " " + seen;
}

std::optional<Stage> stageNamed(std::string_view name) {
    const auto found = std::ranges::find(kStages, name, &StageInfo::name);
    if (found == kStages.end()) return std::nullopt;
    return static_cast<Stage>(found - kStages.begin());
}

}  // namespace twin
