#include "cli/Reporter.hpp"

#include "app/TrovikMode/DeviceLock.hpp"
#include "app/TrovikMode/ResetSteps.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "platform/common/OneLine.hpp"

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <ostream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace twin {
namespace {

std::string text(const Event& event, const char* key) {
    return event.value(key, std::string());
}

/// "1-2 (unit 5)"; empty for what concerns no one device.
std::string deviceName(const Event& event) {
    std::string name = text(event, "port");
    if (event.contains("unit")) name += " (unit " + std::to_string(event["unit"].get<std::uint32_t>()) + ")";
    return name;
}

std::string seconds(double value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.1f s", value);
    return buffer;
}

/// The event as a sentence; empty for what people need not be told.
std::string sentence(const Event& event) {
    const std::string kind = text(event, "event"), name = deviceName(event);
    std::string line = name.empty() ? name : name + ": ";
    if (kind == "hello") return {};
    if (kind == "stage") {
        const auto stage = stageNamed(text(event, "stage"));
        line += stage ? info(*stage).text : std::string_view();
        const std::string state = text(event, "state");
        if (state == "began") return line + " ...";
        if (state == "ended") return line + ": done after " + seconds(event.value("seconds", 0.0));
        return line + ": failed. " + text(event, "text");
    }
    if (kind == "device" && !event.contains("text")) return line + text(event, "state") + " " + text(event, "product");
    line += text(event, "text");
    const std::string id = text(event, "cause"), remedy = text(event, "remedy");
    if (!id.empty()) line += " [" + id + "]";
    return remedy.empty() ? line : line + " " + remedy;
}

/// Of the terminal, which is standard error's; as many as the smallest usual one has where it does not tell.
std::size_t rowsOfTerminal() {
    winsize size{};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? size.ws_row : 24;
}

/// The window's lines, with the device.
void log(const Event& event) {
    const auto stage = stageNamed(text(event, "stage"));
    const ResetStep* const step = stage ? info(*stage).step : nullptr;
    const std::string state = text(event, "state"), name = deviceName(event);
    if (!step || state == "began") return;
    if (state == "ended") {
        DDLogInfo("%s [%s]", step->succeeded, name.c_str());
    } else {
        DDLogInfo("%s: %s %s [%s]", step->failed, text(event, "cause").c_str(), text(event, "text").c_str(),
                  name.c_str());
    }
}

}  // namespace

Reporter::Reporter(std::ostream& json, std::ostream& people, Style style)
    : mJson(json), mPeople(people), mStyle(std::move(style)) {}

Reporter::~Reporter() {
    erase();
    mPeople.flush();
}

void Reporter::tell(const Event& event) {
    // What a device or a file says of itself need not be UTF-8.
    if (mStyle.json) mJson << event.dump(-1, ' ', false, Event::error_handler_t::replace) << std::endl;
    log(event);
    trace(event);
    const std::string kind = text(event, "event");
    const bool isStage = kind == "stage";
    if (isStage && text(event, "state") == "began") {
        mAtWork[event.value("number", 0)] = {text(event, "port"), text(event, "stage"), event.value("at", 0.0),
                                             event.value("limit", 0.0)};
    } else if (kind == "device" && text(event, "state") == "ended") {
        mAtWork.erase(event.value("number", 0));
    }
    // On a terminal the redrawn lines tell of stages, but for those that fail.
    if (isStage && mStyle.terminal && text(event, "state") != "failed") return;
    if (const std::string words = sentence(event); !words.empty()) line(words);
}

void Reporter::line(std::string_view words) {
    erase();
    // A device's product text, a program's name: nothing of them may act on the terminal.
    mPeople << platform::oneLine(words, std::string_view::npos) << '\n';
    mPeople.flush();
}

void Reporter::redraw(double at) {
    if (!mStyle.terminal) return;
    erase();
    const std::size_t most = rowsOfTerminal() - 1;  // what has scrolled away can't be erased
    for (const auto& [number, work] : mAtWork) {
        if (mDrawn == most) break;
        const auto stage = stageNamed(work.stage);
        mPeople << work.port << ": " << (stage ? info(*stage).text : std::string_view()) << ", "
                << seconds(at - work.began) << " of " << seconds(work.limit) << '\n';
        ++mDrawn;
    }
    mPeople.flush();
}

void Reporter::erase() {
    for (; mDrawn > 0; --mDrawn) mPeople << "\x1b[1A\x1b[2K";
}

void Reporter::trace(const Event& event) {
    const std::string port = text(event, "port");
    if (mStyle.traceFolder.empty() || port.empty()) return;
    std::ofstream file(mStyle.traceFolder + "/" + DeviceLock::fileNameOf(port) + ".jsonl", std::ios::app);
    file << event.dump(-1, ' ', false, Event::error_handler_t::replace) << '\n';
}

}  // namespace twin
