#pragma once

#include "cli/Dispatcher.hpp"
#include "cli/Outcome.hpp"
#include "cli/ResetSequence.hpp"
#include "cli/Scenario.hpp"
#include "cli/Workers.hpp"

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace twin {

/// What the name of a device begins with that is no port.
inline constexpr std::string_view kUnitPrefix = "unit:";

/// What the command line asks for.
struct Options {
    enum class Command { List, Check, Reset, Resume, Explain, Report };

    Command command = Command::List;
    std::vector<std::string> devices;  ///< ports and unit ids
    bool all = false;
    bool each = false;
    std::size_t count = 0;
    bool yes = false;
    bool json = false;
    bool watch = false;
    double wait = 0;  ///< seconds
    std::size_t jobs = 0;
    ResetSequence::Plan plan;
    std::string traceFolder;
    std::string reportFile;
    std::optional<Scenario> scenario;
};

/// The number in "unit:1234"; nothing for any other text. 0 names no device: it is what those without an id report.
[[nodiscard]] std::optional<std::uint32_t> unitOf(std::string_view name);

/// Reads the command line. Help is written to `out`; what is wrong to `people`, and with --json the first and the last
/// event to `out`.
/// @return nothing where that was all; then `status` says how it ended
[[nodiscard]] std::optional<Options> parse(const std::vector<std::string>& arguments, const std::string& version,
                                           std::ostream& out, std::ostream& people, Status& status);

/// What a command works with. All of it is borrowed.
struct Surroundings {
    std::ostream& out;        ///< JSON lines
    std::ostream& people;     ///< sentences
    bool drawsLines = false;  ///< `people` is a terminal
    /// Waits for a line that a person types, until it is told to stop; empty where nobody can be asked.
    std::function<std::string(const std::stop_token&)> answer = {};
    Workers& workers;
    std::string journalFolder;
    std::string version;
    DeviceVisit::Diagnosis diagnosis = systemDiagnosis;
    std::function<void(Stage)> stageBegan = {};
    /// Is handed what ends the run early; and, once the result has been told, what does nothing.
    std::function<void(std::function<void()>)> onCancel = {};
};

/// Tells all there is to tell of a run whose command line is wrong: its first and its last event.
void refuse(std::ostream& out, std::ostream& people, const std::string& version);

/// Runs one command to its end. Blocks. The thread becomes that of the dispatcher's loop.
[[nodiscard]] Status run(const Options& options, const Surroundings& surroundings);

}  // namespace twin
