#include "IOA/IOA_Protocols.hpp"

#include <algorithm>
#include <utility>

// What a device can do, by what it says it speaks, where data types matter. Each list of data-type sets is built at the
// first question. Sending and receiving the same kind of record may ask for different protocols; that is how the
// devices are.

namespace ioa {
namespace {

using Types_t = std::set<unsigned short>;

/// Application protocols, and the data types that each has to use.
using Needs_t = std::vector<std::pair<unsigned short, Protocols_t::TypeSets_t>>;

/// Asks for each in turn, up to the first that is missing.
bool ContainsAll(const Protocols_t& protocols, const Needs_t& needs) {
    return std::ranges::all_of(needs, [&](const auto& need) {
        return protocols.Contains({'A', need.first}, need.second);
    });
}

const Types_t& WaypointTypes() {
    static const Types_t types{100, 101, 102, 103, 104, 105, 106, 107, 108,
                               109, 110, 150, 151, 152, 154, 155, 400, 403};
    return types;
}

const Types_t& RouteHeaderTypes() {
    static const Types_t types{200, 201, 202};
    return types;
}

const Types_t& TrackHeaderTypes() {
    static const Types_t types{310, 311, 312};
    return types;
}

const Types_t& TrackPointTypes() {
    static const Types_t types{300, 301, 302, 303, 304};
    return types;
}

}  // namespace

bool Protocols_t::SupportsWaypointTransfer() const {
    static const TypeSets_t types100{WaypointTypes()};
    return Contains({'A', 100}, types100);
}

bool Protocols_t::SupportsProxWaypointTransfer() const {
    static const TypeSets_t types400{WaypointTypes()};
    return Contains({'A', 400}, types400);
}

bool Protocols_t::SupportsRouteTransfer() const {
    static const TypeSets_t types200{RouteHeaderTypes(), WaypointTypes()};
    static const TypeSets_t types201{RouteHeaderTypes(), WaypointTypes(), {210}};
    return Contains({'A', 200}, types200) || Contains({'A', 201}, types201);
}

bool Protocols_t::SupportsTrackTransfer() const {
    static const TypeSets_t types300{TrackPointTypes()};
    static const TypeSets_t types301{TrackHeaderTypes(), TrackPointTypes()};
    static const TypeSets_t types302{TrackHeaderTypes(), TrackPointTypes()};
    return Contains({'A', 300}, types300) || Contains({'A', 301}, types301) || Contains({'A', 302}, types302);
}

bool Protocols_t::SupportsAVDInfo() const {
    static const TypeSets_t types901{{901, 902}};
    return Contains({'A', 901}, types901);
}

bool Protocols_t::SupportsTawsInfo() const {
    static const TypeSets_t types901{{902}};
    return Contains({'A', 901}, types901);
}

bool Protocols_t::SupportsImageTransfer() const {
    static const TypeSets_t types907{{907, 908, 909, 910}};
    return Contains({'A', 907}, types907);
}

bool Protocols_t::SupportsRegionChecksums() const {
    static const TypeSets_t types912{{912}};
    return Contains({'A', 912}, types912);
}

bool Protocols_t::SupportsCustomPoiTransfer() const {
    static const TypeSets_t types917{{917}};
    return Contains({'A', 917}, types917);
}

bool Protocols_t::SupportsCalorieBurnDataTransfer() const {
    static const TypeSets_t types1013{{1014}};
    return Contains({'A', 1013}, types1013);
}

bool Protocols_t::SupportsWorkoutTransfer() const {
    static const Needs_t needs{{1002, {{1002, 1008}}}, {1003, {{1003}}}, {1005, {{1005}}}};
    return ContainsAll(*this, needs);
}

bool Protocols_t::SupportsWorkoutSend() const {
    static const Needs_t needs{{1017, {{1002, 1008}}}, {1003, {{1003}}}, {1005, {{1005}}}};
    return ContainsAll(*this, needs);
}

bool Protocols_t::Supports305UserProfileTransfer() const {
    static const TypeSets_t types1004{{1004}};
    return Contains({'A', 1004}, types1004);
}

bool Protocols_t::Supports405UserProfileSend() const {
    static const TypeSets_t types1016{{1016}};
    return Contains({'A', 1016}, types1016);
}

bool Protocols_t::Supports305FitnessCourseTransfer() const {
    static const Needs_t needs{{1006, {{1006}}}, {1007, {{1007}}}, {302, {{311}, {304}}}, {1008, {{1012}}}};
    return ContainsAll(*this, needs);
}

bool Protocols_t::Supports405FitnessCourseSend() const {
    static const Needs_t needs{{1018, {{1006}}}, {1007, {{1007}}}, {302, {{311}, {1018}}}, {1008, {{1012}}}};
    return ContainsAll(*this, needs);
}

bool Protocols_t::SupportsFitnessHistoryTransfer() const {
    return Supports201FitnessHistoryTransfer() || Supports301FitnessHistoryTransfer() ||
           Supports305FitnessHistoryTransfer() || Supports405FitnessHistoryTransfer();
}

bool Protocols_t::Supports201FitnessHistoryTransfer() const {
    static const Needs_t needs{{906, {{906}}}, {302, {{311}, {301}}}};
    return ContainsAll(*this, needs);
}

bool Protocols_t::Supports301FitnessHistoryTransfer() const {
    static const Needs_t needs{{1000, {{1000, 1010}}}, {906, {{1001}}}, {302, {{311}, {303}}}};
    return ContainsAll(*this, needs);
}

bool Protocols_t::Supports305FitnessHistoryTransfer() const {
    static const Needs_t needs{{1000, {{1009}}}, {906, {{1011, 1015}}}, {302, {{311}, {304}}}};
    return ContainsAll(*this, needs);
}

bool Protocols_t::Supports405FitnessHistoryTransfer() const {
    static const Needs_t needs{{1000, {{1009}}}, {906, {{1011, 1015}}}, {302, {{311}, {1018}}}};
    return ContainsAll(*this, needs);
}

}  // namespace ioa
