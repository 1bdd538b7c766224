// Scenarios that somebody has written into a file.
#include "cli/Scenario.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

namespace twin {
namespace {

using nlohmann::json;
using simulator::Duration;
using simulator::Fault;
using simulator::Profile;

constexpr double kLongest = 86400;  ///< seconds; far from where a moment in microseconds would overflow

/// What is wrong with a file; ends the reading of it.
struct Mistake {
    int line = 0;
    std::string text;
};

/// The line in which each value of a file begins, by its JSON pointer.
using Lines = std::map<std::string, int>;

/// A value of the file, and where it stands.
class Value {
  public:
    Value(const json& value, json::json_pointer where, const Lines& lines)
        : mValue(value), mWhere(std::move(where)), mLines(lines) {}

    [[noreturn]] void wrong(const std::string& text) const {
        throw Mistake{mLines.at(mWhere.to_string()), (mWhere.empty() ? "" : "\"" + key() + "\": ") + text};
    }

    bool isText() const { return mValue.is_string(); }
    bool isNull() const { return mValue.is_null(); }
    std::string text() const {
        if (!mValue.is_string()) wrong("a string is wanted");
        return mValue.get<std::string>();
    }
    bool boolean() const {
        if (!mValue.is_boolean()) wrong("true or false is wanted");
        return mValue.get<bool>();
    }
    std::uint32_t number(std::uint32_t lowest, std::uint32_t highest) const {
        if (mValue.is_number_unsigned()) {
            const auto value = mValue.get<std::uint64_t>();
            if (value >= lowest && value <= highest) return static_cast<std::uint32_t>(value);
        }
        wrong("a whole number from " + std::to_string(lowest) + " to " + std::to_string(highest) + " is wanted");
    }
    Duration seconds() const {
        const double value = mValue.is_number() ? mValue.get<double>() : -1;
        if (!(value >= 0 && value <= kLongest)) wrong("a number of seconds, at most a day, is wanted");
        return Duration(std::llround(value * 1e6));
    }

    /// One of a table of names.
    template <typename Table>
    const auto& oneOf(const Table& table) const {
        const auto found =
            std::ranges::find(table, text(), [](const auto& entry) { return std::string(nameIn(entry)); });
        if (found != std::end(table)) return *found;
        std::string names;
        for (const auto& entry : table) names.append(names.empty() ? "" : ", ").append(nameIn(entry));
        wrong("there is no \"" + text() + "\"; there are: " + names);
    }

    std::vector<Value> elements() const {
        if (!mValue.is_array()) wrong("a list is wanted");
        std::vector<Value> elements;
        for (std::size_t i = 0; i < mValue.size(); ++i) elements.emplace_back(mValue[i], mWhere / i, mLines);
        return elements;
    }

    /// Reads the members of an object, in the order of the readers, each at most once.
    using Readers = std::vector<std::pair<std::string_view, std::function<void(const Value&)>>>;
    void members(const Readers& readers) const {
        if (!mValue.is_object()) wrong("an object is wanted");
        const auto member = [&](const std::string& key) { return Value(mValue.at(key), mWhere / key, mLines); };
        for (const auto& [key, value] : mValue.items()) {
            if (std::ranges::find(readers, key, &Readers::value_type::first) != readers.end()) continue;
            std::string known;
            for (const auto& reader : readers) known.append(known.empty() ? "" : ", ").append(reader.first);
            member(key).wrong("unknown; known here are: " + known);
        }
        for (const auto& [key, read] : readers) {
            if (mValue.contains(std::string(key))) read(member(std::string(key)));
        }
    }

  private:
    std::string key() const { return mWhere.back(); }
    static std::string_view nameIn(const Fault& fault) { return fault.name; }
    static std::string_view nameIn(const StageInfo& stage) { return stage.name; }
    template <typename T>
    static std::string_view nameIn(const std::pair<std::string_view, T>& entry) {
        return entry.first;
    }

