// trovik-gadget: the simulated device on a kernel's USB device controller (dummy_hcd on a desktop, or a board with a
// USB device port and a real cable). Takes orders on standard input and tells what happens on standard output, a line
// each.
#include "simulator/gadget/GadgetPlug.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <optional>
#include <signal.h>
#include <sstream>
#include <string>
#include <sys/signalfd.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace simulator;

const char* const kUsage =
    "Usage: trovik-gadget [OPTION]...\n"
    "Shows a simulated device on this machine's USB device controller. Needs root, configfs and libcomposite.\n"
    "\n"
    "  --name NAME         name of the gadget (default trovik)\n"
    "  --controller NAME   as in /sys/class/udc (default: the first free one)\n"
    "  --profile NAME      handheld (default), wearable, old or instant\n"
    "  --unit ID           unit id, 3812345678 unless given\n"
    "  --reboot-time MS    how long the device stays off the bus when it reboots\n"
    "  --boot-time MS      and when it starts after \"resume boot\"; without it it stays on the bus then\n"
    "  --product HEX       product id, 0003 unless given\n"
    "  --release HEX       device release, 0001 unless given\n"
    "  --fault NAME        commits that fault once; may be given several times (--faults lists them)\n"
    "  --unplugged         starts with the cable out\n"
    "  --faults            lists the faults and ends\n"
    "\n"
    "Orders on standard input: plug, unplug, fault [TIMES] NAME, drop ID MS, clear-faults, refill, store, state,\n"
    "record FILE, quit. drop takes the cable out when the host's next packet of that id arrives and puts it in again "
    "after MS.\n";

struct Options {
    std::string name = "trovik";
    std::string controller;
    Profile profile;
    std::vector<Fault> faults;
    bool plugged = true;
};

Fault faultNamed(const std::string& name) {
    for (const Fault& fault : faultCatalogue())
        if (fault.name == name) return fault;
    throw std::runtime_error("no fault is called \"" + name + "\"; --faults lists them");
}

template <typename Number>
Number number(const std::string& text, const std::string& what, int base = 10) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc() || stop != end) throw std::runtime_error(what + " can't be \"" + text + "\"");
    return value;
}

Options parse(int argc, char** argv) {
    Options options;
    std::optional<std::uint32_t> unit;
    std::optional<std::uint32_t> rebootTime;
    std::optional<std::uint32_t> bootTime;
    std::optional<std::uint16_t> product;
    std::optional<std::uint16_t> release;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        const auto value = [&]() -> std::string {
            if (++i >= argc) throw std::runtime_error(option + " wants a value");
            return argv[i];
        };
        if (option == "--help") {
            std::cout << kUsage;
            std::exit(0);
        } else if (option == "--faults") {
            for (const Fault& fault : faultCatalogue()) std::cout << fault.name << ": " << fault.sentence << '\n';
            std::exit(0);
        } else if (option == "--name") {
            options.name = value();
        } else if (option == "--controller") {
            options.controller = value();
        } else if (option == "--profile") {
            const auto profile = Profile::named(value());
            if (!profile) throw std::runtime_error("no profile is called " + std::string(argv[i]));
            options.profile = *profile;
        } else if (option == "--unit") {
            unit = number<std::uint32_t>(value(), option);
        } else if (option == "--reboot-time") {
            rebootTime = number<std::uint32_t>(value(), option);
        } else if (option == "--boot-time") {
            bootTime = number<std::uint32_t>(value(), option);
        } else if (option == "--product") {
            product = number<std::uint16_t>(value(), option, 16);
        } else if (option == "--release") {
            release = number<std::uint16_t>(value(), option, 16);
        } else if (option == "--fault") {
            options.faults.push_back(faultNamed(value()));
        } else if (option == "--unplugged") {
            options.plugged = false;
        } else {
            throw std::runtime_error("unknown option " + option + "; --help lists what there is");
        }
    }
    if (unit) options.profile.unitId = *unit;
    if (bootTime) options.profile.bootTime = std::chrono::milliseconds(*bootTime);
    if (rebootTime) options.profile.rebootTime = std::chrono::milliseconds(*rebootTime);
    if (product) options.profile.productId = *product;
    if (release) options.profile.releaseNumber = *release;
    return options;
}

