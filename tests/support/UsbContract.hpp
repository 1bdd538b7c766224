#pragma once

#include "platform/CFRunLoop.hpp"
#include "platform/IORegistry.hpp"
#include "platform/IOUSB.hpp"
#include "platform/VendorId.hpp"
#include "simulator/engine/Device.hpp"
#include "tests/support/UsbBackend.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <deque>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <numeric>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// What the library relies on in every implementation of the registry and USB ports. A backend runs the same cases by
///
///     INSTANTIATE_TYPED_TEST_SUITE_P(Name, UsbContract, BackendClass);
///
/// with a default-constructible class derived from support::UsbBackend.
namespace contract {

using namespace platform;
using namespace simulator;
using support::UsbBackend;

/// Runs the mode until the condition holds. @return false after ten seconds
template <typename Condition>
bool runUntil(CFRunLoop& loop, std::string_view mode, Condition condition) {
    for (int slice = 0; slice < 200 && !condition(); ++slice) loop.CFRunLoopRunInMode(mode, 0.05, true);
    return condition();
}

/// How one transfer ended.
struct Completion {
    std::uint8_t pipe = 0;
    IOReturn result = 0;
    Bytes bytes;            ///< of a read
    std::size_t count = 0;  ///< reported
};

inline void check(IOReturn result) {
    if (result != kIOReturnSuccess) throw std::runtime_error(IOReturnText(result));
}

/// The device at a path, not yet opened.
inline std::unique_ptr<IOUSBDeviceInterface> deviceAt(IORegistry& registry, const std::string& path) {
    const auto entry = registry.IORegistryEntryFromPath(path);
    if (!entry) throw std::runtime_error("no device at " + path);
    std::unique_ptr<IOCFPlugInInterface> plugIn;
    check(entry->IOCreatePlugInInterfaceForService(IOUserClientType::kIOUSBDeviceUserClientTypeID, plugIn));
    std::unique_ptr<IOUSBDeviceInterface> device;
    check(plugIn->QueryInterface(device));
    return device;
}

/// The way from a path to an opened interface, as the library goes it, with a mode of its own.
class Opened {
  public:
    Opened(UsbBackend& backend, const std::string& path)
        : device(deviceAt(backend.registry(), path)), mLoop(backend.loop()) {
        check(device->USBDeviceOpen());
        IOUSBConfigurationDescriptor configuration;
        check(device->GetConfigurationDescriptorPtr(0, configuration));
        check(device->SetConfiguration(configuration.bConfigurationValue));
        std::unique_ptr<IOIterator> iterator;
        check(device->CreateInterfaceIterator({}, iterator));
        const auto first = iterator->IOIteratorNext();
        if (!first) throw std::runtime_error("no interface");
        std::unique_ptr<IOCFPlugInInterface> plugIn;
        check(first->IOCreatePlugInInterfaceForService(IOUserClientType::kIOUSBInterfaceUserClientTypeID, plugIn));
        check(plugIn->QueryInterface(interface));
        check(interface->USBInterfaceOpen());
        std::uint8_t count = 0;
        check(interface->GetNumEndpoints(count));
        for (std::uint8_t ref = 1; ref <= count; ++ref) {
            auto& pipe = pipes.emplace_back();
            check(interface->GetPipeProperties(ref, pipe));
            auto& bulk = pipe.direction == kUSBIn ? bulkIn : bulkOut;
            (pipe.transferType == kUSBInterrupt ? interruptIn : bulk) = ref;
        }
        check(interface->CreateInterfaceAsyncEventSource(mSource));
        mLoop.CFRunLoopAddSource(mSource, "contract");
    }
    ~Opened() { close(); }
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;

    void close() {
        if (mSource) mLoop.CFRunLoopRemoveSource(std::exchange(mSource, nullptr));
        if (interface) interface->USBInterfaceClose();
        interface.reset();
        if (device) device->USBDeviceClose();
        device.reset();
    }

