#pragma once

#include "platform/common/FileDescriptor.hpp"
#include "simulator/engine/Profile.hpp"
#include "simulator/engine/Types.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace simulator {

/// A configfs gadget with one FunctionFS interface: what makes a kernel with a USB device controller appear to its host
/// as the simulated device. The constructor puts everything in place without showing it; bind() and unbind() put the
/// device on the bus and take it off. Needs the right to write configfs (root). Throws std::system_error, with the
/// operation and the path in its text, when the kernel refuses something; std::runtime_error when the name is taken.
///
/// Owner thread only, but for the endpoint descriptors, which the threads that serve them may use.
class FunctionFs {
  public:
    /// @param name        of the gadget in configfs and of its mount point below /run; one per device on this machine
    /// @param controller  name of the device controller as in /sys/class/udc; empty for the first one that is free
    FunctionFs(const std::string& name, const std::string& controller, const Profile& profile);
    ~FunctionFs();  ///< off the bus, unmounted, removed from configfs
    FunctionFs(const FunctionFs&) = delete;
    FunctionFs& operator=(const FunctionFs&) = delete;

    void bind();
    void unbind();
    bool bound() const { return mBound; }

    int control() const { return mControl.get(); }
    int endpoint(Pipe pipe) const { return mEndpoints[static_cast<std::size_t>(pipe)].get(); }

    /// Packet size of a pipe at the speed that the host has chosen; nothing while the function is not enabled.
    std::optional<std::uint16_t> packetSize(Pipe pipe) const;

    const std::string& controller() const { return mController; }

  private:
    void reserve(const std::string& name);
    void describe();
    void tearDown() noexcept;

    std::string mGadget;      ///< folder in configfs
    std::string mMountPoint;  ///< of the function's endpoints
    std::string mController;
    std::string mFunction;
    bool mBound = false;
    platform::FileDescriptor mReservation;  ///< the folder, locked: this process owns the gadget of that name
    platform::FileDescriptor mControl;
    platform::FileDescriptor mEndpoints[3];
};

}  // namespace simulator
