// The command line.
#include "cli/Commands.hpp"
#include "cli/Scenario.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <ostream>

namespace twin {
namespace {

std::string stageNames() {
    std::string names;
    for (const StageInfo& stage : kStages) names.append(names.empty() ? "" : ", ").append(stage.name);
    return names;
}

/// A name and a sentence a line, with a tab between them: what completions show.
std::string scenarioList() {
    std::string lines;
    for (const Scenario& scenario : scenarios()) lines += scenario.name + "\t" + scenario.text + "\n";
    return lines;
}

/// "STAGE=SECONDS" into the plan; says what is wrong with it, or nothing.
std::string setLimit(const std::string& text, ResetSequence::Plan& plan) {
    const std::size_t equals = text.find('=');
    const auto stage = stageNamed(std::string_view(text).substr(0, equals));
    if (!stage || equals == std::string::npos) return "\"" + text + "\" is not STAGE=SECONDS. Stages: " + stageNames();
    double seconds = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + equals + 1, end, seconds);
    if (error != std::errc() || rest != end || !std::isfinite(seconds) || seconds <= 0)
        return "\"" + text + "\" names no number of seconds";
    plan.limits[static_cast<std::size_t>(*stage)] = seconds;
    return {};
}

}  // namespace

std::optional<Options> parse(const std::vector<std::string>& arguments, const std::string& version, std::ostream& out,
                             std::ostream& people, Status& status) {
    using Command = Options::Command;
    Options options;
    bool keepsStation = false;
    std::string scenario;
    std::vector<std::string> limits;
    CLI::App app("Resets Trovik devices: clears their settings, without a window.", "trovik-reset");
    app.require_subcommand(1);
    app.fallthrough();
    CLI::Option* const simulate = app.add_flag("--simulate{reset}", scenario, "the simulated devices of a scenario");
    const auto prints = [&](const char* name, const char* text, std::string (*words)()) {
        return app.add_flag_callback(
            name,
            [&out, words] {
                out << words();
                throw CLI::Success();
            },
            text);
    };
    prints("--scenarios", "lists the scenarios and ends", scenarioList);
    prints("--scenario-page", "", scenarioPage)->group("");  // docs/SCENARIOS.md
    app.add_flag("--json", options.json, "events as JSON lines on standard output");

    std::map<const CLI::App*, Command> commands;
    const auto command = [&](const char* name, const char* text, Command value) {
        CLI::App* const sub = app.add_subcommand(name, text);
        commands[sub] = value;
        return sub;
    };
    const auto devices = [&](CLI::App* sub) {
        return sub->add_option("DEVICE", options.devices, "a port (1-2.3) or a unit id (unit:1234)");
    };
    command("list", "lists the devices; opens none", Command::List)
        ->add_flag("--watch", options.watch, "also tells of devices that come and go");
    devices(command("check", "opens and identifies devices; changes nothing on them", Command::Check));

    CLI::App* const reset = command("reset", "clears the settings of devices", Command::Reset);
    CLI::Option* const chosen = devices(reset);
    CLI::Option* const all = reset->add_flag("--all", options.all, "all devices that are attached");
    CLI::Option* const each = reset->add_flag("--each", options.each, "every device once, as it is plugged in");
    chosen->excludes(all)->excludes(each);
    all->excludes(each);
    reset->add_option("--count", options.count, "with --each: end after so many")
        ->check(CLI::NonNegativeNumber)
        ->needs(each);
    reset->add_flag("--yes", options.yes, "do not ask");
    reset->add_option("--wait", options.wait, "seconds to wait for a device")->check(CLI::NonNegativeNumber);
    // One a time: what follows is a device.
    reset->add_option("--limit", limits, "STAGE=SECONDS: how long a stage may take; may be repeated")
        ->take_all()
        ->allow_extra_args(false);
    reset->add_option("--jobs", options.jobs, "resets at a time (0: all)")->check(CLI::NonNegativeNumber);
    reset->add_option("--retries", options.plan.retries, "new attempts before the clear")->check(CLI::Range(0, 100));
    reset->add_flag("--keep-station", keepsStation, "do not ask Trovik Station to quit");
    reset->add_option("--trace", options.traceFolder, "a folder for a file of events for each device")
        ->check(CLI::ExistingDirectory);

    devices(command("resume", "lets a device start that was left held in its boot loader", Command::Resume))
        ->expected(0, 1);
    devices(command("explain", "says why a device can't be opened, and what to do", Command::Explain))
        ->required()
        ->expected(1);
    command("report", "collects what support needs in an archive", Command::Report)
        ->add_option("FILE", options.reportFile, "the archive");

    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());  // as this parser wants them
    try {
        app.parse(reversed);
        for (const std::string& limit : limits) {
            if (const std::string wrong = setLimit(limit, options.plan); !wrong.empty())
                throw CLI::ValidationError("--limit", wrong);
        }
        if (!std::isfinite(options.wait)) throw CLI::ValidationError("--wait", "it is no number of seconds");
        for (const std::string& name : options.devices) {
            if (name.starts_with(kUnitPrefix) && !unitOf(name))
                throw CLI::ValidationError("DEVICE", "\"" + name + "\" names no unit id");
        }
        std::string wrong;
        if (*simulate && !(options.scenario = findScenario(scenario, wrong)))
            throw CLI::ValidationError("--simulate", wrong);
    } catch (const CLI::ParseError& error) {
        status = app.exit(error, out, people) == 0 ? Status::Done : Status::Usage;
        const bool isJson = std::ranges::find(arguments, "--json") != arguments.end();  // wherever the mistake is
        if (isJson && status == Status::Usage) refuse(out, people, version);
        return std::nullopt;
    }
    options.command = commands.at(app.get_subcommands().front());
    options.plan.quitsStation = !keepsStation;
    return options;
}

}  // namespace twin
