// The scenarios, in the order in which the documentation lists them.
#include "cli/Scenario.hpp"
#include "simulator/engine/Wire.hpp"

#include <utility>

namespace twin {
namespace {

using simulator::BootState;
using simulator::BusOperation;
using simulator::Duration;
using simulator::Fault;
using simulator::FaultKind;
using simulator::Profile;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Arguments = std::vector<std::string>;

/// A device that leaves the bus for both of its starts.
Profile device(std::uint32_t unit = 3812345678, Duration rebootTime = seconds(1)) {
    Profile profile = Profile::handheld();
    profile.unitId = unit;
    profile.rebootTime = rebootTime;
    profile.bootTime = rebootTime;
    return profile;
}

std::vector<Scenario> makeTable() {
    const Arguments reset = {"reset", "--yes"};
    std::vector<Scenario> table;

    table.push_back({"reset", "One device, and nothing goes wrong.", reset, {{device()}}});
    return table;
}

}  // namespace

std::span<const Scenario> scenarios() {
    static const std::vector<Scenario> table = makeTable();
    return table;
}

}  // namespace twin
