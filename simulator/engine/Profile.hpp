#pragma once

#include "platform/IOUSB.hpp"
#include "platform/VendorId.hpp"
#include "simulator/engine/Types.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

/// One entry of the protocol list that the device reports, "A010" in text.
struct ProtocolEntry {
    char tag = 'A';
    std::uint16_t number = 0;
};

/// Reads entries such as "P000 L001 A010 D108", separated by blanks. Stops at what it cannot read.
std::vector<ProtocolEntry> protocolEntries(const std::string& text);

/// On which pipe the device answers.
enum class AnswerRoute {
    SmallOnInterrupt,  ///< up to interruptLimit bytes on the interrupt pipe, longer ones announced and sent on bulk
    AllOnInterrupt,
    AllOnBulk,  ///< every application answer is announced and sent on bulk; the session's own answers are not
};

/// What a simulated device is and how it behaves. Plain data.
struct Profile {
    std::uint16_t vendorId = platform::kTrovikVendorId;
    std::uint16_t productId = 3;
    std::uint16_t releaseNumber = 1;
    std::uint8_t configurationValue = 1;
    std::uint8_t interfaces = 1;  ///< the first one has the pipes, any others have none
    /// The endpoints in descriptor order. A pipe that is left out does not exist on this device.
    std::vector<platform::PipeProperties> pipes = pipesOfSize(64);

    std::string productName = "Trailmate 300";  ///< what the device tells the system that it is called

    std::uint16_t productNumber = 1000;  ///< the model, as product data reports it
    std::int16_t softwareVersion = 230;  ///< hundredths
    std::vector<std::string> descriptions = {"Trailmate 300 Software Version 2.30"};
    std::optional<std::vector<std::string>> extendedProductData = {{"Trailmate 300", "Basemap 1.02"}};
    std::optional<std::vector<ProtocolEntry>> protocols = protocolEntries(
        "P000 L001 A010 A100 D110 A201 D202 D110 D210 A301 D312 D302 A600 D600 A601 A700 D700 A800 D800 A1015");
    std::uint32_t unitId = 3812345678;
    std::string unitName = "Trailmate";
    std::uint32_t disconnectTimeout = 60;

    std::optional<std::uint32_t> largestPacket = 4108;  ///< header included; nothing: the question stays unanswered
    AnswerRoute route = AnswerRoute::SmallOnInterrupt;
    std::uint32_t interruptLimit =
        64;                    ///< bytes of the longest packet (with header) that goes out on the interrupt pipe
    bool endsBulkRuns = true;  ///< sends an empty transfer after each announced answer

    Duration answerDelay{0};                         ///< of every answer
    std::map<std::uint16_t, Duration> answerDelays;  ///< of single answers by packet id, instead of answerDelay
    /// Between the reboot command and leaving the bus. A host that sees its write end and the device go in one breath
    /// would count the command as failed, so a device gives it a moment.
    Duration leaveDelay = std::chrono::milliseconds(20);
    Duration rebootTime = std::chrono::seconds(2);  ///< off the bus
    std::optional<Duration> bootTime;               ///< off the bus after "resume boot"; nothing: it stays on it
    /// How long the boot loader listens after a reboot; nothing: until somebody tells it what to do.
    std::optional<Duration> bootWindow;

    const platform::PipeProperties* pipe(Pipe pipe) const;  ///< null when the device has none
    std::uint8_t endpointAddress(Pipe pipe) const;          ///< with the direction in bit 7; 0 when there is none

    /// Interrupt in 1, bulk in 2, bulk out 3 (full speed has 64-byte packets, high speed 512).
    static std::vector<platform::PipeProperties> pipesOfSize(std::uint16_t maxPacketSize);

    static Profile handheld() { return {}; }
    static Profile wearable();          ///< high speed, answers everything on the bulk pipe
    static Profile withoutProtocols();  ///< an old model that reports no protocol list and no extended data
    static Profile instant();           ///< answers, leaves and comes back without any delay

    /// The one of that name, for a command line: handheld, wearable, old (without protocols) or instant.
    static std::optional<Profile> named(std::string_view name);
};

/// The device descriptor and the one configuration with its interface and endpoints, as a host reads them from the
/// device: what sysfs calls "descriptors".
Bytes usbDescriptors(const Profile& profile);

}  // namespace simulator
