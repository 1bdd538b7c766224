#pragma once

#include "IOL/IOL_Link.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <stop_token>
#include <vector>

namespace ioa {
class Channel_t;
}

/// One command of a reset, and what a log says of it.
struct ResetStep {
    std::uint16_t command;
    std::vector<unsigned char> data;
    bool awaitResponse;
    bool makesItLeave;  ///< once it has been sent, that the device is gone is success
    const char* succeeded;
    const char* failed;
};

/// The steps of a reset, for whoever drives one: the window's controller and the program without a window.
///
/// A reset has two phases, since the device leaves and comes back in between: first it is told to reboot; when it is
/// attached again it is held in its boot loader, cleared, and its boot resumed, all three over one link. A step that
/// fails leaves the device in a state that only a reboot ends, so what follows is the reboot; only the program without
/// a window, once the store is cleared, resumes again instead.
struct ResetSteps {
    /// Comes before the first reboot: asks the companion programs, which hold the device, to quit, and kills them where
    /// that fails. Best effort, silent; the reset goes on regardless. Blocks for some seconds at most. Any thread.
    /// @param stop  once it is requested this returns at once, and nobody else is asked or killed
    static void quitStation(const std::stop_token& stop = {});

    static const ResetStep kReboot;
    static const std::array<ResetStep, 3> kClearSequence;  ///< hold, clear, resume, in this order
    static constexpr const ResetStep& kHold = kClearSequence[0];
    static constexpr const ResetStep& kClear = kClearSequence[1];
    static constexpr const ResetStep& kResume = kClearSequence[2];

    /// Identifies the device anew over a channel of its own, sends one command, and waits for a packet of the command's
    /// number where an answer is awaited: 3 seconds, and up to twice that while other packets keep coming.
    /// @param identified  called with what the device has said of itself, right before the command leaves; may be empty
    /// @throws whatever the channel and the link throw; before that call, nothing of the command has left
    /// Blocks. Owner thread of the link only.
    static void issue(iol::Link_t& link, std::uint16_t command, std::vector<unsigned char> data, bool awaitResponse,
                      const std::function<void(const ioa::Channel_t&)>& identified = {});
};
