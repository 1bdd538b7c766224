#include "IOA/IOA_Candidates.hpp"
#include "IOA/IOA_Exception.hpp"
#include "IOA/IOA_Protocols.hpp"
#include "IOA_Support.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>

namespace {

using P = ioa::Protocols_t;
using Bytes = std::vector<unsigned char>;
using Query = bool (P::*)() const;

TEST(Protocols, AnyPayloadIsAListAndATrailingFragmentIsIgnored) {
    P protocols = ProtocolsFrom("P000");
    protocols.AcceptFrame(iol::Frame_t(253, Bytes{'A', 0x0A, 0x00, 'D', 0xFA, 0x03, 'Z', 0xFF, 0xFF, 'L'}));
    EXPECT_EQ(TextOf(protocols), "P000 A010 D1018 Z65535");
    EXPECT_EQ(protocols.ProduceFrame().Bytes(), (Bytes{'P', 0, 0, 'A', 0x0A, 0x00, 'D', 0xFA, 0x03, 'Z', 0xFF, 0xFF}));
}

// clang-format off
/// For each query a list that just satisfies it.
const std::vector<std::pair<Query, std::string>> kSatisfied = {
    {&P::SupportsPCP, "A001"}, {&P::SupportsCommands, "A010"}, {&P::SupportsWaypointTransfer, "A100 D403"},
    {&P::SupportsProxWaypointTransfer, "A400 D155"}, {&P::SupportsRouteTransfer, "A200 D202 D100"},
    {&P::SupportsRouteTransfer, "A201 D200 D110 D210"}, {&P::SupportsTrackTransfer, "A300 D304"},
    {&P::SupportsTrackTransfer, "A301 D310 D300"}, {&P::SupportsTrackTransfer, "A302 D312 D303"},
    {&P::SupportsTimeTransfer, "A600"}, {&P::SupportsNaming, "A601"}, {&P::SupportsFlightTransfer, "A650 D650"},
    {&P::SupportsPVT, "A800"}, {&P::SupportsSV, "A801"}, {&P::SupportsBaseStationMode, "A1100"},
    {&P::SupportsMapInstallation, "A900"}, {&P::SupportsIDReporting, "A903"}, {&P::SupportsAutoRouting, "A904"},
    {&P::SupportsDEM, "A914"}, {&P::SupportsCompressedMaps, "A916"}, {&P::SupportsInitFix, "A921"},
    {&P::SupportsAVDInfo, "A901 D901"}, {&P::SupportsTawsInfo, "A901 D902"},
    {&P::SupportsImageTransfer, "A907 D910"}, {&P::SupportsRegionSizeQuery, "A908"},
    {&P::SupportsRegionChecksums, "A912 D912"}, {&P::SupportsCustomPoiTransfer, "A917 D917"},
    {&P::SupportsProductInventory, "A918 D918"}, {&P::SupportsSendingNmea, "A1010"},
    {&P::SupportsReceivingNmea, "A1011"}, {&P::SupportsDeviceDisconnectTimeout, "A1015"},
    {&P::SupportsSendActivityGoals, "A1014 D1017"}, {&P::SupportsCalorieBurnDataTransfer, "A1013 D1014"},
    {&P::SupportsWorkoutTransfer, "A1002 D1008 A1003 D1003 A1005 D1005"},
    {&P::SupportsWorkoutSend, "A1017 D1002 A1003 D1003 A1005 D1005"},
    {&P::SupportsUserProfileTransfer, "A1004 D1004"}, {&P::Supports305UserProfileTransfer, "A1004 D1004"},
    {&P::SupportsUserProfileSend, "A1016 D1016"}, {&P::Supports405UserProfileSend, "A1016 D1016"},
    {&P::SupportsFitnessCourseTransfer, "A1006 D1006 A1007 D1007 A302 D311 D304 A1008 D1012"},
    {&P::Supports305FitnessCourseTransfer, "A1006 D1006 A1007 D1007 A302 D311 D304 A1008 D1012"},
    {&P::SupportsFitnessCourseSend, "A1018 D1006 A1007 D1007 A302 D311 D1018 A1008 D1012"},
    {&P::Supports405FitnessCourseSend, "A1018 D1006 A1007 D1007 A302 D311 D1018 A1008 D1012"},
    {&P::SupportsFitnessHistoryTransfer, "A1000 D1009 A906 D1015 A302 D311 D1018"},
    {&P::Supports201FitnessHistoryTransfer, "A906 D906 A302 D311 D301"},
    {&P::Supports301FitnessHistoryTransfer, "A1000 D1010 A906 D1001 A302 D311 D303"},
    {&P::Supports305FitnessHistoryTransfer, "A1000 D1009 A906 D1011 A302 D311 D304"},
    {&P::Supports405FitnessHistoryTransfer, "A1000 D1009 A906 D1015 A302 D311 D1018"},
};
// clang-format on

/// "yes", "no", or "bad" for a malformed list.
std::string Ask(const P& protocols, Query query) {
    try {
        return (protocols.*query)() ? "yes" : "no";
    } catch (const ioa::Exception_t&) {
        return "bad";
    }
}

TEST(ProtocolQueries, EachAsksForExactlyItsEntries) {
    for (const auto& [query, list] : kSatisfied) {
        SCOPED_TRACE(list);
        const P whole = ProtocolsFrom("P000 L001 " + list);
        EXPECT_EQ(Ask(whole, query), "yes");
        for (std::size_t changed = 2; changed < whole.size(); ++changed) {
            P other;
            for (const auto& entry : whole)
                other.push_back(other.size() == changed ? ioa::Protocol_t{entry.tag, 9999} : entry);
            EXPECT_NE(Ask(other, query), "yes") << "9999 for " << whole[changed].Str();
        }
    }
}

// clang-format off
TEST(ProtocolQueries, AnswersOfListsAtTheEdge) {
    const std::vector<std::tuple<Query, std::string, std::string>> answers = {
        {&P::SupportsWaypointTransfer, "A100 D999", "no"}, {&P::SupportsWaypointTransfer, "A001 A100", "bad"},
        {&P::SupportsWaypointTransfer, "A100 A200 D200 D100", "bad"},
        {&P::SupportsWaypointTransfer, "A100 D999 A100 D108", "no"},  // only the first one counts
        {&P::SupportsWaypointTransfer, "D100 L100", "no"},
        {&P::SupportsRouteTransfer, "A200 D200 A201 D201 D100 D210", "bad"},
        {&P::SupportsRouteTransfer, "A200 D999 A201 D201 D100 D210", "yes"},
        {&P::SupportsTrackTransfer, "A300 D310 A301 D310 D310 A302 D311 D301", "yes"},
        {&P::SupportsWorkoutTransfer, "A1005 A1003 A1017 D1002", "no"},  // the others are not asked
        {&P::SupportsFitnessHistoryTransfer, "A906 D906 A302 D311 D301", "yes"},
        {&P::SupportsFitnessHistoryTransfer, "A1000 D1000 A906 D1001 A302 D311 D303", "yes"},
        {&P::SupportsFitnessHistoryTransfer, "A1000 D1009 A906 D1015 A302 D311 D304", "yes"}};
    for (const auto& [query, list, answer] : answers) EXPECT_EQ(Ask(ProtocolsFrom(list), query), answer) << list;
}

TEST(ProtocolQueries, TypeSetsHoldTheirMembersAndNoOthers) {
    const std::vector<std::tuple<Query, std::string, std::string, std::string>> cases = {
        {&P::SupportsWaypointTransfer, "A100", "",
         " 100 101 102 103 104 105 106 107 108 109 110 150 151 152 154 155 400 403"},
        {&P::SupportsRouteTransfer, "A200", " D100", " 200 201 202"},
        {&P::SupportsTrackTransfer, "A301", " D300", " 310 311 312"},
        {&P::SupportsTrackTransfer, "A302 D310", "", " 300 301 302 303 304"},
        {&P::SupportsImageTransfer, "A907", "", " 907 908 909 910"},
        {&P::SupportsAVDInfo, "A901", "", " 901 902"},
        {&P::SupportsWorkoutTransfer, "A1003 D1003 A1005 D1005 A1002", "", " 1002 1008"},
        {&P::Supports301FitnessHistoryTransfer, "A906 D1001 A302 D311 D303 A1000", "", " 1000 1010"},
        {&P::Supports405FitnessHistoryTransfer, "A1000 D1009 A302 D311 D1018 A906", "", " 1011 1015"}};
    for (const auto& [query, before, after, members] : cases) {
        std::string found;
        for (int number = 0; number < 1100; ++number) {
            const std::string text = std::to_string(number);
            if (Ask(ProtocolsFrom(before + " D" + text + after), query) == "yes") found += " " + text;
        }
        EXPECT_EQ(found, members);
    }
}
// clang-format on

TEST(Candidates, RowIsTheOneWithTheLargestVersionAtOrBelowAndIsReadLeniently) {
    const char* const rows[] = {"  5   10   A1\t\n L002  D1018", "5 10 A999", "5 20 A7 Dx A8", "6 -5", "7 0 A70000 A1"};
    const ioa::Candidates_t table(5, rows, "P0 Q");
    const std::tuple<int, int, int, std::string> lookups[] = {
        {5, 19, 0, "A001 L002 D1018 P000"},  // the first of two equal rows
        {5, 20, 0, "A007 P000"},             // up to the token that doesn't read
        {5, 32767, 0, "A007 P000"},
        {6, -5, 0, "P000"},
        {6, -6, 2, ""},
        {7, 0, 0, "P000"},  // more than 16 bits is no number
        {8, 100, 1, ""},
    };
    for (const auto& [product, version, result, protocols] : lookups) {
        SCOPED_TRACE(std::to_string(product) + " at " + std::to_string(version));
        ioa::Candidates_t::Candidate_t best;
        EXPECT_EQ(table.FindBest(product, version, best), result);
        EXPECT_EQ(TextOf(best.protocols), protocols);
    }
}

/// Every row that a table answers with, as an order-sensitive sum of its text. The expected figures come from the
/// makers' tables by way of another program.
std::uint32_t TotalOf(const ioa::Candidates_t& table) {
    std::uint32_t sum = 0;
    ioa::Candidates_t::Candidate_t row;
    for (int product = 0; product <= 65535; ++product) {
        for (int version = 500; table.FindBest(product, version, row) == 0; version = row.minimumVersion - 1) {
            std::ostringstream text;
            text << product << " " << row.minimumVersion << " " << TextOf(row.protocols) << "\n";
            for (const char letter : text.str()) sum = sum * 31 + static_cast<unsigned char>(letter);
        }
    }
    return sum;
}

TEST(Candidates, TablesAddUpToTheMakersTotal) {
    EXPECT_EQ(TotalOf(ioa::NoPcpCandidates()), 0xC3499797U);
    EXPECT_EQ(TotalOf(ioa::IncompletePcpCandidates()), 0x04A40A50U);
}

}  // namespace
