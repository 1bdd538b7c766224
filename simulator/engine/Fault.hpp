#pragma once

#include "platform/IOReturn.hpp"
#include "simulator/engine/Types.hpp"
#include "simulator/engine/Wire.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace simulator {

/// An operation of the bus that can be made to fail.
enum class BusOperation {
    IOServiceGetMatchingServices,
    IOServiceAddMatchingNotification,
    IORegistryEntryGetPath,
    IORegistryEntryGetRegistryEntryID,
    IORegistryEntryFromPath,
    CreateDevicePlugIn,
    QueryDeviceInterface,
    USBDeviceOpen,
    GetConfigurationDescriptorPtr,
    SetConfiguration,
    GetDeviceVendor,
    GetDeviceProduct,
    GetDeviceReleaseNumber,
    CreateInterfaceIterator,
    InterfaceIteratorNext,
    CreateInterfacePlugIn,
    QueryInterfaceInterface,
    USBInterfaceOpen,
    GetNumEndpoints,
    GetPipeProperties,
    CreateInterfaceAsyncEventSource,
    ReadPipeAsync,
    WritePipeAsync,
};

enum class FaultKind {
    // When the host's packet arrives.
    Ignore,    ///< takes the packet and does nothing about it
    NotTaken,  ///< leaves the packet waiting on the bus for `delay`; without one, until the host gives up
    // When an answer is about to leave.
    NoAnswer,
    LateAnswer,      ///< by `delay`
    WrongAnswer,     ///< under the packet id `number`
    WrongLayer,      ///< on the layer `number`
    Garbage,         ///< `bytes` in its place
    GarbageBefore,   ///< `bytes`, as a transfer of their own, before it
    ForeignFrames,   ///< `number` packets of other ids before it
    WrongSizeField,  ///< the size field says `number` more than there is (or less, when negative)
    SplitTransfers,  ///< as two transfers, the first of `number` bytes
    Padded,          ///< its data drawn out until the whole packet has `number` bytes
    Unannounced,     ///< on the bulk pipe without having been announced
    Repeated,        ///< `number` times more
    // At either, and when the device attaches.
    Stall,   ///< halts the pipe concerned, or `pipe`
    Unplug,  ///< the cable comes out, `delay` later; it goes in again after `comesBack`
    // At an operation of the bus.
    FailOperation,  ///< with `result`
};

/// Where a fault strikes. What is not given fits everything.
struct FaultStep {
    enum class At { HostPacket, Answer, Attach, Operation };

    At at = At::HostPacket;
    std::optional<std::uint8_t> layer;
    std::optional<std::uint16_t> packetId;
    std::optional<std::uint16_t> command;  ///< the number that the host's packet 10 carries
    std::optional<BootState> state;
    std::optional<BusOperation> operation;
    unsigned occurrence = 1;  ///< the first, second, ... time that all of this fits, counted from adding the fault
};

/// One misbehaviour, as data. It is used up when it has been committed `times` times.
struct Fault {
    std::string name;      ///< for scripts and for the record
    std::string sentence;  ///< for people: what the device does
    FaultStep step;
    FaultKind kind = FaultKind::NoAnswer;
    std::optional<Duration> delay;
    std::optional<Duration> comesBack;
    std::optional<Pipe> pipe;
    std::int64_t number = 1;
    Bytes bytes;
    platform::IOReturn result = platform::kIOReturnError;
    unsigned times = 1;

    /// A fault on the host's packet (application layer), on a command within packet 10, on an answer, on an operation.
    static Fault onPacket(std::uint16_t id, FaultKind kind, std::string name = {});
    static Fault onCommand(std::uint16_t command, FaultKind kind, std::string name = {});
    static Fault onAnswer(std::uint16_t id, FaultKind kind, std::string name = {});
    static Fault onOperation(BusOperation operation, platform::IOReturn result, unsigned occurrence = 1);

    Fault& withDelay(Duration value) { return delay = value, *this; }
    Fault& withNumber(std::int64_t value) { return number = value, *this; }
    Fault& withBytes(Bytes value) { return bytes = std::move(value), *this; }
    Fault& withPipe(Pipe value) { return pipe = value, *this; }
    Fault& comingBackAfter(Duration value) { return comesBack = value, *this; }
    Fault& atOccurrence(unsigned value) { return step.occurrence = value, *this; }
    Fault& inState(BootState value) { return step.state = value, *this; }
    Fault& onLayer(std::uint8_t value) { return step.layer = value, *this; }
    Fault& saying(std::string value) { return sentence = std::move(value), *this; }
    Fault& committed(unsigned value) { return times = value, *this; }
};

/// The faults still to be committed. One thread at a time.
class FaultList {
  public:
    /// What is happening, to be compared with each fault's step.
    struct Moment {
        FaultStep::At at;
        std::optional<std::uint8_t> layer;
        std::optional<std::uint16_t> packetId;
        std::optional<std::uint16_t> command;
        BootState state = BootState::Running;
        std::optional<BusOperation> operation;
    };

    void add(Fault fault);
    void clear() { mPending.clear(); }
    std::size_t size() const { return mPending.size(); }
    std::vector<Fault> pending() const;

    /// Counts the moment for every fault whose step it fits and returns those whose turn it is, in the order in which
    /// they were added.
    std::vector<Fault> commit(const Moment& moment);

  private:
    struct Pending {
        Fault fault;
        unsigned seen = 0;
    };
    std::vector<Pending> mPending;
};

/// Faults worth showing to a person, each with a name for scripts, which stays, and a sentence. Both are unique.
const std::vector<Fault>& faultCatalogue();

/// What the catalogue's fault of that name does; of others the name itself.
std::string_view faultSentence(std::string_view name);

}  // namespace simulator