    /// Starts a read into the pipe's one buffer. On its completion the buffer's contents are kept, and, if wanted, the
    /// next read is started.
    IOReturn read(std::uint8_t pipe, bool again = false) {
        mRequests.push_back({this, pipe, again});
        const std::size_t before = completions.size();
        const IOReturn result = interface->ReadPipeAsync(pipe, mBuffers[pipe], completed, &mRequests.back());
        calledElsewhere = calledElsewhere || completions.size() != before;
        return result;
    }

    /// The bytes are the interface's once the call returns: this copy goes at once.
    IOReturn write(Bytes bytes) {
        mRequests.push_back({this, bulkOut, false});
        const std::size_t before = completions.size();
        const IOReturn result = interface->WritePipeAsync(bulkOut, bytes, completed, &mRequests.back());
        calledElsewhere = calledElsewhere || completions.size() != before;
        return result;
    }

    /// A write as the library makes it: an exact multiple of the packet size is followed by an empty transfer.
    void writeWhole(const Bytes& bytes) {
        ASSERT_EQ(write(bytes), kIOReturnSuccess);
        if (bytes.size() % pipes[bulkOut - 1U].maxPacketSize == 0) {
            ASSERT_EQ(write({}), kIOReturnSuccess);
        }
    }

    /// Gives what must not come the time to come.
    void settle(const std::string& mode = "contract") { mLoop.CFRunLoopRunInMode(mode, 0.02, false); }
    template <typename Condition>
    bool runUntil(Condition condition) {
        return contract::runUntil(mLoop, "contract", condition);
    }
    bool runUntilCompletions(std::size_t count) {
        return runUntil([&] { return completions.size() >= count; });
    }
    /// What ended on one pipe.
    std::vector<Completion> on(std::uint8_t pipe) const {
        std::vector<Completion> found;
        std::ranges::copy_if(completions, std::back_inserter(found), [=](auto& one) { return one.pipe == pipe; });
        return found;
    }

    std::unique_ptr<IOUSBDeviceInterface> device;
    std::unique_ptr<IOUSBInterfaceInterface> interface;
    std::vector<PipeProperties> pipes;
    std::uint8_t interruptIn = 0, bulkIn = 0, bulkOut = 0;
    std::vector<Completion> completions;
    std::function<void()> onCompletion = [] {};
    std::vector<IOReturn> restarted;  ///< what became of the reads that completions have started
    bool calledElsewhere = false;     ///< a completion ran inside a call that starts a transfer, or on another thread

  private:
    struct Request {
        Opened* self;
        std::uint8_t pipe;
        bool again;
    };

    static void completed(void* refCon, IOReturn result, void* arg0) {
        auto& [self, pipe, again] = *static_cast<Request*>(refCon);
        const auto count = reinterpret_cast<std::size_t>(arg0);
        const auto& buffer = self->mBuffers[pipe];
        const std::size_t length = pipe == self->bulkOut ? 0 : count;
        self->completions.push_back({pipe, result, Bytes(buffer.data(), buffer.data() + length), count});
        self->calledElsewhere = self->calledElsewhere || std::this_thread::get_id() != self->mThread;
        self->onCompletion();
        if (again && result == kIOReturnSuccess) self->restarted.push_back(self->read(pipe, true));
    }

