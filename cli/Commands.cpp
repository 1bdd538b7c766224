#include "cli/Commands.hpp"

#include "GLO/GLO_String.hpp"
#include "WIN/WIN_DebugServer.hpp"
#include "app/Support/Report.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "platform/Platform.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <nlohmann/json.hpp>
#include <ostream>
#include <system_error>
#include <utility>

namespace twin {
namespace {

constexpr int kSchema = 1;  ///< of the events; counts up when a field changes its meaning or goes

Event hello(const std::string& version) {
    return {{"event", "hello"}, {"at", 0.0}, {"version", version}, {"schema", kSchema}};
}

/// @param tally  devices by outcome
/// @param left   where a cancel left each of its devices, a blank before it
Event resultOf(Status status, const std::map<std::string, int>& tally = {}, const std::string& left = {}) {
    const int number = static_cast<int>(status);
    Event event{{"event", "result"}, {"at", 0.0}, {"status", number}, {"outcome", nameOf(status)}};
    std::string text = "Result: " + std::string(nameOf(status)) + " (" + std::to_string(number);
    for (const auto& [outcome, devices] : tally) {
        event["tally"][outcome] = devices;
        text += ", " + std::to_string(devices) + " " + outcome;
    }
    event["text"] = text + ")" + left;
    return event;
}

bool isAny(const std::vector<Device>& devices) {
    return !devices.empty();
}

/// One run of the program.
class Run {
  public:
    Run(const Options& options, const Surroundings& surroundings)
        : mOptions(options),
          mSurroundings(surroundings),
          mJournal(surroundings.journalFolder),
          mReporter(surroundings.out, surroundings.people,
                    {options.json, surroundings.drawsLines, options.traceFolder}),
          mDispatcher({options.plan, options.jobs, surroundings.diagnosis, surroundings.stageBegan},
                      surroundings.workers, mJournal, mReporter) {
        if (mSurroundings.onCancel) mSurroundings.onCancel([this] { mDispatcher.cancel(); });
    }
    ~Run() {
        // The result has been told: a signal from here on must not make the exit status another one.
        if (mSurroundings.onCancel) mSurroundings.onCancel([] {});
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    Status operator()() {
        mDispatcher.tell(hello(mSurroundings.version));
        if (mOptions.command != Options::Command::Resume) noteHeld();
        Status status = command();
        if (mDispatcher.isCancelled()) status = Status::Cancelled;
        mDispatcher.tell(resultOf(status, mTally, mLeft));
        return status;
    }

  private:
    using Chosen = std::vector<std::pair<Device, std::optional<std::uint32_t>>>;

    Status command() {
        switch (mOptions.command) {
            case Options::Command::List:
                return list();
            case Options::Command::Check:
            case Options::Command::Explain:
                return check();
            case Options::Command::Reset:
                return reset();
            case Options::Command::Resume:
                return resume();
            case Options::Command::Report:
                return report();
        }
        return Status::Usage;
    }

    Status report() {
        const auto sources = ReportSources::ofThisSystem(TrovikLogs::logsDirectory(),
                                                         glo::string(win::DebugFileDirectory(), glo::gcUtf8Encoding),
                                                         "trovik-reset " + mSurroundings.version + "\n");
        const Report report = Report::collect(sources, mDispatcher.stopToken());
        if (mDispatcher.isCancelled()) return Status::Cancelled;
        for (const Report::Entry& entry : report.entries()) {
            say(entry.name + ", " + std::to_string(entry.size) + " bytes: " + std::string(entry.sentence));
        }
        const std::string file = mOptions.reportFile.empty() ? Report::fileName(sources.now) : mOptions.reportFile;
        const std::error_code error = report.write(file);
        say(error ? file + " can't be written: " + error.message() : "Saved as " + file + "; nothing was sent.");
        return error ? Status::Failed : Status::Done;
    }

    void say(const std::string& text) { mDispatcher.tell({{"event", "note"}, {"text", text}}); }

    Status list() {
        const auto devices = mDispatcher.waitForDevices(0, isAny);
        tellOf(devices);
        if (mOptions.watch) mDispatcher.watch();
        return devices.empty() && !mOptions.watch ? noneFound() : Status::Done;
    }

    Status check() {
        Chosen chosen;
        if (const Status status = choose(chosen, true); status != Status::Done) return status;
        std::vector<Device> devices;
        for (const auto& [device, unit] : chosen) devices.push_back(device);
        std::vector<Status> statuses;
        for (const auto& inspection : mDispatcher.inspect(devices)) {
            Event event{{"event", "device"}, {"port", inspection.device.port}};
            if (inspection.identity) {
                event["unit"] = inspection.identity->unit;
                event["product"] = inspection.identity->product;
                event["productId"] = inspection.identity->productId;
                event["softwareVersion"] = inspection.identity->softwareVersion;
                event["state"] = "identified";
            } else {
                event["product"] = inspection.device.product;
                event["state"] = "failed";
                Dispatcher::describe(event, *inspection.failure);
            }
            statuses.push_back(inspection.failure ? inspection.failure->status : Status::Done);
            event["status"] = static_cast<int>(statuses.back());
            mDispatcher.tell(std::move(event));
        }
        return overall(statuses);
    }

    Status reset() {
        Chosen chosen;
        if (!mOptions.each) {
            if (const Status status = choose(chosen, mOptions.all); status != Status::Done) return status;
        }
        if (!mOptions.yes) {
            if (const Status status = confirm(chosen); status != Status::Done) return status;
        }
        for (const auto& [device, unit] : chosen) mDispatcher.reset(device, unit);
        if (mOptions.each) mDispatcher.resetEach(mOptions.count);
        return work();
    }

    Status resume() {
        Chosen chosen;
        std::vector<std::string> names = mOptions.devices;
        if (names.empty()) {
            for (const auto& entry : mJournal.entries()) {
                if (isAtWork(entry)) {
                    mDispatcher.tell(Dispatcher::noteOf(Dispatcher::lockedByOther(), entry.port));
                    continue;
                }
                names.push_back(entry.unit ? std::string(kUnitPrefix) + std::to_string(entry.unit) : entry.port);
            }
            if (names.empty()) return fail({Cause::DeviceNotFound, Status::NoneFound, "None was left held."});
        }
        const Status found = find(names, chosen);
        if (chosen.empty()) return found;
        // One that the journal has without a unit id reports none: another at its port is not it.
        const auto unitless = mOptions.devices.empty() ? std::optional(0U) : std::nullopt;
        for (const auto& [device, unit] : chosen) mDispatcher.resume(device, unit ? unit : unitless);
        return overall(std::array{found, work()});
    }

    Status work() {
        std::vector<Status> statuses;
        for (const auto& result : mDispatcher.run()) {
            statuses.push_back(result.status);
            if (result.status == Status::Cancelled) mLeft += " " + result.device.port + ": " + result.state;
            if (mOptions.each) ++mTally[std::string(nameOf(result.status))];
        }
        return overall(statuses);
    }

    /// The devices that are meant. Never one of several by chance.
    Status choose(Chosen& chosen, bool takesAll) {
        if (!mOptions.devices.empty()) return find(mOptions.devices, chosen);
        const auto devices = mDispatcher.waitForDevices(mOptions.wait, isAny);
        if (devices.empty()) return noneFound();
        if (devices.size() > 1 && !takesAll) {
            return severalDevices(devices, "Name one, or use --all.");
        }
        for (const Device& device : devices) chosen.emplace_back(device, std::nullopt);
        return Status::Done;
    }

    /// What names stand for.
    struct Picked {
        Chosen chosen;
        std::vector<std::string> missing;
        bool isAmbiguous = false;  ///< two devices report the unit id that a name has
    };

    /// A unit id is learnt by opening what is attached: each once, and once a second what could not be opened.
    /// @param chosen  also where others are missing: those that were found
    Status find(const std::vector<std::string>& names, Chosen& chosen) {
        const double end = platform::CFAbsoluteTimeGetCurrent() + mOptions.wait;
        const bool needsUnit = std::ranges::any_of(names, [](const auto& name) { return unitOf(name).has_value(); });
        double nextTry = 0;
        std::vector<Dispatcher::Inspection> opened;
        std::vector<Device> attached;
        Picked picked;
        do {
            const auto isOpened = [&](const Device& device) {
                return std::ranges::any_of(opened, [&](const auto& one) {
                    const bool counts = one.identity || platform::CFAbsoluteTimeGetCurrent() < nextTry;
                    return counts && one.device.entry == device.entry;
                });
            };
            const auto isEnough = [&](const std::vector<Device>& devices) {
                return std::ranges::all_of(names, [&](const std::string& name) {
                    return unitOf(name) ? !std::ranges::all_of(devices, isOpened)
                                        : std::ranges::count(devices, name, &Device::port) > 0;
                });
            };
            attached = mDispatcher.waitForDevices(end - platform::CFAbsoluteTimeGetCurrent(), isEnough);
            if (needsUnit) open(attached, isOpened, opened);
            if (platform::CFAbsoluteTimeGetCurrent() >= nextTry)
                nextTry = platform::CFAbsoluteTimeGetCurrent() + Lookout::kInterval;
            picked = pick(names, attached, opened);
        } while (!picked.missing.empty() && !mDispatcher.isCancelled() && platform::CFAbsoluteTimeGetCurrent() < end);
        if (mDispatcher.isCancelled()) return Status::Cancelled;  // nobody knows what there is
        if (picked.isAmbiguous) return severalDevices(attached, "Name one by its port.");
        chosen = std::move(picked.chosen);
        if (picked.missing.empty()) return Status::Done;
        std::vector<Status> statuses;
        for (const auto& one : opened) {
            if (!one.failure) continue;
            mDispatcher.tell(Dispatcher::noteOf(*one.failure, one.device.port));
            if (std::ranges::count(attached, one.device.entry, &Device::entry) > 0)
                statuses.push_back(one.failure->status);
        }
        for (const std::string& name : picked.missing) statuses.push_back(noneFound("There is no " + name + "."));
        return overall(statuses);  // one that could not be opened may be the one that is meant
    }

    template <typename IsOpened>
    void open(std::vector<Device> devices, const IsOpened& isOpened, std::vector<Dispatcher::Inspection>& opened) {
        if (mOptions.plan.quitsStation && mOptions.command == Options::Command::Reset) mDispatcher.quitStation();
        std::erase_if(devices, isOpened);
        std::erase_if(
            opened, [&](const auto& one) { return std::ranges::count(devices, one.device.entry, &Device::entry) > 0; });
        for (auto& inspection : mDispatcher.inspect(devices)) opened.push_back(std::move(inspection));
    }

    static Picked pick(const std::vector<std::string>& names, const std::vector<Device>& devices,
                       const std::vector<Dispatcher::Inspection>& opened) {
        Picked picked;
        for (const std::string& name : names) {
            const auto unit = unitOf(name);
            const auto isIt = [&](const Device& device) {
                return unit ? reports(device, *unit, opened) : device.port == name;
            };
            const auto found = std::ranges::find_if(devices, isIt);
            if (found == devices.end()) {
                picked.missing.push_back(name);
                continue;
            }
            if (std::ranges::count_if(devices, isIt) > 1) picked.isAmbiguous = true;
            const auto isSame = [&](const auto& one) { return one.first.entry == found->entry; };
            if (std::ranges::none_of(picked.chosen, isSame)) picked.chosen.emplace_back(*found, unit);
        }
        return picked;
    }

    static bool reports(const Device& device, std::uint32_t unit, const std::vector<Dispatcher::Inspection>& opened) {
        return std::ranges::any_of(opened, [&](const auto& one) {
            return one.device.entry == device.entry && one.identity && one.identity->unit == unit;
        });
    }

    Status severalDevices(const std::vector<Device>& devices, std::string advice) {
        tellOf(devices);
        return fail({Cause::SeveralDevices, Status::Ambiguous, std::move(advice)});
    }

    Status confirm(Chosen& chosen) {
        if (!mSurroundings.answer) {
            mReporter.line("Without a terminal nobody can be asked: use --yes.");
            return Status::Usage;
        }
        if (mOptions.plan.quitsStation) mDispatcher.quitStation();
        std::vector<Device> devices;
        for (const auto& [device, unit] : chosen) devices.push_back(device);
        const auto inspections = mDispatcher.inspect(devices);
        for (std::size_t i = 0; i < chosen.size(); ++i) {  // what is confirmed is this very device
            if (const auto& identity = inspections[i].identity) chosen[i].second = identity->unit;
        }
        if (mDispatcher.isCancelled()) return Status::Cancelled;
        ask(inspections);
        return mSurroundings.answer(mDispatcher.stopToken()) == "yes" ? Status::Done : Status::Cancelled;
    }

    void ask(const std::vector<Dispatcher::Inspection>& inspections) {
        mReporter.line(mOptions.each ? "All settings of every device that is plugged in will be erased."
                                     : "All settings of these devices will be erased:");
        for (const auto& inspection : inspections) {
            std::string line = "  " + inspection.device.port + "  " + inspection.device.product;
            if (inspection.identity) line += "  unit " + std::to_string(inspection.identity->unit);
            mReporter.line(line);
        }
        mReporter.line("Type \"yes\" to go on:");
    }

    void tellOf(const std::vector<Device>& devices) {
        for (const Device& device : devices) {
            mDispatcher.tell(
                {{"event", "device"}, {"port", device.port}, {"product", device.product}, {"state", "attached"}});
        }
    }

    /// Whether it is not left behind: a run is at work on it, and has its lock.
    static bool isAtWork(const Journal::Entry& entry) {
        return !DeviceLock::take(entry.unit ? Dispatcher::unitLock(entry.unit) : entry.port);
    }

    /// What a run left behind that was killed.
    void noteHeld() {
        for (const auto& entry : mJournal.entries()) {
            if (isAtWork(entry)) continue;
            mDispatcher.tell(Dispatcher::noteOf({Cause::StoppedHalfway, Status::Failed,
                                                 "The device was left held: \"trovik-reset resume\" lets it start."},
                                                entry.port, entry.unit));
        }
    }

    /// Where the registry can't be read, which has been said by then, nobody knows whether there is one.
    Status noneFound(std::string seen = {}) {
        if (mDispatcher.isListUnreadable()) return Status::Failed;
        return fail({Cause::DeviceNotFound, Status::NoneFound, std::move(seen)});
    }

    Status fail(const Failure& failure) {
        mDispatcher.tell(Dispatcher::noteOf(failure));
        return failure.status;
    }

    const Options& mOptions;
    const Surroundings& mSurroundings;
    const Journal mJournal;
    Reporter mReporter;
    Dispatcher mDispatcher;
    std::map<std::string, int> mTally;  ///< of --each: devices by outcome
    std::string mLeft;                  ///< where a cancel left each of its devices, a blank before it
};

}  // namespace

std::optional<std::uint32_t> unitOf(std::string_view name) {
    if (!name.starts_with(kUnitPrefix)) return std::nullopt;
    std::uint32_t unit = 0;
    const char* const end = name.data() + name.size();
    const auto [rest, error] = std::from_chars(name.data() + kUnitPrefix.size(), end, unit);
    return error == std::errc() && rest == end && unit != 0 ? std::optional(unit) : std::nullopt;
}

void refuse(std::ostream& out, std::ostream& people, const std::string& version) {
    Reporter reporter(out, people, {.json = true, .terminal = false, .traceFolder = {}});
    reporter.tell(hello(version));
    reporter.tell(resultOf(Status::Usage));
}

Status run(const Options& options, const Surroundings& surroundings) {
    return Run(options, surroundings)();
}

}  // namespace twin