/// Says what a person would see change.
class StatusPrinter {
  public:
    void look(const Device& device, bool onBus) {
        tell(mBus, onBus ? "on the bus" : "off the bus");
        tell(mState, std::string("state ") + bootStateName(device.bootState()));
        tell(mStore, "store " + std::to_string(device.store().entries().size()));
        const auto faults = device.record().faults();
        if (mFaults > faults.size()) mFaults = 0;  // a new record
        for (; mFaults < faults.size(); ++mFaults) std::cout << "fault " << faults[mFaults] << std::endl;
    }

  private:
    static void tell(std::string& last, const std::string& now) {
        if (last != now) std::cout << (last = now) << std::endl;
    }

    std::string mBus;
    std::string mState;
    std::string mStore;
    std::size_t mFaults = 0;
};

/// Carries out one order. @return false when it was the last
bool obey(const std::string& line, Device& device) {
    const std::string order = line.substr(0, line.find(' '));
    const std::string rest = line.size() > order.size() ? line.substr(order.size() + 1) : "";
    if (order == "quit") return false;
    if (order == "plug" || order == "unplug") {
        device.setCable(order == "plug", GadgetPlug::now());
    } else if (order == "fault") {
        std::size_t digits = 0;
        while (digits < rest.size() && std::isdigit(static_cast<unsigned char>(rest[digits]))) ++digits;
        Fault fault = faultNamed(rest.substr(std::min(rest.size(), digits > 0 ? digits + 1 : 0)));
        if (digits > 0) fault.committed(number<unsigned>(rest.substr(0, digits), "a fault's times"));
        device.addFault(std::move(fault));
    } else if (order == "drop") {
        std::istringstream values(rest);
        unsigned id = 0;
        long milliseconds = 0;
        if (!(values >> id >> milliseconds)) throw std::runtime_error("drop wants a packet id and milliseconds");
        device.addFault(Fault::onPacket(static_cast<std::uint16_t>(id), FaultKind::Unplug, "Cable out")
                            .comingBackAfter(std::chrono::milliseconds(milliseconds)));
    } else if (order == "clear-faults") {
        device.faults().clear();
    } else if (order == "refill") {
        device.store() = SettingsStore::wellUsed();
        device.record().clear();
    } else if (order == "store") {
        for (const auto& [key, value] : device.store().entries())
            std::cout << "  " << key << " = " << value << std::endl;
    } else if (order == "state") {
        std::cout << "state " << bootStateName(device.bootState()) << std::endl;
    } else if (order == "record") {
        std::ofstream file(rest);
        file << device.record().text();
        file.close();
        if (!file) throw std::runtime_error("the record can't be written to \"" + rest + "\"");
        std::cout << "recorded " << rest << std::endl;
    } else if (!order.empty()) {
        std::cout << "unknown order " << order << std::endl;
    }
    return true;
}

void run(const Options& options) {
    sigset_t ends;
    sigemptyset(&ends);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ends, number);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    const platform::FileDescriptor signals(::signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK));

    Device device(options.profile);
    for (const Fault& fault : options.faults) device.addFault(fault);
    FunctionFs function(options.name, options.controller, options.profile);
    GadgetPlug plug(function, device);
    std::cout << "ready on " << function.controller() << std::endl;
    device.setCable(options.plugged, GadgetPlug::now());

    StatusPrinter status;
    std::string text;
    bool goOn = true;
    bool listening = true;
    while (goOn) {
        const std::initializer_list<int> both = {signals.get(), STDIN_FILENO};
        const std::initializer_list<int> one = {signals.get()};
        plug.step(listening ? both : one, [&](int descriptor) {
            if (descriptor == signals.get()) {
                goOn = false;
                return;
            }
            char piece[512];
            const ssize_t length = ::read(STDIN_FILENO, piece, sizeof piece);
            if (length <= 0) {
                listening = false;  // nobody gives orders any more; the device stays until a signal comes
                return;
            }
            text.append(piece, static_cast<std::size_t>(length));
            for (std::size_t end; goOn && (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
                try {
                    goOn = obey(text.substr(0, end), device);
                } catch (const std::exception& error) {
                    std::cout << "refused: " << error.what() << std::endl;
                }
            }
        });
        status.look(device, function.bound());
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        run(parse(argc, argv));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "trovik-gadget: " << error.what() << '\n';
        return 1;
    }
}
