#pragma once

#include "simulator/capture/UsbCapture.hpp"
#include "simulator/engine/BusDevice.hpp"
#include "simulator/engine/Profile.hpp"
#include "simulator/engine/Types.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace simulator {

/// Puts the transfers of one pipe and direction together into the packets that they carry. A packet ends with a short
/// transfer, or where its header says; an empty transfer alone is none.
class PacketGatherer {
  public:
    /// @param maxPacketSize  the endpoint's
    explicit PacketGatherer(std::size_t maxPacketSize) : mMaxPacketSize(maxPacketSize) {}

    /// @param asked  how much the host would have taken; of its own transfers their size
    /// @return the packet, when this ends it
    std::optional<Bytes> add(std::span<const unsigned char> transfer, std::size_t asked);

    void clear() { mBytes.clear(); }

  private:
    std::size_t mMaxPacketSize;
    Bytes mBytes;
};

/// One thing that happened between host and device.
struct CapturedStep {
    enum class Kind {
        FromHost,  ///< a whole packet of the host
        ToHost,    ///< one transfer
        Halt,      ///< an in pipe has stalled
    };
    enum class Fate { Taken, Stalled, NotTaken };  ///< of a packet of the host

    Kind kind = Kind::FromHost;
    std::size_t packet = 0;  ///< of the capture, in which its bytes stand
    Pipe pipe = Pipe::BulkOut;
    Bytes bytes;
    std::size_t asked = 0;  ///< of a transfer to the host: what would have gone into it
    Fate fate = Fate::Taken;
};

/// One attach of a device: an address on a bus, from the first packet to the last.
struct CapturedAttach {
    std::uint16_t bus = 0;
    std::uint8_t address = 0;
    std::size_t firstPacket = 0, lastPacket = 0;
    Time began{}, ended{};
    std::optional<Time> left;         ///< when a transfer ended since the device was no longer there
    Time lastStep{};                  ///< when the last step ended; began where there are none
    std::vector<std::size_t> events;  ///< indices into the capture's
    std::map<std::array<unsigned char, 6>, Bytes> answers;  ///< to control requests that read, by how these begin
    std::map<Pipe, std::uint8_t> endpoints;                 // the first of each kind that was used
    std::vector<CapturedStep> steps;
    std::string damage;           ///< which of its packets are missing; empty for none
    bool speaksProtocol = false;  ///< the host's first packet is one of this protocol

    Bytes descriptor(unsigned char kind, unsigned char index = 0) const;  ///< empty when the capture has none
    std::optional<std::uint16_t> vendor() const;                          ///< by its descriptor

    /// By the vendor; of a device whose descriptor was not captured by what it says.
    bool isOurs() const;
};

/// All attaches in a capture, in their order. An address belongs to one device from its setting to the next, or until
/// it tells of another product.
std::vector<CapturedAttach> attachesIn(const UsbCapture& capture);

/// What there is to be played: the attaches of our device.
/// @throws CaptureError  there is none, there are several at a time, or packets are missing
std::vector<CapturedAttach> storyOf(const UsbCapture& capture);

/// What the device was, as far as the capture tells.
Profile profileOf(const CapturedAttach& attach);

/// The text of a string descriptor, where one was captured.
std::string stringOf(const CapturedAttach& attach, unsigned char index);

}  // namespace simulator
