// trovik-simulator: runs a program on a simulated USB bus, behind the real libusb and libudev, so that it can be tried
// out or tested on a machine without a device: with simulated devices, or with one that plays a capture back.
#include "platform/IOReturn.hpp"
#include "simulator/capture/CaptureMask.hpp"
#include "simulator/capture/CapturedDevice.hpp"
#include "simulator/capture/ReplayedDevice.hpp"
#include "simulator/capture/UsbCapture.hpp"
#include "simulator/engine/Fault.hpp"
#include "simulator/engine/Profile.hpp"
#include "simulator/engine/Types.hpp"
#include "simulator/umock/ProgramOnBus.hpp"
#include "simulator/umock/UmockUsb.hpp"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace {

constexpr char kUsage[] = R"(Usage: trovik-simulator run [OPTION]... [--] PROGRAM [ARGUMENT]...
       trovik-simulator replay CAPTURE [--] PROGRAM [ARGUMENT]...
       trovik-simulator mask CAPTURE [OUT]
       trovik-simulator scenarios | faults

run has a program find simulated devices behind the real libusb and libudev. Ends with the program's status; with 1
where that is 0 but a device had to refuse something. Standard error says how it ended, what was refused, and of several
devices which settings stores are empty.

  --scenario NAME  what is attached, or what goes wrong with it (scenarios lists them), as if it were said by --profile
                   or --fault; may be given several times
  --profile NAME[,WORD]...
                   attaches a handheld (what there is without this option), wearable, old or instant device; may be
                   given several times. A WORD is of this device alone: a fault, unit=N (its unit id), boot-loader (it
                   waits there to be told what to do), after=SECONDS (it is plugged in so long after the program's
                   start)
  --fault NAME     has the first device commit that fault once; may be given several times (faults lists them).
                   NAME@N: at the Nth time that it could
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

/// The number that a text is; nothing where it is none or too large.
std::optional<std::uint32_t> numberIn(std::string_view text) {
    std::uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [read, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || read != end) return std::nullopt;
    return number;
}

/// Takes the text up to the separator, and both out of the text.
std::string_view takeUpTo(char separator, std::string_view& text) {
    const auto taken = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(taken.size() + 1, text.size()));
    return taken;
}

/// @param text  "NAME" or "NAME@N"
bool addFault(std::vector<simulator::Fault>& faults, std::string_view text) {
    const bool hasMoment = text.find('@') != std::string_view::npos;
    const auto& known = simulator::faultCatalogue();
    const auto fault = std::ranges::find(known, takeUpTo('@', text), &simulator::Fault::name);
    const auto moment = hasMoment ? numberIn(text) : 1;
    if (fault == known.end() || !canBePlayed(*fault) || moment.value_or(0) == 0) return false;
    faults.push_back(*fault);
    faults.back().step.occurrence = *moment;
    return true;
}

/// A device that is to be attached.
struct Wanted {
    simulator::Profile profile;
    std::vector<simulator::Fault> faults = {};
    simulator::BootState state = simulator::BootState::Running;
    std::optional<std::chrono::seconds> after = {};  // the program's start; nothing: it is there before

    /// @param word  of --profile, behind the name
    bool add(std::string_view word) {
        std::string_view text = word;
        const auto key = takeUpTo('=', text);
        const auto number = numberIn(text);
        if (word == "boot-loader") {
            state = simulator::BootState::Starting;
        } else if (key == "unit" && number) {
            profile.unitId = *number;
        } else if (key == "after" && number) {
            after = std::chrono::seconds(*number);
        } else {
            return addFault(faults, word);
        }
        return true;
    }
};

struct Options {
    std::vector<Wanted> devices;
    std::vector<simulator::Fault> faults;  // of the first device, besides its own
    bool mustBeReset = false;
    char** command = nullptr;

    bool addDevice(std::string_view text) {
        const auto profile = simulator::Profile::named(takeUpTo(',', text));
        if (!profile) return false;
        devices.push_back({*profile});
        while (!text.empty()) {
            if (!devices.back().add(takeUpTo(',', text))) return false;
        }
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
        const bool isProfile = option == "--profile";
        if ((!isScenario && !isProfile && option != "--fault") || !name) throw std::runtime_error(kUsage);
        ++argument;
        const bool isKnown =
            (option != "--fault" && options.addDevice(name)) || (!isProfile && addFault(options.faults, name));
        if (!isKnown) throw std::runtime_error("no " + option.substr(2) + " here is \"" + name + "\"\n");
    }
    if (options.devices.empty()) options.addDevice("handheld");
    std::ranges::move(options.faults, std::back_inserter(options.devices.front().faults));
    if (!*argument) throw std::runtime_error(kUsage);
    options.command = argument;
    return options;
}

const char* storeText(bool isEmpty) {
    return isEmpty ? "the settings store is empty" : "the settings store holds settings";
}

int run(const Options& options) {
    simulator::UmockUsb bus;
    std::vector<std::size_t> ports, atStart;
    std::multimap<std::chrono::seconds, std::size_t> later;
    for (const auto& wanted : options.devices) {
        const std::size_t port = bus.addDevice(wanted.profile);
        bus.withDevice(port, [&](simulator::Device& device, simulator::Time now) {
            for (const auto& fault : wanted.faults) device.addFault(fault);
            device.setBootState(wanted.state, now);
        });
        const auto isHeld = [](const auto& fault) { return fault.kind == simulator::FaultKind::FailOperation; };
        if (std::ranges::any_of(wanted.faults, isHeld)) bus.setDriver("usbfs", 0, port);
        ports.push_back(port);
        if (wanted.after) {
            later.emplace(*wanted.after, port);
        } else {
            atStart.push_back(port);
        }
    }
    bus.plug(atStart);
    simulator::ProgramOnBus program(options.command);
    const auto start = std::chrono::steady_clock::now();
    for (const auto& [after, port] : later) {
        if (!program.endsBefore(start + after)) bus.plug(port);
    }
    const int status = program.wait();

    bool isReset = true;
    std::size_t refused = 0;
    for (const std::size_t port : ports) {
        bus.withDevice(port, [&](const simulator::Device& device, simulator::Time) {
            const bool isEmpty = device.store().entries().empty();
            if (port == ports.front()) isReset = isEmpty;
            if (ports.size() > 1) std::fprintf(stderr, "trovik-simulator: device %zu: %s\n", port, storeText(isEmpty));
            for (const auto& refusal : device.record().refused()) {
                std::fprintf(stderr, "trovik-simulator: device %zu refused: %s\n", port, refusal.c_str());
                ++refused;
            }
        });
    }
    std::fprintf(stderr, "trovik-simulator: %s ended with status %d, %s; %zu refused\n", options.command[0], status,
                 storeText(isReset), refused);
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
