#include "IOA/IOA_Candidates.hpp"

#include <sstream>
#include <utility>

namespace ioa {
namespace {

/// Appends the protocols that the text still holds, up to the first that doesn't read.
void ReadProtocols(std::istream& text, Protocols_t& protocols) {
    Protocol_t protocol;
    while (text >> protocol.tag >> protocol.number) protocols.push_back(protocol);
}

}  // namespace

Candidates_t::Candidates_t(unsigned int count, const char* const* rows, const std::string& common) {
    for (unsigned int i = 0; i < count; ++i) {
        Candidate_t candidate;
        std::istringstream row(rows[i]);
        row >> candidate.productId >> candidate.minimumVersion;
        ReadProtocols(row, candidate.protocols);
        std::istringstream commonText(common);
        ReadProtocols(commonText, candidate.protocols);
        Add(std::move(candidate));
    }
}

void Candidates_t::Add(Candidate_t candidate) {
    Versions_t& versions = mProducts[candidate.productId];
    versions.try_emplace(candidate.minimumVersion, std::move(candidate));
}

Candidates_t::Result_t Candidates_t::FindBest(int productId, int version, Candidate_t& result) const {
    const auto product = mProducts.find(productId);
    if (product == mProducts.end()) return gcUnknownProduct;
    // The map runs from the largest version down, so this is the first row at or below the version.
    const auto row = product->second.lower_bound(version);
    if (row == product->second.end()) return gcVersionTooLow;
    result = row->second;
    return gcFound;
}

void SynthesizeMissingPcp(const ProductData_t& productData, Protocols_t& protocols) {
    Candidates_t::Candidate_t best;
    if (NoPcpCandidates().FindBest(productData.productId, productData.softwareVersion, best) != Candidates_t::gcFound) {
        return;
    }
    protocols = std::move(best.protocols);
}

void AppendMissingProtocols(const ProductData_t& productData, Protocols_t& protocols) {
    const auto appendIfMissing = [&protocols](const Protocol_t& protocol) {
        if (protocols.find(protocol) == protocols.end()) protocols.push_back(protocol);
    };
    Candidates_t::Candidate_t best;
    IncompletePcpCandidates().FindBest(productData.productId, productData.softwareVersion, best);
    for (const Protocol_t& protocol : best.protocols) appendIfMissing(protocol);
    appendIfMissing({'A', 1});
}

}  // namespace ioa
