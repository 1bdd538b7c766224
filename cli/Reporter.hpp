#pragma once

#include "cli/Outcome.hpp"

#include <cstddef>
#include <iosfwd>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace twin {

/// One thing that happened, with the fields that cli/events.schema.json lists. The key "event" says what it is.
using Event = nlohmann::ordered_json;

/// Says what happens: as JSON lines on one stream, as sentences on another, in a trace file for each device, and in the
/// daily log. On a terminal the lines of devices at work are drawn anew in place. Main thread only.
class Reporter {
  public:
    struct Style {
        bool json = false;
        bool terminal = false;  ///< the stream for people is one
        std::string traceFolder;
    };

    Reporter(std::ostream& json, std::ostream& people, Style style);
    ~Reporter();
    Reporter(const Reporter&) = delete;
    Reporter& operator=(const Reporter&) = delete;

    void tell(const Event& event);

    /// Draws the lines of devices at work anew.
    /// @param at  seconds since the start
    void redraw(double at);
    [[nodiscard]] bool drawsLines() const { return mStyle.terminal; }

    /// A line for people that is no event: a table's row, a question.
    void line(std::string_view text);

  private:
    struct Work {
        std::string port;
        std::string stage;
        double began = 0;
        double limit = 0;
    };

    void erase();
    void trace(const Event& event);

    std::ostream& mJson;
    std::ostream& mPeople;
    const Style mStyle;
    std::map<int, Work> mAtWork;  ///< by the number of the device in this run
    std::size_t mDrawn = 0;       ///< lines
};

}  // namespace twin
