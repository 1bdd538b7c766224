#include "app/TrovikMode/ResetSteps.hpp"

#include "FTX/FTX_Channel.hpp"
#include "IOL/IOL_Packet.hpp"
#include "platform/Platform.hpp"
#include "platform/ScriptRunner.hpp"

#include <utility>

const ResetStep ResetSteps::kReboot = {10, {0xAE, 0x00}, false, true, "Device rebooted", "Reboot failed"};
const std::array<ResetStep, 3> ResetSteps::kClearSequence = {{
    {113, {}, true, false, "Hold in bootloader sent", "Hold in bootloader failed"},
    {10, {0x27, 0x00}, false, false, "Nonvol cleared", "Nonvol clear failed"},
    {1500, {}, false, true, "Boot resumed", "Resume boot failed"},
}};

void ResetSteps::quitStation(const std::stop_token& stop) {
    platform::ScriptRunner& runner = platform::scriptRunner();
    for (const char* const script :
         {"tell application \"Trovik Station\" to quit", "tell application \"Trovik Station Service\" to quit"}) {
        const bool hasQuit = !stop.stop_requested() && runner.executeAndReturnError(script, stop);
        if (stop.stop_requested()) return;
        // The application is named after either failure: killing it takes its service along.
        if (!hasQuit) runner.system("/usr/bin/killall \"Trovik Station\"");
    }
}

void ResetSteps::issue(iol::Link_t& link, std::uint16_t command, std::vector<unsigned char> data, bool awaitResponse,
                       const std::function<void(const ioa::Channel_t&)>& identified) {
    ftx::Channel_t channel(link);
    if (identified) identified(channel);
    channel.SendIopCommand(command, std::move(data));
    if (!awaitResponse) return;
    iol::Packet_t response(command);
    channel.GetPacket(response);
}
