#pragma once

#include "simulator/engine/Types.hpp"
#include "simulator/engine/Wire.hpp"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

/// One line of what the device saw and did.
struct RecordEntry {
    enum class Kind {
        Received,  ///< a whole packet from the host, up to the short or empty packet that ended it
        Sent,      ///< a whole packet handed to a pipe
        Refused,   ///< something the host did wrong; text says what
        Fault,     ///< a fault was committed; text is its name
        State,     ///< boot state, attach and detach; text says which
    };

    Kind kind = Kind::State;
    Time time{};
    Pipe pipe = Pipe::BulkOut;
    Bytes bytes;
    std::string text;
};

/// The entry as a sentence for a person who doesn't know the protocol; its subject is the device. Empty for packets
/// that only part or announce others.
std::string inWords(const RecordEntry& entry);

/// A state's name, or the text of an entry of that kind, for the same person.
std::string stateInWords(std::string_view state);

/// Everything that passed between host and device, in order, byte for byte. Keeps the newest entries when a host says
/// more than it has room for. One thread at a time.
class Record {
  public:
    void add(RecordEntry entry);
    void clear();

    const std::deque<RecordEntry>& entries() const { return mEntries; }
    std::size_t dropped() const { return mDropped; }  ///< entries that had to make room

    std::vector<Bytes> received() const;                        ///< the host's packets
    std::vector<UsbPacket> received(std::uint8_t layer) const;  ///< of them, the well-formed ones of one layer
    /// The host's mistakes, and the names of the faults committed.
    std::vector<std::string> refused() const { return texts(RecordEntry::Kind::Refused); }
    std::vector<std::string> faults() const { return texts(RecordEntry::Kind::Fault); }
    std::string text() const;  ///< the whole record for people, one line an entry

  private:
    std::vector<std::string> texts(RecordEntry::Kind kind) const;

    std::deque<RecordEntry> mEntries;
    std::size_t mBytes = 0;
    std::size_t mDropped = 0;
};

}  // namespace simulator