    const json& mValue;
    const json::json_pointer mWhere;
    const Lines& mLines;
};

json parsed(const std::string& text, Lines& lines) {
    struct Container {
        json::json_pointer where;
        bool isArray = false;
        std::size_t next = 0;
        std::string key;
    };
    std::vector<Container> open;
    std::istringstream stream(text);
    // Nothing is read ahead of a key; of a number one character is.
    const auto line = [&] {
        const auto read = stream.rdbuf()->pubseekoff(0, std::ios::cur, std::ios::in);
        return 1 + static_cast<int>(std::count(text.begin(), text.begin() + read, '\n'));
    };
    const auto begins = [&] {
        json::json_pointer where;
        if (!open.empty())
            where = open.back().isArray ? open.back().where / open.back().next++ : open.back().where / open.back().key;
        lines.emplace(where.to_string(), line());
        return where;
    };
    const auto follow = [&](int, json::parse_event_t event, json& value) {
        switch (event) {
            case json::parse_event_t::object_start:
            case json::parse_event_t::array_start:
                open.push_back({begins(), event == json::parse_event_t::array_start, 0, {}});
                break;
            case json::parse_event_t::key:
                open.back().key = value.get<std::string>();
                if (!lines.emplace((open.back().where / open.back().key).to_string(), line()).second)
                    throw Mistake{line(), "\"" + open.back().key + "\" stands here twice"};
                break;
            case json::parse_event_t::value:
                begins();
                break;
            case json::parse_event_t::object_end:
            case json::parse_event_t::array_end:
                open.pop_back();
                break;
        }
        return true;
    };
    try {
        return json::parse(stream, follow);
    } catch (const json::parse_error& error) {
        const std::string what = error.what();
        const std::size_t said = what.find("syntax error");
        throw Mistake{line(), said == std::string::npos ? what : what.substr(said)};
    }
}

Fault readFault(const Value& value) {
    if (value.isText()) return value.oneOf(simulator::faultCatalogue());
    Fault fault;
    value.members({
        {"fault", [&](const Value& v) { fault = v.oneOf(simulator::faultCatalogue()); }},
        {"occurrence", [&](const Value& v) { fault.step.occurrence = v.number(1, 1000); }},
        {"times", [&](const Value& v) { fault.times = v.number(1, 1000000); }},
        {"delay", [&](const Value& v) { fault.delay = v.seconds(); }},
        {"comesBack", [&](const Value& v) { fault.comesBack = v.seconds(); }},
    });
    if (fault.name.empty()) value.wrong("\"fault\" is missing: the name of one");
    return fault;
}

ScenarioDevice readDevice(const Value& value, std::uint32_t number) {
    using State = simulator::BootState;
    static constexpr std::array<std::pair<std::string_view, State>, 4> kStates = {{
        {"running", State::Running},
        {"rebooting", State::Rebooting},
        {"starting", State::Starting},
        {"held", State::HeldInBootLoader},
    }};
    ScenarioDevice device{scenarioProfiles().front().second()};
    device.profile.unitId = number;
    value.members({
        {"profile",
         [&](const Value& v) {
             device.profile = v.oneOf(scenarioProfiles()).second();
             device.profile.unitId = number;
         }},
        {"unit", [&](const Value& v) { device.profile.unitId = v.number(0, UINT32_MAX); }},
        {"name", [&](const Value& v) { device.profile.productName = v.text(); }},
        {"rebootTime", [&](const Value& v) { device.profile.rebootTime = v.seconds(); }},
        {"bootTime",
         [&](const Value& v) { device.profile.bootTime = v.isNull() ? std::nullopt : std::optional(v.seconds()); }},
        {"answerDelay", [&](const Value& v) { device.profile.answerDelay = v.seconds(); }},
        {"plugged", [&](const Value& v) { device.plugged = v.boolean(); }},
        {"state", [&](const Value& v) { device.state = v.oneOf(kStates).second; }},
        {"faults",
         [&](const Value& v) {
             for (const Value& fault : v.elements()) device.faults.push_back(readFault(fault));
         }},
    });
    return device;
}

Cue readCue(const Value& value, std::size_t devices) {
    using What = Cue::What;
    static constexpr std::array<std::pair<std::string_view, What>, 3> kActions = {
        {{"plug", What::Plug}, {"unplug", What::Unplug}, {"cancel", What::Cancel}}};
    Cue cue;
    bool hasAction = false;
    value.members({
        {"stage", [&](const Value& v) { cue.stage = stageNamed(v.oneOf(kStages).name); }},
        {"after", [&](const Value& v) { cue.after = v.seconds(); }},
        {"do",
         [&](const Value& v) {
             cue.what = v.oneOf(kActions).second;
             hasAction = true;
         }},
        {"device", [&](const Value& v) { cue.device = v.number(1, static_cast<std::uint32_t>(devices)) - 1; }},
    });
    if (!hasAction) value.wrong("\"do\" is missing: what happens");
    return cue;
}

BusTells readTells(const Value& value) {
    static constexpr std::array<std::pair<std::string_view, BusTells>, 5> kTellings = {
        {{"all", BusTells::All},
         {"arrivals", BusTells::ArrivalsOnly},
         {"nothing", BusTells::Nothing},
         {"twice", BusTells::AllTwice},
         {"refuses", BusTells::Refuses}}};
    return value.oneOf(kTellings).second;
}

}  // namespace

std::optional<Scenario> scenarioFromText(const std::string& text, std::string& error) {
    Lines lines;
    Scenario scenario;
    try {
        const json document = parsed(text, lines);
        const Value whole(document, json::json_pointer(), lines);
        whole.members({
            {"devices",
             [&](const Value& v) {
                 for (const Value& device : v.elements()) {
                     const auto number = static_cast<std::uint32_t>(scenario.devices.size() + 1);
                     scenario.devices.push_back(readDevice(device, number));
                 }
             }},
            {"cues",
             [&](const Value& v) {
                 for (const Value& cue : v.elements()) scenario.cues.push_back(readCue(cue, scenario.devices.size()));
             }},
            {"tells", [&](const Value& v) { scenario.tells = readTells(v); }},
            {"stationTakes", [&](const Value& v) { scenario.stationTakes = v.seconds(); }},
            {"otherRun", [&](const Value& v) { scenario.otherRun = v.boolean(); }},
        });
        if (scenario.devices.empty()) whole.wrong("\"devices\" is missing: one at least");
    } catch (const Mistake& mistake) {
        error = "line " + std::to_string(mistake.line) + ": " + mistake.text;
        return std::nullopt;
    }
    return scenario;
}

std::optional<Scenario> findScenario(const std::string& nameOrFile, std::string& error) {
    if (const Scenario* const known = scenarioNamed(nameOrFile)) return *known;
    // Through rdbuf(), since an istreambuf_iterator throws where reading fails, as it does for a folder.
    std::ostringstream text;
    text << std::ifstream(nameOrFile).rdbuf();
    if (text.view().empty()) {
        error = "There is no scenario and no file \"" + nameOrFile + "\"; --scenarios lists the scenarios.";
        return std::nullopt;
    }
    auto scenario = scenarioFromText(text.str(), error);
    if (scenario) {
        scenario->name = nameOrFile;
    } else {
        error = nameOrFile + ", " + error;
    }
    return scenario;
}

}  // namespace twin
