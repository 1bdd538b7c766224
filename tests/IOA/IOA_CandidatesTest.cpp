#include "IOA/IOA_Candidates.hpp"
#include "IOA_Support.hpp"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

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

/// Everything that a table answers, as an order-sensitive sum. The expected figures come from the makers' tables by way
/// of another program.
std::uint32_t TotalOf(const ioa::Candidates_t& table) {
    std::uint32_t sum = 0;
    const auto add = [&sum](int value) { sum = sum * 31 + static_cast<std::uint32_t>(value); };
    for (int product = 0; product <= 65535; ++product) {
        ioa::Candidates_t::Candidate_t best;
        for (int version = 0, last = -1; version <= 500; ++version) {
            const int result = table.FindBest(product, version, best);
            if (result == ioa::Candidates_t::gcUnknownProduct) break;
            if (result != ioa::Candidates_t::gcFound || best.minimumVersion == last) continue;
            add(product);
            add(last = best.minimumVersion);
            for (const ioa::Protocol_t& protocol : best.protocols) {
                add(protocol.tag);
                add(protocol.number);
            }
        }
    }
    return sum;
}

TEST(Candidates, TablesAddUpToTheMakersTotal) {
    EXPECT_EQ(TotalOf(ioa::NoPcpCandidates()), 0x04AB2C42U);
    EXPECT_EQ(TotalOf(ioa::IncompletePcpCandidates()), 0xA71A6985U);
}

}  // namespace
