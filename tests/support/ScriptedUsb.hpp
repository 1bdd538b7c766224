#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/IORegistry.hpp"
#include "platform/IOUSB.hpp"
#include "platform/VendorId.hpp"
#include "simulator/SimulatedClock.hpp"

namespace support {

/// One USB device whose every transfer follows a script: any result and any bytes, on any pipe,
/// in any order, whether a real device could do that or not. For what the simulated device, which keeps to the rules of
/// the bus, can't be made to do. One thread, simulated time. What it handed out may outlive it.
class ScriptedUsb final : public platform::IORegistry, public simulator::TimedWork {
  public:
    using Bytes = std::vector<unsigned char>;

    static constexpr std::uint8_t kInterruptIn = 1;  ///< pipe references, as long as `pipes` is left alone
    static constexpr std::uint8_t kBulkIn = 2;
    static constexpr std::uint8_t kBulkOut = 3;

    explicit ScriptedUsb(simulator::SimulatedClock& clock);
    ~ScriptedUsb() override;
    ScriptedUsb(ScriptedUsb const&) = delete;
    ScriptedUsb& operator=(ScriptedUsb const&) = delete;

    /// Adds the end of a read. It waits for the ones added before it, for `delay`, and for a read on its pipe; one
    /// whose pipe nobody reads lets those behind it pass.
    void brings(std::uint8_t pipe, Bytes bytes, platform::IOReturn result = platform::kIOReturnSuccess,
                simulator::Duration delay = {});
    /// The same bytes as full reads of 4096 and a short (or empty) one.
    void bringsPacket(std::uint8_t pipe, Bytes const& packet);
    /// Reports a byte count that no read can have.
    void bringsCount(std::uint8_t pipe, std::uint64_t count);

    /// Adds the end of a write, for the next one that has none; without it a write succeeds at once.
    struct WriteEnd {
        platform::IOReturn result = platform::kIOReturnSuccess;
        bool ends = true;  ///< false: the device never takes it
        simulator::Duration delay{};
        std::uint64_t count = 0;        ///< reported in place of what was written, when not 0
        std::function<void()> raise{};  ///< called in place of the completion
    };
    void endsWrite(WriteEnd end);

    std::vector<platform::PipeProperties> pipes;  ///< interrupt in, bulk in, bulk out of 64 bytes
    std::string path = "scripted";

    std::vector<Bytes> const& writes() const;  ///< each write, in order
    std::size_t readsPending(std::uint8_t pipe) const;
    std::size_t scriptLeft() const;
    bool isIdle() const;  ///< closed, with nothing under way and no source on a run loop

    // platform::IORegistry
    platform::IOReturn IOServiceGetMatchingServices(platform::MatchingDictionary const& matching,
                                                    std::unique_ptr<platform::IOIterator>& iterator) override;
    std::unique_ptr<platform::IONotificationPort> IONotificationPortCreate() override;
    platform::IOReturn IOServiceAddMatchingNotification(platform::IONotificationPort& port, std::string const& type,
                                                        platform::MatchingDictionary const& matching,
                                                        platform::IOServiceMatchingCallback callback, void* refCon,
                                                        std::unique_ptr<platform::IOIterator>& iterator) override;
    std::unique_ptr<platform::IOService> IORegistryEntryFromPath(std::string const& path) override;

    // simulator::TimedWork
    std::optional<simulator::Time> nextDue() override;
    void run(simulator::Time now) override;

    struct State;

  private:
    simulator::SimulatedClock& mClock;
    std::shared_ptr<State> mState;
};

}  // namespace support
