// The scenarios as a page of documentation.
#include "cli/Scenario.hpp"

#include <algorithm>
#include <string>

namespace twin {
namespace {

constexpr std::string_view kIntroduction = R"(# Scenarios

<!-- Made by "trovik-reset --scenario-page" from cli/ScenarioTable.cpp and cli/ScenarioPage.cpp. -->

`trovik-reset --simulate=NAME` plays a scenario: simulated devices in the program itself, what goes wrong with them, and
when. No device is needed, and nothing of the computer is touched. Without a name it is `reset`; a name may be that of
[a file](#a-scenario-of-your-own). `trovik-reset --scenarios` lists the names.

The same table is what the tests run. Of each scenario it names the command line, the exit status that follows, the id of the
cause that is reported on the way, the last stage that failed (a later attempt may have done it), and how many of the
devices are cleared in the end.

| Scenario | What happens | `trovik-reset` … | Status | Cause | Failed | Cleared |
|---|---|---|---|---|---|---|
)";

constexpr std::string_view kFile = R"(
## A scenario of your own

`--simulate=FILE` reads a scenario from a JSON file. All keys but `devices` may be left out. Times are in seconds. What is
wrong with a file is said with its line; an unknown key is an error.

```json
{
  "devices": [
    { "profile": "handheld", "unit": 7, "faults": ["hold-late", { "fault": "reboot-ignored", "occurrence": 1 }] },
    { "profile": "wearable", "rebootTime": 3, "plugged": false }
  ],
  "cues": [
    { "stage": "clear", "after": 0.2, "do": "plug", "device": 2 },
    { "after": 90, "do": "cancel" }
  ]
}
```

| Key | Value |
|---|---|
| `devices` | a list; the first device is on port 1-1, the second on 1-2 |
| `devices`: `profile` | what it is: PROFILES; the first unless given |
| `devices`: `unit` | its unit id, its place in the list unless given; 0 for a device that reports none |
| `devices`: `name` | what it tells the system that it is called |
| `devices`: `rebootTime`, `bootTime` | how long it is off the bus when it reboots, and when it starts after that; a `bootTime` of null has it stay on the bus |
| `devices`: `answerDelay` | how long each of its answers takes |
| `devices`: `plugged` | false: a cue plugs it in |
| `devices`: `state` | "running" unless given, "rebooting", "starting" (in its boot loader), "held" (told to stay there) |
| `devices`: `faults` | a list of names from the table below, or of objects |
| `faults`: `fault` | the name |
| `faults`: `occurrence`, `times` | strikes at the first, second … time that it could, and so often |
| `faults`: `delay`, `comesBack` | of a late answer, or of the cable that comes out and goes in again |
| `cues` | a list of what happens by itself |
| `cues`: `stage`, `after` | so long after a device's reset first comes to that stage, or after the start |
| `cues`: `do`, `device` | "plug" or "unplug" the first, second … device, or "cancel" the run |
| `tells` | what the bus tells of: "all" unless given, "arrivals", "nothing", or all "twice"; "refuses": not even what is attached |
| `stationTakes` | how long each companion program takes to quit |
| `otherRun` | true: another run works on the first device |

Stages are STAGES.

| Fault | The device … |
|---|---|
)";

std::string code(std::string_view text) {
    return "`" + std::string(text) + "`";
}

std::string joined(const auto& table, const auto& name) {
    std::string all;
    for (const auto& entry : table) all.append(all.empty() ? "" : ", ").append(code(name(entry)));
    return all;
}

void replace(std::string& text, std::string_view what, const std::string& by) {
    text.replace(text.find(what), what.size(), by);
}

std::string row(const Scenario& scenario) {
    std::string command;
    for (const auto& argument : scenario.arguments) command.append(command.empty() ? "" : " ").append(argument);
    const auto cleared = std::ranges::count(scenario.cleared, true);
    return "| " + code(scenario.name) + " | " + scenario.text + " | " + code(command) + " | " +
           std::to_string(static_cast<int>(scenario.status)) + " " + std::string(nameOf(scenario.status)) + " | " +
           scenario.cause + " | " + (scenario.stage ? code(info(*scenario.stage).name) : "") + " | " +
           std::to_string(cleared) + " of " + std::to_string(scenario.devices.size()) + " |\n";
}

}  // namespace

std::string scenarioPage() {
    std::string page(kIntroduction);
    for (const Scenario& scenario : scenarios()) page += row(scenario);
    std::string file(kFile);
    replace(file, "PROFILES", joined(scenarioProfiles(), [](const auto& profile) { return profile.first; }));
    replace(file, "STAGES", joined(kStages, [](const auto& stage) { return stage.name; }));
    for (const auto& fault : simulator::faultCatalogue())
        file += "| " + code(fault.name) + " | " + fault.sentence + " |\n";
    return page + file;
}

}  // namespace twin
