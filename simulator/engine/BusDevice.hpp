#pragma once

#include "simulator/engine/Profile.hpp"
#include "simulator/engine/Types.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace simulator {

/// The numbers by which a host asks for descriptors and tells them apart.
inline constexpr unsigned char kDeviceDescriptor = 1, kConfigurationDescriptor = 2, kStringDescriptor = 3;
inline constexpr unsigned char kInterfaceDescriptor = 4, kEndpointDescriptor = 5, kBosDescriptor = 15;
inline constexpr std::size_t kDeviceDescriptorSize = 18;
inline constexpr unsigned char kFromDevice = 0x80;  ///< begins a standard request that reads from the device
inline constexpr unsigned char kSetAddress = 5, kGetDescriptor = 6;  ///< standard requests

/// What a plug-in asks of a device: one that is simulated, or one that is played back from a capture. The device has no
/// thread and no clock; whoever plugs it in serialises the calls, hands it the time (never backwards) and, after every
/// call, looks at wantsBus(), the in pipes and nextDue():
///
///  - host packets go in one by one through writePacket(), empty packets included;
///  - packets for the host wait in hasPacket()/takePacket(), cut to the endpoint's size, each transfer ended by a short
///    or an empty packet;
///  - wantsBus() says whether the device would be on the bus now. The plug-in follows it and confirms with attached()
///    and detached();
///  - at nextDue() it wants advance().
class BusDevice {
  public:
    enum class WriteResult {
        Taken,
        Busy,  ///< not now (the bus says NAK): offer the same packet again after the next due moment or call
        Stalled,
    };

    /// The eight bytes that begin a control transfer.
    using Setup = std::array<unsigned char, 8>;

    virtual ~BusDevice() = default;

    virtual void attached(Time now) = 0;
    virtual void detached(Time now) = 0;  ///< everything on its way is lost

    /// The host has chosen the configuration.
    virtual void configured(Time now) = 0;

    virtual bool wantsBus() const = 0;
    virtual std::optional<Time> nextDue() const = 0;
    virtual void advance(Time now) = 0;

    /// Offers one packet, at most as long as the out endpoint's packets.
    virtual WriteResult writePacket(std::span<const unsigned char> packet, Time now) = 0;

    /// The host has taken back the packet that was Busy.
    virtual void writeCancelled(Time) {}

    /// In pipes only.
    virtual bool hasPacket(Pipe pipe) const = 0;
    virtual Bytes takePacket(Pipe pipe) = 0;  ///< requires hasPacket()
    virtual bool halted(Pipe pipe) const = 0;
    virtual void clearHalt(Pipe pipe) = 0;

    /// Puts the cable in or pulls it out.
    virtual void setCable(bool in, Time now) = 0;

    /// What it is now; as host and bus see it, from the next attach on.
    virtual const Profile& profile() const = 0;

    /// Device and configuration descriptor, as sysfs calls "descriptors".
    virtual Bytes descriptors() const { return usbDescriptors(profile()); }

    /// What it answers to a control request that reads.
    /// @return nothing where it refuses (stalls)
    virtual std::optional<Bytes> controlAnswer(const Setup& setup) const;

  protected:
    BusDevice() = default;
    BusDevice(const BusDevice&) = default;
    BusDevice& operator=(const BusDevice&) = default;
    BusDevice(BusDevice&&) = default;
    BusDevice& operator=(BusDevice&&) = default;
};

}  // namespace simulator
