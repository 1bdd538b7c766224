#pragma once

#include "platform/IORegistry.hpp"
#include "simulator/engine/Device.hpp"
#include "simulator/engine/Types.hpp"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace simulator {

class BusCore;

/// A USB bus within the process: the platform's device registry and USB interfaces over simulated devices, one device a
/// port. The device's work is done on whichever thread calls (a write makes the device answer at once if its answer has
/// no delay) and, for what is due later, on the drive's thread; completions and notifications always arrive through the
/// run loop of the thread that waits for them.
///
/// USB's rules hold: a read ends with a short packet, an empty packet or a full buffer; reads of one pipe are served in
/// order; a halted endpoint ends its transfers with kIOUSBPipeStalled; a device that leaves ends every transfer, and
/// every later operation, with kIOReturnNoDevice. A registry path belongs to a port, an entry id to one attach.
///
/// Any thread, unless said otherwise. What was handed out may outlive the bus.
class InProcessBus final : public platform::IORegistry, public TimedWork {
  public:
    /// @param drive  must outlive the bus; a real-time drive is started after this and joined before the bus goes
    explicit InProcessBus(Drive& drive);
    ~InProcessBus() override;
    InProcessBus(const InProcessBus&) = delete;
    InProcessBus& operator=(const InProcessBus&) = delete;

    /// Adds a device on a new port, its cable not yet in.
    /// @return the port's number, 0 for the first
    std::size_t addDevice(Profile profile = {}, SettingsStore store = SettingsStore::wellUsed());

    /// Puts the cable in. Devices plugged by one call arrive in one notification.
    void plug(std::size_t port) { plug(std::vector<std::size_t>{port}); }
    void plug(const std::vector<std::size_t>& ports);
    void unplug(std::size_t port);

    /// Has the devices of two ports change places, with their cables out.
    void swap(std::size_t one, std::size_t other);

    /// Closes what is open, as the system does when the process that opened it dies.
    void closeAll();

    bool isAttached(std::size_t port) const;
    std::string registryPath(std::size_t port) const;

    /// Has the action look at or change the device, with the bus locked: it must call nothing of the bus or of a run
    /// loop. What the device then wants is done before this returns.
    void withDevice(std::size_t port, const std::function<void(Device& device, Time now)>& action);

    /// A fault on an operation that belongs to no one device (the two queries and the path look-up). Others are added
    /// to a device.
    void addFault(Fault fault);

    /// Is told whenever a person looking at a device would see a change. Called without a lock, on the thread on which
    /// it happened, possibly more often than needed; must not block. Set before the bus is used, empty to take it back.
    void setObserver(std::function<void()> observer);

    std::size_t pendingTransfers() const;  ///< started, completion not yet run
    std::size_t openDevices() const;       ///< opened and not closed

    // platform::IORegistry
    platform::IOReturn IOServiceGetMatchingServices(const platform::MatchingDictionary& matching,
                                                    std::unique_ptr<platform::IOIterator>& iterator) override;
    std::unique_ptr<platform::IONotificationPort> IONotificationPortCreate() override;
    platform::IOReturn IOServiceAddMatchingNotification(platform::IONotificationPort& port, const std::string& type,
                                                        const platform::MatchingDictionary& matching,
                                                        platform::IOServiceMatchingCallback callback, void* refCon,
                                                        std::unique_ptr<platform::IOIterator>& iterator) override;
    std::unique_ptr<platform::IOService> IORegistryEntryFromPath(const std::string& path) override;

    // TimedWork
    std::optional<Time> nextDue() override;
    void run(Time now) override;

  private:
    std::shared_ptr<BusCore> mCore;
};

}  // namespace simulator
