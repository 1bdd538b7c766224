#include "IOA/IOA_Candidates.hpp"

#include <gtest/gtest.h>

#include <cstdint>

#include "IOA_Support.hpp"

namespace {

struct Lookup {
    int product;
    int version;
    int result;
    std::string protocols;
};

void ExpectLookups(ioa::Candidates_t const& table, std::string const& common, std::vector<Lookup> const& lookups) {
    for (Lookup const& lookup : lookups) {
        SCOPED_TRACE(std::to_string(lookup.product) + " at " + std::to_string(lookup.version));
        ioa::Candidates_t::Candidate_t best;
        EXPECT_EQ(table.FindBest(lookup.product, lookup.version, best), lookup.result);
        EXPECT_EQ(TextOf(best.protocols), lookup.result == 0 ? lookup.protocols + common : "");
    }
}

// clang-format off
TEST(Candidates, RowIsTheOneWithTheLargestVersionAtOrBelow) {
    ExpectLookups(ioa::NoPcpCandidates(), " P000 A000 A600 D600 A700 D700", {
        {7, -1, 2, ""}, {7, 0, 0, "L001 A010 A100 D100 A200 D200 D100 A500 D500"}, {8, 100, 1, ""},
        {20, 32767, 0, "L002 A011 A100 D150 A200 D201 D150 A400 D450 A500 D550"},
        {29, 399, 0, "L001 A010 A100 D101 A200 D201 D101 A300 D300 A400 D101 A500 D500"},
        {29, 400, 0, "L001 A010 A100 D102 A200 D201 D102 A300 D300 A400 D102 A500 D500"},
        {77, 355, 0, "L001 A010 A100 D103 A200 D201 D103 A300 D300 A500 D501"}, {1201, -1, 2, ""}});
    ExpectLookups(ioa::IncompletePcpCandidates(), "", {
        {67, 201, 2, ""}, {67, 202, 0, "A900"}, {67, 204, 0, "A900"}, {67, 205, 0, ""}, {130, 500, 1, ""}});
}

TEST(Candidates, TextIsReadLeniently) {
    char const* const rows[] = {"  5   10   A1\t\n L002  D1018", "5 10 A999", "5 20 A7 Dx A8", "6 -5", "7 0 A70000 A1"};
    ExpectLookups(ioa::Candidates_t(5, rows, "P0 Q"), "", {
        {5, 19, 0, "A001 L002 D1018 P000"},  // the first of two equal rows
        {5, 20, 0, "A007 P000"},             // up to the token that doesn't read
        {6, -5, 0, "P000"}, {6, -6, 2, ""},
        {7, 0, 0, "P000"}});                 // more than 16 bits is no number
}
// clang-format on

/// Everything that a table answers, as an order-sensitive sum, and its number of rows. The expected figures come from
/// the makers' tables by way of another program.
std::pair<int, std::uint32_t> TotalsOf(ioa::Candidates_t const& table) {
    int rows = 0;
    std::uint32_t sum = 0;
    auto const add = [&sum](int value) { sum = sum * 31 + static_cast<std::uint32_t>(value); };
    for (int product = 0; product <= 65535; ++product) {
        ioa::Candidates_t::Candidate_t best;
        for (int version = 0, last = -1; version <= 500; ++version) {
            int const result = table.FindBest(product, version, best);
            if (result == ioa::Candidates_t::gcUnknownProduct) break;
            if (result != ioa::Candidates_t::gcFound || best.minimumVersion == last) continue;
            ++rows;
            add(product);
            add(last = best.minimumVersion);
            for (ioa::Protocol_t const& protocol : best.protocols) {
                add(protocol.tag);
                add(protocol.number);
            }
        }
    }
    return {rows, sum};
}

TEST(Candidates, TablesAddUpToTheMakersTotals) {
    EXPECT_EQ(TotalsOf(ioa::NoPcpCandidates()), std::pair(58, 0x04AB2C42U));
    EXPECT_EQ(TotalsOf(ioa::IncompletePcpCandidates()), std::pair(19, 0xA71A6985U));
}

}  // namespace
