#pragma once

#include "IOA/IOA_Exception.hpp"
#include "IOL/IOL_Packet.hpp"

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace ioa {

/// One capability of a device: a protocol or a data type.
struct Protocol_t {
    char tag = 0;  ///< 'P' physical, 'L' link, 'A' application protocol, 'D' data type; others are kept, never matched
    unsigned short number = 0;  ///< 10 in A010

    /// The tag and the number in at least three digits, as in A010.
    std::string Str() const;

    bool operator==(const Protocol_t&) const = default;  ///< @plain
};

/// What a device speaks, in its own order: each 'A' entry is followed by the 'D' entries of the data types that the
/// protocol uses, in the protocol's order.
///
/// Frame 253, device to host; records until fewer than 3 bytes remain, no count, no padding:
///
/// | Offset | Width | Field |
/// |---|---|---|
/// | 0 | 1 | tag |
/// | 1 | 2 | number, little-endian |
class Protocols_t : public iol::Packet_t {
  public:
    static constexpr unsigned short gcId = 253;  ///< @plain

    using const_iterator = std::vector<Protocol_t>::const_iterator;  ///< good until the list changes

    /// A list of data-type sets, one for each data type that a protocol uses.
    using TypeSets_t = std::vector<std::set<unsigned short>>;

    Protocols_t() : iol::Packet_t(gcId) {}

    /// Appends the frame's records to the list; a trailing fragment of a record is ignored. Never throws for bad data.
    void AcceptFrame(const iol::Frame_t& frame) override;
    iol::Frame_t ProduceFrame() const override;

    /// The list, as a standard container.
    /// @{
    void push_back(const Protocol_t& protocol) { mProtocols.push_back(protocol); }
    void clear() { mProtocols.clear(); }
    bool empty() const { return mProtocols.empty(); }
    std::size_t size() const { return mProtocols.size(); }
    const Protocol_t& operator[](std::size_t index) const { return mProtocols[index]; }
    const_iterator begin() const { return mProtocols.begin(); }
    const_iterator end() const { return mProtocols.end(); }
    /// @}

    /// The first equal entry, or end().
    const_iterator find(const Protocol_t& protocol) const;

    /// Tells whether the device has the protocol and uses it with data types of the given sets: the entries that follow
    /// its first occurrence must be 'D' entries, each in its set.
    /// @throws ioa::Exception_t  the list ends, or breaks off with another entry, before every set has had its turn: a
    ///                           malformed list is an error, not a "no"
    bool Contains(const Protocol_t& protocol, const TypeSets_t& dataTypes) const;

    /// Whether the device can do this: asks Contains() for the protocols that it takes, with the data types that this
    /// library knows of, and throws what that throws.
    /// @{
    bool SupportsPCP() const { return Contains({'A', 1}, {}); }
    bool SupportsCommands() const { return Contains({'A', 10}, {}); }
    bool SupportsWaypointTransfer() const;
    bool SupportsProxWaypointTransfer() const;
    bool SupportsRouteTransfer() const;
    bool SupportsTrackTransfer() const;
    bool SupportsTimeTransfer() const { return Contains({'A', 600}, {}); }
    bool SupportsNaming() const { return Contains({'A', 601}, {}); }
    bool SupportsFlightTransfer() const { return Contains({'A', 650}, {}) && Contains({'D', 650}, {}); }
    bool SupportsPVT() const { return Contains({'A', 800}, {}); }
    bool SupportsSV() const { return Contains({'A', 801}, {}); }
    bool SupportsBaseStationMode() const { return Contains({'A', 1100}, {}); }
    bool SupportsMapInstallation() const { return Contains({'A', 900}, {}); }
    bool SupportsIDReporting() const { return Contains({'A', 903}, {}); }
    bool SupportsAutoRouting() const { return Contains({'A', 904}, {}); }
    bool SupportsDEM() const { return Contains({'A', 914}, {}); }
    bool SupportsCompressedMaps() const { return Contains({'A', 916}, {}); }
    bool SupportsInitFix() const { return Contains({'A', 921}, {}); }
    bool SupportsAVDInfo() const;
    bool SupportsTawsInfo() const;
    bool SupportsImageTransfer() const;
    bool SupportsRegionSizeQuery() const { return Contains({'A', 908}, {}); }
    bool SupportsRegionChecksums() const;
    bool SupportsCustomPoiTransfer() const;
    bool SupportsProductInventory() const { return Contains({'A', 918}, {}) && Contains({'D', 918}, {}); }
    bool SupportsSendingNmea() const { return Contains({'A', 1010}, {}); }
    bool SupportsReceivingNmea() const { return Contains({'A', 1011}, {}); }
    bool SupportsDeviceDisconnectTimeout() const { return Contains({'A', 1015}, {}); }
    /// @}

    /// The same for fitness devices. The numbers in the names are generations of devices, told apart by their data
    /// types only.
    /// @{
    bool SupportsSendActivityGoals() const { return Contains({'A', 1014}, {}) && Contains({'D', 1017}, {}); }
    bool SupportsCalorieBurnDataTransfer() const;
    bool SupportsWorkoutTransfer() const;
    bool SupportsWorkoutSend() const;
    bool SupportsUserProfileTransfer() const { return Supports305UserProfileTransfer(); }
    bool Supports305UserProfileTransfer() const;
    bool SupportsUserProfileSend() const { return Supports405UserProfileSend(); }
    bool Supports405UserProfileSend() const;
    bool SupportsFitnessCourseTransfer() const { return Supports305FitnessCourseTransfer(); }
    bool Supports305FitnessCourseTransfer() const;
    bool SupportsFitnessCourseSend() const { return Supports405FitnessCourseSend(); }
    bool Supports405FitnessCourseSend() const;
    bool SupportsFitnessHistoryTransfer() const;
    bool Supports201FitnessHistoryTransfer() const;
    bool Supports301FitnessHistoryTransfer() const;
    bool Supports305FitnessHistoryTransfer() const;
    bool Supports405FitnessHistoryTransfer() const;
    /// @}

  private:
    std::vector<Protocol_t> mProtocols;
};

}  // namespace ioa