    CFRunLoop& mLoop;
    std::shared_ptr<CFRunLoopSource> mSource;
    std::map<std::uint8_t, std::array<unsigned char, 4096>> mBuffers;
    std::deque<Request> mRequests;  ///< kept, since each is somebody's context
    std::thread::id mThread = std::this_thread::get_id();
};

inline MatchingDictionary matchingTrovik() {
    auto matching = IOServiceMatching(kIOUSBDeviceClassName);
    matching.properties = {{"idVendor", kTrovikVendorId}, {"idProduct", 3}, {"bcdDevice", 1}};
    return matching;
}

struct Found {
    std::string path;  ///< none of one that has gone
    std::uint64_t id = 0;
    std::string name, product;
    std::int64_t vendor = 0;
    Found afterwards() const { return {"", id, name, product, vendor}; }
    bool operator==(const Found&) const = default;
};

inline std::vector<Found> drain(IOIterator& iterator) {
    std::vector<Found> found;
    while (const auto entry = iterator.IOIteratorNext()) {
        Found one;
        entry->IORegistryEntryGetPath(kIOServicePlane, one.path);
        EXPECT_EQ(entry->IORegistryEntryGetRegistryEntryID(one.id), kIOReturnSuccess);
        EXPECT_EQ(entry->IORegistryEntryGetName(one.name), kIOReturnSuccess);
        one.product = std::get<std::string>(entry->IORegistryEntryCreateCFProperty(kUSBProductString).value().value);
        one.vendor = std::get<std::int64_t>(entry->IORegistryEntryCreateCFProperty("idVendor").value().value);
        EXPECT_FALSE(entry->IORegistryEntryCreateCFProperty("no such property"));
        found.push_back(one);
    }
    return found;
}

inline std::vector<Found> present(IORegistry& registry) {
    std::unique_ptr<IOIterator> iterator;
    EXPECT_EQ(registry.IOServiceGetMatchingServices(matchingTrovik(), iterator), kIOReturnSuccess);
    return iterator ? drain(*iterator) : std::vector<Found>{};
}

/// Is told of the library's devices from its port's source, one group a call.
struct Listener {
    explicit Listener(IORegistry& where) : registry(where), port(where.IONotificationPortCreate()) {}
    IOReturn subscribe(const std::string& type = kIOServiceMatched) {
        return registry.IOServiceAddMatchingNotification(*port, type, matchingTrovik(), told, this, iterator);
    }
    static void told(void* refCon, IOIterator& found) {
        static_cast<Listener*>(refCon)->groups.push_back(drain(found));
    }
    void listen(CFRunLoop& loop) {
        loop.CFRunLoopAddSource(port->IONotificationPortGetRunLoopSource(), kCFRunLoopDefaultMode);
    }
    void end(CFRunLoop& loop) {
        loop.CFRunLoopRemoveSource(port->IONotificationPortGetRunLoopSource());
        port.reset();
    }

    IORegistry& registry;
    std::unique_ptr<IONotificationPort> port;
    std::unique_ptr<IOIterator> iterator;  ///< over what was there before
    std::vector<std::vector<Found>> groups;
};

/// A packet that is `size` bytes long with its header, filled with a pattern.
inline UsbPacket packetOfSize(std::size_t size, std::uint16_t id = 77) {
    UsbPacket packet{kApplicationLayer, id, Bytes(size - kHeaderSize)};
    for (std::size_t i = 0; i < packet.data.size(); ++i) packet.data[i] = static_cast<unsigned char>(i * 7 + i / 256);
    return packet;
}

inline const Bytes kStart = encodePacket({kUsbLayer, kStartSession, {}});

template <typename Backend>
struct UsbContract : ::testing::Test {
    Found plugged() {
        backend.plug();
        const auto found = present(backend.registry());
        EXPECT_EQ(found.size(), 1u);
        return found.empty() ? Found() : found.front();
    }
    Opened open() { return {backend, plugged().path}; }
    void addFault(const Fault& fault) {
        backend.withDevice([&](Device& device, Time) { device.addFault(fault); });
    }
    std::vector<Bytes> received() {
        std::vector<Bytes> packets;
        backend.withDevice([&](Device& device, Time) { packets = device.record().received(); });
        return packets;
    }

