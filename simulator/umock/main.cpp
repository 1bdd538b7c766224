// trovik-simulator: runs a program on a simulated USB bus, behind the real libusb and libudev, so that it can be tried
// out or tested on a machine without a device: with simulated devices, or with one that plays a capture back.
#include "platform/IOReturn.hpp"
#include "simulator/capture/CaptureMask.hpp"
#include "simulator/capture/CapturedDevice.hpp"
#include "simulator/capture/ReplayedDevice.hpp"
#include "simulator/capture/UsbCapture.hpp"
#include "simulator/umock/ProgramOnBus.hpp"
#include "simulator/umock/UmockUsb.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr char kUsage[] = R"(Usage: trovik-simulator run [OPTION]... [--] PROGRAM [ARGUMENT]...
       trovik-simulator replay CAPTURE [--] PROGRAM [ARGUMENT]...
       trovik-simulator mask CAPTURE [OUT]
       trovik-simulator scenarios | faults

run has a program find simulated devices behind the real libusb and libudev. Ends with the program's status and a line
on standard error; with 1 where that is 0 but the device had to refuse something.

  --scenario NAME  what is attached, or what goes wrong with it (scenarios lists them); may be given several times
  --profile NAME   attaches a handheld (what there is without this option), wearable, old or instant device; may
                   be given several times
  --fault NAME     has the first device commit that fault once; may be given several times (faults lists them)
  --reset          1 also where the first device's settings store is not empty at the end

replay has it find the device of a capture (usbmon; pcapng or pcap), which says what it said then for as long as the
program does. Where they part, standard error says so, the program is asked to end, and the status is 1.

mask makes a capture fit to be shown to others: nothing of other devices, no serial numbers, no user's data. OUT is
CAPTURE with -masked.pcap at its end, unless named.
)";

struct ProfileName {
    const char* name;
    const char* sentence;
};
constexpr ProfileName kProfiles[] = {
    {"handheld", "Nothing goes wrong"},
    {"wearable", "High speed; answers everything on the bulk pipe"},
    {"old", "Lists no protocols"},
    {"instant", "Answers, leaves and comes back without any delay"},
};

/// A fault at an operation of the bus needs a bus that can fail like that. Here the kernel can say that another program
/// holds the device, and nothing more.
bool canBePlayed(const simulator::Fault& fault) {
    return fault.kind != simulator::FaultKind::FailOperation || fault.result == platform::kIOReturnExclusiveAccess;
}

struct Options {
    std::vector<simulator::Profile> profiles;
    std::vector<simulator::Fault> faults;
    bool mustBeReset = false;
    char** command = nullptr;

    bool addProfile(std::string_view name) {
        const auto profile = simulator::Profile::named(name);
        if (profile) profiles.push_back(*profile);
        return profile.has_value();
    }
    bool addFault(std::string_view name) {
        const auto& known = simulator::faultCatalogue();
        const auto fault = std::ranges::find(known, name, &simulator::Fault::name);
        if (fault == known.end() || !canBePlayed(*fault)) return false;
        faults.push_back(*fault);
        return true;
    }
};

Options parse(char** argument) {
    Options options;
    for (; *argument && **argument == '-'; ++argument) {
        const std::string option = *argument;
        if (option == "--") {
            ++argument;
            break;
        }
        if (option == "--reset") {
            options.mustBeReset = true;
            continue;
        }
        const char* const name = argument[1];
        const bool isScenario = option == "--scenario";
        if ((!isScenario && option != "--profile" && option != "--fault") || !name) throw std::runtime_error(kUsage);
        ++argument;
        const bool isKnown = ((isScenario || option == "--profile") && options.addProfile(name)) ||
                             ((isScenario || option == "--fault") && options.addFault(name));
        if (!isKnown) throw std::runtime_error("no " + option.substr(2) + " here is called \"" + name + "\"\n");
    }
    if (options.profiles.empty()) options.profiles.push_back(simulator::Profile::handheld());
    if (!*argument) throw std::runtime_error(kUsage);
    options.command = argument;
    return options;
}

