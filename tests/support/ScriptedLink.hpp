#pragma once

#include "GLO/GLO_Exception.hpp"
#include "IOL/IOL_Frame.hpp"
#include "IOL/IOL_Link.hpp"
#include "tests/support/ManualClock.hpp"
#include "tests/support/RaiseSite.hpp"

#include <deque>
#include <functional>
#include <utility>
#include <vector>

namespace support {

using Bytes = std::vector<unsigned char>;
using Timeouts = std::vector<win::Duration_t>;

using WireFrame = std::pair<unsigned short, Bytes>;  ///< one frame as the other side saw it: id and payload

/// A link whose other side follows a script on a simulated clock: frames arrive in order, each a given time after the
/// wait before it ended. Everything that the host does is recorded.
class ScriptedLink : public iol::Link_t {
  public:
    explicit ScriptedLink(ManualClock& clock) : mClock(clock) {}

    /// Adds an arrival.
    /// @param delay  milliseconds after the receive before; a receive that may not wait so long times out and the frame
    ///               stays due for what remains
    ScriptedLink& Arrives(unsigned short id, Bytes payload = {}, std::uint64_t delay = 0) {
        mScript.push_back({delay, [frame = iol::Frame_t(id, std::move(payload))] { return frame; }});
        return *this;
    }

    /// Adds a failure of the transport, thrown by the receive that reaches it.
    ScriptedLink& Fails(std::function<iol::Frame_t()> raise) {
        mScript.push_back({0, std::move(raise)});
        return *this;
    }

    iol::Frame_t GetFrameWithTimeout(win::Duration_t timeout) override {
        receiveTimeouts.push_back(timeout);
        const auto limit = static_cast<std::uint64_t>(timeout);
        if (mScript.empty() || mScript.front().delay > limit) {
            if (!mScript.empty()) mScript.front().delay -= limit;
            mClock.Advance(limit);
            throw glo::Timeout_t("tests/support/ScriptedLink", 1);
        }
        Step step = std::move(mScript.front());
        mScript.pop_front();
        mClock.Advance(step.delay);
        return step.ends();
    }

    void SendFrameWithTimeout(const iol::Frame_t& frame, win::Duration_t timeout) override {
        sent.emplace_back(frame.Id(), frame.Bytes());
        sendTimeouts.push_back(timeout);
    }

    unsigned int MaxPacketSize() const override { return 255; }

    /// Frames that nobody has asked for yet.
    std::size_t Pending() const { return mScript.size(); }

    std::vector<WireFrame> sent;
    Timeouts sendTimeouts;
    Timeouts receiveTimeouts;

  private:
    struct Step {
        std::uint64_t delay;
        std::function<iol::Frame_t()> ends;
    };

    ManualClock& mClock;
    std::deque<Step> mScript;
};

}  // namespace support