    Backend backend;
};

TYPED_TEST_SUITE_P(UsbContract);

TYPED_TEST_P(UsbContract, RegistryFindsWhatIsThereAndTellsOfEachArrivalAndDepartureOnce) {
    auto& registry = this->backend.registry();
    auto& loop = this->backend.loop();
    const auto first = this->plugged();
    EXPECT_LT(first.path.size(), 512u);
    EXPECT_EQ(first, (Found{first.path, first.id, "1-1", "Trailmate 300", kTrovikVendorId}));
    EXPECT_FALSE(registry.IORegistryEntryFromPath(first.path + "x"));
    const auto entry = registry.IORegistryEntryFromPath(first.path);
    ASSERT_TRUE(entry);

    Listener arrivals(registry), departures(registry);
    for (auto* listener : {&arrivals, &departures}) listener->listen(loop);
    EXPECT_EQ(arrivals.subscribe("IOServiceWhatever"), kIOReturnUnsupported);
    ASSERT_EQ(arrivals.subscribe(), kIOReturnSuccess);
    ASSERT_EQ(departures.subscribe(kIOServiceTerminate), kIOReturnSuccess);
    EXPECT_EQ(drain(*arrivals.iterator), std::vector{first}) << "what is there already";
    EXPECT_TRUE(drain(*departures.iterator).empty()) << "nothing has gone yet";
    for (const auto release : {std::uint16_t{2}, std::uint16_t{1}}) {  // the first is none of those asked for
        this->backend.unplug();
        EXPECT_TRUE(present(registry).empty());
        this->backend.withDevice([&](Device& device, Time) { device.profile().releaseNumber = release; });
        std::string path;
        EXPECT_EQ(entry->IORegistryEntryGetPath(kIOServicePlane, path), kIOReturnNoDevice);
        EXPECT_FALSE(registry.IORegistryEntryFromPath(first.path));
        this->backend.plug();
        if (release == 2) loop.CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, false);
        EXPECT_TRUE(arrivals.groups.empty()) << "no other release, and only the loop may call back";
    }
    const auto second = present(registry).at(0);
    EXPECT_EQ(second.path, first.path) << "the path belongs to the port";
    EXPECT_NE(second.id, first.id) << "the id belongs to the attach";
    const auto runUntilTold = [&](std::size_t times) {
        EXPECT_TRUE(runUntil(loop, kCFRunLoopDefaultMode,
                             [&] { return std::min(arrivals.groups.size(), departures.groups.size()) >= times; }));
    };
    runUntilTold(1);
    this->backend.unplug();
    const auto third = this->plugged();  // it is there before the loop runs
    runUntilTold(2);
    loop.CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, false);

    // Nothing comes after the ports have gone.
    for (auto* listener : {&arrivals, &departures}) listener->end(loop);
    this->backend.unplug();
    this->backend.plug();
    loop.CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, false);
    using Groups = decltype(arrivals.groups);
    EXPECT_EQ(arrivals.groups, (Groups{{second}, {third}}));
    EXPECT_EQ(departures.groups, (Groups{{first.afterwards()}, {second.afterwards()}}));
}

TYPED_TEST_P(UsbContract, CompletionsComeInOrderAndOnlyWhileTheModeRuns) {
    Opened opened = this->open();
    for (int i = 0; i < 3; ++i) ASSERT_EQ(opened.read(opened.interruptIn), kIOReturnSuccess);
    opened.writeWhole(kStart);
    opened.settle("another mode");
    EXPECT_TRUE(opened.completions.empty());

    ASSERT_TRUE(opened.runUntilCompletions(2));
    EXPECT_EQ(opened.on(opened.bulkOut).at(0).count, 12u);
    std::vector<Bytes> expected = {{0, 0, 0, 0, 6, 0, 0, 0, 4, 0, 0, 0, 0x4E, 0xC7, 0x3B, 0xE3}};
    for (const std::size_t size : {13u, 14u}) {
        this->backend.send(packetOfSize(size));
        expected.push_back(encodePacket(packetOfSize(size)));
    }
    ASSERT_TRUE(opened.runUntilCompletions(4));
    std::vector<Bytes> read;
    for (const auto& completion : opened.on(opened.interruptIn)) read.push_back(completion.bytes);
    EXPECT_EQ(read, expected);
    EXPECT_FALSE(opened.calledElsewhere);
}