int run(const Options& options) {
    simulator::UmockUsb bus;
    std::vector<std::size_t> ports;
    for (const auto& profile : options.profiles) ports.push_back(bus.addDevice(profile));
    bus.withDevice(ports.front(), [&](simulator::Device& device, simulator::Time) {
        for (const auto& fault : options.faults) device.addFault(fault);
    });
    const auto isHeld = [](const auto& fault) { return fault.kind == simulator::FaultKind::FailOperation; };
    if (std::ranges::any_of(options.faults, isHeld)) bus.setDriver("usbfs", 0, ports.front());
    bus.plug(ports);
    const int status = simulator::ProgramOnBus(options.command).wait();

    bool isReset = true;
    std::size_t refused = 0;
    for (const std::size_t port : ports) {
        bus.withDevice(port, [&](const simulator::Device& device, simulator::Time) {
            if (port == ports.front()) isReset = device.store().entries().empty();
            for (const auto& refusal : device.record().refused()) {
                std::fprintf(stderr, "trovik-simulator: device %zu refused: %s\n", port, refusal.c_str());
                ++refused;
            }
        });
    }
    std::fprintf(stderr, "trovik-simulator: %s ended with status %d, %s; %zu refused\n", options.command[0], status,
                 isReset ? "the settings store is empty" : "the settings store holds settings", refused);
    if (status != EXIT_SUCCESS) return status;
    return refused == 0 && (isReset || !options.mustBeReset) ? EXIT_SUCCESS : EXIT_FAILURE;
}

/// What is wrong with a capture names the file.
template <typename Action>
auto ofCapture(const char* file, const Action& action) {
    try {
        return action(simulator::UsbCapture::read(file));
    } catch (const simulator::CaptureError& error) {
        throw std::runtime_error("trovik-simulator: " + std::string(file) + ": " + error.what() + "\n");
    }
}

int replay(const char* file, char** command) {
    if (*command && std::strcmp(*command, "--") == 0) ++command;
    if (!*command) throw std::runtime_error(kUsage);
    auto story = ofCapture(file, simulator::storyOf);
    std::optional<simulator::ProgramOnBus> program;  // there before the bus hears of it, and until the bus has gone
    simulator::UmockUsb bus;
    auto made = std::make_unique<simulator::ReplayedDevice>(std::move(story), [&] { program->stop(); });
    const simulator::ReplayedDevice& device = *made;
    const std::size_t port = bus.addDevice(std::move(made));
    bus.plug(port);
    // Under the bus's lock: the device may find a difference as soon as the program runs.
    bus.withBusDevice(port, [&](simulator::BusDevice&, simulator::Time) { program.emplace(command); });
    const int status = program->wait();

    std::optional<std::string> difference;
    std::size_t played = 0;
    bus.withBusDevice(port, [&](simulator::BusDevice&, simulator::Time) {
        difference = device.difference();
        played = device.played();
    });
    std::fprintf(stderr, "trovik-simulator: %s ended with status %d; %zu of its %zu captured packets were played\n",
                 command[0], status, played, device.total());
    if (!difference) return status;
    std::fprintf(stderr, "trovik-simulator: %s: they part %s\n", file, difference->c_str());
    return EXIT_FAILURE;
}

int mask(const char* file, const char* out) {
    const auto result = ofCapture(file, simulator::masked);
    const std::filesystem::path path(file);
    const std::string target = out ? out : (path.parent_path() / path.stem()).string() + "-masked.pcap";
    result.capture.write(target);
    std::fprintf(stderr,
                 "trovik-simulator: %s: %zu packets; %zu of other devices are left out, %zu values are masked. Look at "
                 "it before you share it.\n",
                 target.c_str(), result.capture.events.size(), result.removed, result.masked);
    return EXIT_SUCCESS;
}

int list(bool onlyFaults) {
    if (!onlyFaults) {
        for (const auto& profile : kProfiles) std::printf("%s\t%s.\n", profile.name, profile.sentence);
    }
    for (const auto& fault : simulator::faultCatalogue()) {
        if (!canBePlayed(fault)) continue;
        std::printf(onlyFaults ? "%s\n" : "%s\t%s.\n", fault.name.c_str(), fault.sentence.c_str());
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const std::string_view command = argc > 1 ? argv[1] : "";
        if (argc == 2 && (command == "faults" || command == "scenarios")) return list(command == "faults");
        if (argc == 2 && command == "--help") return std::fputs(kUsage, stdout), EXIT_SUCCESS;
        if (argc > 2 && command == "run") return run(parse(argv + 2));
        if (argc > 3 && command == "replay") return replay(argv[2], argv + 3);
        if ((argc == 3 || argc == 4) && command == "mask") return mask(argv[2], argv[3]);
        throw std::runtime_error(kUsage);
    } catch (const simulator::CaptureError& error) {
        std::fprintf(stderr, "trovik-simulator: %s\n", error.what());
        return 2;
    } catch (const std::exception& error) {
        std::fputs(error.what(), stderr);
        return 2;
    }
}
