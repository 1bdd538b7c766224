#include "IOA/IOA_Protocols.hpp"

// What a device can do, by what it says it speaks. Each list of data-type sets is built at the first question.
// Sending and receiving the same kind of record may ask for different protocols; that is how the devices are.

namespace ioa {
namespace {

using Types_t = std::set<unsigned short>;

constexpr Protocols_t::TypeSets_t gcNoTypes;

constexpr Protocol_t Application(unsigned short number) {
    return {'A', number};
}
constexpr Protocol_t DataType(unsigned short number) {
    return {'D', number};
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

const Types_t& RouteLinkTypes() {
    static const Types_t types{210};
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

bool Protocols_t::SupportsPCP() const {
    return Contains(Application(1), gcNoTypes);
}

bool Protocols_t::SupportsCommands() const {
    return Contains(Application(10), gcNoTypes);
}

bool Protocols_t::SupportsWaypointTransfer() const {
    static const TypeSets_t types100{WaypointTypes()};
    return Contains(Application(100), types100);
}

bool Protocols_t::SupportsProxWaypointTransfer() const {
    static const TypeSets_t types400{WaypointTypes()};
    return Contains(Application(400), types400);
}

bool Protocols_t::SupportsRouteTransfer() const {
    static const TypeSets_t types200{RouteHeaderTypes(), WaypointTypes()};
    static const TypeSets_t types201{RouteHeaderTypes(), WaypointTypes(), RouteLinkTypes()};
    return Contains(Application(200), types200) || Contains(Application(201), types201);
}

bool Protocols_t::SupportsTrackTransfer() const {
    static const TypeSets_t types300{TrackPointTypes()};
    static const TypeSets_t types301{TrackHeaderTypes(), TrackPointTypes()};
    static const TypeSets_t types302{TrackHeaderTypes(), TrackPointTypes()};
    return Contains(Application(300), types300) || Contains(Application(301), types301) ||
           Contains(Application(302), types302);
}

bool Protocols_t::SupportsTimeTransfer() const {
    return Contains(Application(600), gcNoTypes);
}

bool Protocols_t::SupportsNaming() const {
    return Contains(Application(601), gcNoTypes);
}

bool Protocols_t::SupportsFlightTransfer() const {
    return Contains(Application(650), gcNoTypes) && Contains(DataType(650), gcNoTypes);
}

bool Protocols_t::SupportsPVT() const {
    return Contains(Application(800), gcNoTypes);
}

bool Protocols_t::SupportsSV() const {
    return Contains(Application(801), gcNoTypes);
}

bool Protocols_t::SupportsBaseStationMode() const {
    return Contains(Application(1100), gcNoTypes);
}

bool Protocols_t::SupportsMapInstallation() const {
    return Contains(Application(900), gcNoTypes);
}

bool Protocols_t::SupportsIDReporting() const {
    return Contains(Application(903), gcNoTypes);
}

bool Protocols_t::SupportsAutoRouting() const {
    return Contains(Application(904), gcNoTypes);
}

bool Protocols_t::SupportsDEM() const {
    return Contains(Application(914), gcNoTypes);
}

bool Protocols_t::SupportsCompressedMaps() const {
    return Contains(Application(916), gcNoTypes);
}

bool Protocols_t::SupportsInitFix() const {
    return Contains(Application(921), gcNoTypes);
}

bool Protocols_t::SupportsAVDInfo() const {
    static const TypeSets_t types901{{901, 902}};
    return Contains(Application(901), types901);
}

bool Protocols_t::SupportsTawsInfo() const {
    static const TypeSets_t types901{{902}};
    return Contains(Application(901), types901);
}

bool Protocols_t::SupportsImageTransfer() const {
    static const TypeSets_t types907{{907, 908, 909, 910}};
    return Contains(Application(907), types907);
}

bool Protocols_t::SupportsRegionSizeQuery() const {
    return Contains(Application(908), gcNoTypes);
}

bool Protocols_t::SupportsRegionChecksums() const {
    static const TypeSets_t types912{{912}};
    return Contains(Application(912), types912);
}

bool Protocols_t::SupportsCustomPoiTransfer() const {
    static const TypeSets_t types917{{917}};
    return Contains(Application(917), types917);
}

bool Protocols_t::SupportsProductInventory() const {
    return Contains(Application(918), gcNoTypes) && Contains(DataType(918), gcNoTypes);
}

bool Protocols_t::SupportsSendingNmea() const {
    return Contains(Application(1010), gcNoTypes);
}

bool Protocols_t::SupportsReceivingNmea() const {
    return Contains(Application(1011), gcNoTypes);
}

bool Protocols_t::SupportsDeviceDisconnectTimeout() const {
    return Contains(Application(1015), gcNoTypes);
}

bool Protocols_t::SupportsSendActivityGoals() const {
    return Contains(Application(1014), gcNoTypes) && Contains(DataType(1017), gcNoTypes);
}

bool Protocols_t::SupportsCalorieBurnDataTransfer() const {
    static const TypeSets_t types1013{{1014}};
    return Contains(Application(1013), types1013);
}

bool Protocols_t::SupportsWorkoutTransfer() const {
    static const TypeSets_t types1002{{1002, 1008}};
    static const TypeSets_t types1003{{1003}};
    static const TypeSets_t types1005{{1005}};
    return Contains(Application(1002), types1002) && Contains(Application(1003), types1003) &&
           Contains(Application(1005), types1005);
}

bool Protocols_t::SupportsWorkoutSend() const {
    static const TypeSets_t types1017{{1002, 1008}};
    static const TypeSets_t types1003{{1003}};
    static const TypeSets_t types1005{{1005}};
    return Contains(Application(1017), types1017) && Contains(Application(1003), types1003) &&
           Contains(Application(1005), types1005);
}

bool Protocols_t::SupportsUserProfileTransfer() const {
    return Supports305UserProfileTransfer();
}

bool Protocols_t::Supports305UserProfileTransfer() const {
    static const TypeSets_t types1004{{1004}};
    return Contains(Application(1004), types1004);
}

bool Protocols_t::SupportsUserProfileSend() const {
    return Supports405UserProfileSend();
}

bool Protocols_t::Supports405UserProfileSend() const {
    static const TypeSets_t types1016{{1016}};
    return Contains(Application(1016), types1016);
}

bool Protocols_t::SupportsFitnessCourseTransfer() const {
    return Supports305FitnessCourseTransfer();
}

bool Protocols_t::Supports305FitnessCourseTransfer() const {
    static const TypeSets_t types1006{{1006}};
    static const TypeSets_t types1007{{1007}};
    static const TypeSets_t types302{{311}, {304}};
    static const TypeSets_t types1008{{1012}};
    return Contains(Application(1006), types1006) && Contains(Application(1007), types1007) &&
           Contains(Application(302), types302) && Contains(Application(1008), types1008);
}

bool Protocols_t::SupportsFitnessCourseSend() const {
    return Supports405FitnessCourseSend();
}

bool Protocols_t::Supports405FitnessCourseSend() const {
    static const TypeSets_t types1018{{1006}};
    static const TypeSets_t types1007{{1007}};
    static const TypeSets_t types302{{311}, {1018}};
    static const TypeSets_t types1008{{1012}};
    return Contains(Application(1018), types1018) && Contains(Application(1007), types1007) &&
           Contains(Application(302), types302) && Contains(Application(1008), types1008);
}

bool Protocols_t::SupportsFitnessHistoryTransfer() const {
    return Supports201FitnessHistoryTransfer() || Supports301FitnessHistoryTransfer() ||
           Supports305FitnessHistoryTransfer() || Supports405FitnessHistoryTransfer();
}

bool Protocols_t::Supports201FitnessHistoryTransfer() const {
    static const TypeSets_t types906{{906}};
    static const TypeSets_t types302{{311}, {301}};
    return Contains(Application(906), types906) && Contains(Application(302), types302);
}

bool Protocols_t::Supports301FitnessHistoryTransfer() const {
    static const TypeSets_t types1000{{1000, 1010}};
    static const TypeSets_t types906{{1001}};
    static const TypeSets_t types302{{311}, {303}};
    return Contains(Application(1000), types1000) && Contains(Application(906), types906) &&
           Contains(Application(302), types302);
}

bool Protocols_t::Supports305FitnessHistoryTransfer() const {
    static const TypeSets_t types1000{{1009}};
    static const TypeSets_t types906{{1011, 1015}};
    static const TypeSets_t types302{{311}, {304}};
    return Contains(Application(1000), types1000) && Contains(Application(906), types906) &&
           Contains(Application(302), types302);
}

bool Protocols_t::Supports405FitnessHistoryTransfer() const {
    static const TypeSets_t types1000{{1009}};
    static const TypeSets_t types906{{1011, 1015}};
    static const TypeSets_t types302{{311}, {1018}};
    return Contains(Application(1000), types1000) && Contains(Application(906), types906) &&
           Contains(Application(302), types302);
}

}  // namespace ioa