TYPED_TEST_P(UsbContract, ReadEndsWithAShortPacketAnEmptyOneOrAFullBuffer) {
    this->backend.withDevice([](Device& device, Time) { device.profile().route = AnswerRoute::AllOnBulk; });
    Opened opened = this->open();
    opened.read(opened.interruptIn, true);
    opened.read(opened.bulkIn, true);
    // Each run of the bulk pipe ends with an empty transfer of its own.
    const std::vector<std::size_t> cases[] = {{12, 0},   {63, 0},      {64, 0},      {65, 0},       {128, 0},
                                              {4095, 0}, {4096, 0, 0}, {4096, 1, 0}, {4096, 20, 0}, {4096, 4096, 0, 0}};
    for (const auto& lengths : cases) {
        const auto packet = packetOfSize(std::accumulate(lengths.begin(), lengths.end(), std::size_t{0}));
        SCOPED_TRACE(packet.data.size() + kHeaderSize);
        opened.completions.clear();
        this->backend.send(packet);
        ASSERT_TRUE(opened.runUntil([&] { return opened.on(opened.bulkIn).size() >= lengths.size(); }));
        Bytes all;
        std::vector<std::size_t> seen;
        for (const auto& read : opened.on(opened.bulkIn)) {
            seen.push_back(read.count);
            all.insert(all.end(), read.bytes.begin(), read.bytes.end());
        }
        EXPECT_EQ(seen, lengths);
        EXPECT_EQ(all, encodePacket(packet));
    }
}

TYPED_TEST_P(UsbContract, WriteOfAnExactMultipleEndsWithTheEmptyTransferOnly) {
    Opened opened = this->open();
    std::vector<Bytes> expected;
    for (const std::size_t size : {12u, 63u, 64u, 65u, 96u, 4097u}) {  // the pipe tells that 64 is its packets' size
        expected.push_back(encodePacket(packetOfSize(size)));
        opened.writeWhole(expected.back());
    }
    ASSERT_TRUE(opened.runUntilCompletions(7));
    EXPECT_EQ(this->received(), expected);

    expected.push_back(encodePacket(packetOfSize(128)));
    ASSERT_EQ(opened.write(expected.back()), kIOReturnSuccess);
    ASSERT_TRUE(opened.runUntilCompletions(8));
    EXPECT_EQ(opened.completions.back().count, 128u);
    EXPECT_EQ(this->received().size(), 6u) << "the device still waits for the end";
    ASSERT_EQ(opened.write({}), kIOReturnSuccess);
    ASSERT_TRUE(opened.runUntilCompletions(9));
    EXPECT_EQ(opened.completions.back().count, 0u);
    EXPECT_EQ(this->received(), expected);
}

TYPED_TEST_P(UsbContract, AbortAndUnplugEndEachTransferOnceWithTheirResult) {
    this->addFault(Fault::onPacket(77, FaultKind::NotTaken));
    Opened opened = this->open();
    const auto endWith = [&](IOReturn result) {
        ASSERT_TRUE(opened.runUntilCompletions(3));
        opened.settle();
        ASSERT_EQ(opened.completions.size(), 3u);
        for (const auto& completion : std::exchange(opened.completions, {})) EXPECT_EQ(completion.result, result);
        EXPECT_FALSE(opened.calledElsewhere);
    };
    for (const auto pipe : {opened.interruptIn, opened.interruptIn, opened.bulkIn}) opened.read(pipe);
    opened.writeWhole(encodePacket(packetOfSize(20)));
    ASSERT_EQ(opened.interface->AbortPipe(opened.interruptIn), kIOReturnSuccess);
    ASSERT_EQ(opened.interface->AbortPipe(opened.bulkOut), kIOReturnSuccess);
    endWith(kIOReturnAborted);  // the bulk read goes on waiting
    opened.read(opened.interruptIn);
    this->backend.send(packetOfSize(30));
    ASSERT_TRUE(opened.runUntilCompletions(1));
    EXPECT_EQ(std::exchange(opened.completions, {})[0].count, 30u) << "the pipe is as good as before";
    for (int i = 0; i < 2; ++i) opened.read(opened.interruptIn);
    this->backend.unplug();
    endWith(kIOReturnNoDevice);
    EXPECT_EQ(opened.read(opened.interruptIn), kIOReturnNoDevice);
    EXPECT_EQ(opened.write(kStart), kIOReturnNoDevice);

    // A device on the same port is another device to it.
    this->backend.plug();
    EXPECT_EQ(opened.read(opened.interruptIn), kIOReturnNoDevice);
    opened.close();
    EXPECT_TRUE(opened.completions.empty());
}

