#pragma once

#include "IOA/IOA_ProductData.hpp"
#include "IOA/IOA_Protocols.hpp"

#include <functional>
#include <map>
#include <string>

namespace ioa {

/// What is known of devices that don't tell their protocols, or not all of them: rows keyed by product id and by the
/// lowest software version that a row is good for. Immutable once built, so any thread may ask.
class Candidates_t {
  public:
    /// One row.
    struct Candidate_t {
        int productId = 0;       ///< as in ProductData_t
        int minimumVersion = 0;  ///< as the device reports it
        Protocols_t protocols;   ///< in the row's order, those common to all rows at the end
    };

    /// What came of a search.
    enum Result_t {
        gcFound = 0,
        gcUnknownProduct = 1,  ///< no row for the product
        gcVersionTooLow = 2,   ///< its rows are all for later versions
    };

    /// Reads the table from text. A row is the product id, the minimum version and any number of protocols ("A010"),
    /// with white space between them; a protocol that doesn't read ends its row. Of two rows for the same product and
    /// version the first wins.
    /// @param count   of rows
    /// @param rows    borrowed for the call
    /// @param common  protocols appended to every row, as text too
    Candidates_t(unsigned int count, const char* const* rows, const std::string& common);

    /// Finds the row with the largest minimum version that isn't above the given one.
    /// @param result  filled only when the row is found
    Result_t FindBest(int productId, int version, Candidate_t& result) const;

  private:
    using Versions_t = std::map<int, Candidate_t, std::greater<>>;  ///< largest version first

    void Add(Candidate_t candidate);

    std::map<int, Versions_t> mProducts;
};

/// Whole lists, for devices that send none. Built by the first caller; any thread.
const Candidates_t& NoPcpCandidates();

/// What devices of old leave out of the list that they send. Built by the first caller; any thread.
const Candidates_t& IncompletePcpCandidates();

/// Replaces the list of a device that sent none by what is known of it; without a row the list stays empty.
/// Any thread, with a list of its own.
void SynthesizeMissingPcp(const ProductData_t& productData, Protocols_t& protocols);

/// Appends what the device is known to leave out and, whatever the device, A001 where it is missing. Any thread, with a
/// list of its own.
void AppendMissingProtocols(const ProductData_t& productData, Protocols_t& protocols);

}  // namespace ioa