TYPED_TEST_P(UsbContract, StallEndsTheTransferWithItsOwnResult) {
    this->addFault(Fault::onPacket(78, FaultKind::Stall));
    this->addFault(Fault::onPacket(kStartSession, FaultKind::Stall).withPipe(Pipe::InterruptIn));
    Opened opened = this->open();
    opened.read(opened.interruptIn);
    for (const Bytes& packet : {kStart, encodePacket(packetOfSize(20, 78))}) opened.writeWhole(packet);
    ASSERT_TRUE(opened.runUntilCompletions(3));
    EXPECT_EQ(opened.on(opened.interruptIn).at(0).result, kIOUSBPipeStalled);
    EXPECT_EQ(opened.on(opened.bulkOut).at(0).result, kIOReturnSuccess);
    EXPECT_EQ(opened.on(opened.bulkOut).at(1).result, kIOUSBPipeStalled);
}

TYPED_TEST_P(UsbContract, FailureBehindASuccessComesInARunOfItsOwn) {
    Opened opened = this->open();
    opened.read(opened.bulkIn);
    opened.read(opened.interruptIn, true);
    opened.write(kStart);
    bool hasAnswered = false;
    ASSERT_TRUE(runUntil(this->backend.loop(), "another mode", [&] {
        this->backend.withDevice([&](Device& device, Time) { hasAnswered = device.sessionStarted(); });
        return hasAnswered;
    }));
    this->backend.unplug();

    // The answer's read is started anew when the device has gone: that is no news for the run that tells of the write.
    std::multiset<std::uint8_t> successes;
    for (std::size_t seen = 0; opened.completions.size() < 4;) {
        ASSERT_TRUE(opened.runUntilCompletions(seen + 1));
        const bool startsWell = opened.completions[seen].result == kIOReturnSuccess;
        for (; seen < opened.completions.size(); ++seen) {
            const auto& [pipe, result, bytes, count] = opened.completions[seen];
            EXPECT_EQ(result, startsWell ? kIOReturnSuccess : kIOReturnNoDevice) << "completion " << seen;
            if (result == kIOReturnSuccess) successes.insert(pipe);
        }
    }
    EXPECT_EQ(successes, (std::multiset{opened.bulkOut, opened.interruptIn}));
    EXPECT_EQ(opened.completions[1].result, kIOReturnSuccess) << "no failure overtakes a success";
    EXPECT_EQ(opened.restarted, std::vector<IOReturn>{kIOReturnSuccess});
}

TYPED_TEST_P(UsbContract, CloseTakesBackWhatIsPendingAndCompletesNothingMore) {
    const std::string path = this->plugged().path;
    for (int round = 0; round < 4; ++round) {
        Opened opened(this->backend, path);
        opened.read(opened.interruptIn);
        opened.read(opened.bulkIn);
        opened.writeWhole(kStart);
        if (round < 3) {
            // Some have ended by now, some have not; none may come once the interface is closed.
            opened.close();
            opened.settle();
            EXPECT_TRUE(opened.completions.empty());
        } else {
            EXPECT_TRUE(opened.runUntilCompletions(2)) << "and it is as good as before";
        }
    }
}

REGISTER_TYPED_TEST_SUITE_P(UsbContract, RegistryFindsWhatIsThereAndTellsOfEachArrivalAndDepartureOnce,
                            CompletionsComeInOrderAndOnlyWhileTheModeRuns,
                            ReadEndsWithAShortPacketAnEmptyOneOrAFullBuffer,
                            WriteOfAnExactMultipleEndsWithTheEmptyTransferOnly,
                            AbortAndUnplugEndEachTransferOnceWithTheirResult, StallEndsTheTransferWithItsOwnResult,
                            FailureBehindASuccessComesInARunOfItsOwn,
                            CloseTakesBackWhatIsPendingAndCompletesNothingMore);

}  // namespace contract

using namespace contract;  // a backend's INSTANTIATE_TYPED_TEST_SUITE_P finds all parts of the suite by their bare
                           // names
