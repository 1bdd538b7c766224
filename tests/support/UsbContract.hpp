#pragma once

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/CFRunLoop.hpp"
#include "platform/IORegistry.hpp"
#include "platform/IOUSB.hpp"
#include "platform/VendorId.hpp"
#include "simulator/Device.hpp"
#include "tests/support/UsbBackend.hpp"

/// What the library relies on in every implementation of the registry and USB ports. A backend runs the same cases by
///
///     INSTANTIATE_TYPED_TEST_SUITE_P(Name, UsbContract, BackendClass);
///
/// with a default-constructible class derived from support::UsbBackend.
namespace contract {

using platform::IOReturn;
using simulator::Bytes;
using simulator::Device;
using simulator::Pipe;
using simulator::Time;
using simulator::UsbPacket;
using support::UsbBackend;

/// How one transfer ended.
struct Completion {
    int pipe = 0;
    IOReturn result = 0;
    Bytes bytes;            ///< of a read
    std::size_t count = 0;  ///< reported
};

/// The way from a path to an opened interface, as the library goes it, with a mode of its own.
class Opened {
  public:
    static constexpr std::size_t kReadSize = 4096;

    Opened(UsbBackend& backend, const std::string& path, std::string mode = "contract")
        : mBackend(backend), mMode(std::move(mode)) {
        const auto entry = backend.registry().IORegistryEntryFromPath(path);
        std::unique_ptr<platform::IOCFPlugInInterface> plugIn;
        if (!entry) throw std::runtime_error("no device at " + path);
        check(
            entry->IOCreatePlugInInterfaceForService(platform::IOUserClientType::kIOUSBDeviceUserClientTypeID, plugIn));
        check(plugIn->QueryInterface(device));
        check(device->USBDeviceOpen());
        platform::IOUSBConfigurationDescriptor configuration;
        check(device->GetConfigurationDescriptorPtr(0, configuration));
        check(device->SetConfiguration(configuration.bConfigurationValue));
        std::unique_ptr<platform::IOIterator> iterator;
        check(device->CreateInterfaceIterator({}, iterator));
        const auto first = iterator->IOIteratorNext();
        if (!first) throw std::runtime_error("no interface");
        check(first->IOCreatePlugInInterfaceForService(platform::IOUserClientType::kIOUSBInterfaceUserClientTypeID,
                                                       plugIn));
        check(plugIn->QueryInterface(interface));
        check(interface->USBInterfaceOpen());
        std::uint8_t count = 0;
        check(interface->GetNumEndpoints(count));
        for (std::uint8_t ref = 1; ref <= count; ++ref) {
            platform::PipeProperties properties;
            check(interface->GetPipeProperties(ref, properties));
            if (properties.transferType == platform::kUSBInterrupt) interruptIn = ref;
            if (properties.transferType == platform::kUSBBulk) {
                (properties.direction == platform::kUSBIn ? bulkIn : bulkOut) = ref;
            }
            pipes.push_back(properties);
        }
        check(interface->CreateInterfaceAsyncEventSource(mSource));
        backend.loop().CFRunLoopAddSource(mSource, mMode);
    }
    ~Opened() { close(); }
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;

    void close() {
        if (mSource) mBackend.loop().CFRunLoopRemoveSource(std::exchange(mSource, nullptr));
        if (interface) interface->USBInterfaceClose();
        interface.reset();
        if (device) device->USBDeviceClose();
        device.reset();
    }

    /// Starts a read into the pipe's one buffer. On its completion the buffer's contents are kept, and, if wanted, the
    /// next read is started.
    IOReturn read(int pipe, bool again = false) {
        auto& request = mRequests.emplace_back(std::make_unique<Request>(Request{this, pipe, true, again}));
        mInCall = true;
        const IOReturn result =
            interface->ReadPipeAsync(static_cast<std::uint8_t>(pipe), mBuffers[index(pipe)], completed, request.get());
        mInCall = false;
        return result;
    }

    IOReturn write(const Bytes& bytes) {
        auto& request = mRequests.emplace_back(std::make_unique<Request>(Request{this, bulkOut, false, false}));
        mInCall = true;
        // The bytes are the interface's once the call returns: this copy goes at once.
        auto copy = std::make_unique<Bytes>(bytes);
        const IOReturn result =
            interface->WritePipeAsync(static_cast<std::uint8_t>(bulkOut), *copy, completed, request.get());
        mInCall = false;
        return result;
    }

    /// A write as the library makes it: an exact multiple of the packet size is followed by an empty transfer.
    void writeWhole(const Bytes& bytes) {
        ASSERT_EQ(write(bytes), platform::kIOReturnSuccess);
        if (bytes.size() % pipes[static_cast<std::size_t>(bulkOut) - 1].maxPacketSize == 0) {
            ASSERT_EQ(write({}), platform::kIOReturnSuccess);
        }
    }

    /// Runs the mode until the condition holds. @return false after ten seconds
    bool runUntil(const std::function<bool()>& condition) {
        for (int slice = 0; slice < 200; ++slice) {
            if (condition()) return true;
            mBackend.loop().CFRunLoopRunInMode(mMode, 0.05, true);
        }
        return condition();
    }
    bool runUntilCompletions(std::size_t count) {
        return runUntil([&] { return completions.size() >= count; });
    }
    /// What ended on one pipe.
    std::vector<Completion> on(int pipe) const {
        std::vector<Completion> found;
        for (const auto& one : completions) {
            if (one.pipe == pipe) found.push_back(one);
        }
        return found;
    }

    std::unique_ptr<platform::IOUSBDeviceInterface> device;
    std::unique_ptr<platform::IOUSBInterfaceInterface> interface;
    std::vector<platform::PipeProperties> pipes;
    int interruptIn = 0;
    int bulkIn = 0;
    int bulkOut = 0;
    std::vector<Completion> completions;
    bool calledInside = false;  ///< a completion ran inside the call that started a transfer
    bool calledOnOtherThread = false;

  private:
    struct Request {
        Opened* self;
        int pipe;
        bool reads;
        bool again;
    };

    static void check(IOReturn result) {
        if (result != platform::kIOReturnSuccess) throw std::runtime_error(platform::IOReturnText(result));
    }
    std::size_t index(int pipe) const { return pipe == interruptIn ? 0 : 1; }

    static void completed(void* refCon, IOReturn result, void* arg0) {
        auto& request = *static_cast<Request*>(refCon);
        Opened& self = *request.self;
        const auto count = reinterpret_cast<std::size_t>(arg0);
        Completion completion{request.pipe, result, {}, count};
        if (request.reads) {
            const auto& buffer = self.mBuffers[self.index(request.pipe)];
            completion.bytes.assign(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count));
        }
        self.completions.push_back(std::move(completion));
        self.calledInside = self.calledInside || self.mInCall;
        self.calledOnOtherThread = self.calledOnOtherThread || std::this_thread::get_id() != self.mThread;
        if (request.again && result == platform::kIOReturnSuccess) self.read(request.pipe, true);
    }

    UsbBackend& mBackend;
    std::string mMode;
    std::shared_ptr<platform::CFRunLoopSource> mSource;
    std::array<std::array<unsigned char, kReadSize>, 2> mBuffers{};
    std::vector<std::unique_ptr<Request>> mRequests;
    bool mInCall = false;
    std::thread::id mThread = std::this_thread::get_id();
};

inline platform::MatchingDictionary matchingTrovik() {
    auto matching = platform::IOServiceMatching(platform::kIOUSBDeviceClassName);
    matching.properties = {{"idVendor", platform::kTrovikVendorId}, {"idProduct", 3}, {"bcdDevice", 1}};
    return matching;
}

struct Found {
    std::string path;
    std::uint64_t id = 0;
};

inline std::vector<Found> drain(platform::IOIterator& iterator) {
    std::vector<Found> found;
    while (const auto entry = iterator.IOIteratorNext()) {
        Found one;
        EXPECT_EQ(entry->IORegistryEntryGetPath(platform::kIOServicePlane, one.path), platform::kIOReturnSuccess);
        EXPECT_EQ(entry->IORegistryEntryGetRegistryEntryID(one.id), platform::kIOReturnSuccess);
        found.push_back(one);
    }
    return found;
}

inline std::vector<Found> present(platform::IORegistry& registry) {
    std::unique_ptr<platform::IOIterator> iterator;
    EXPECT_EQ(registry.IOServiceGetMatchingServices(matchingTrovik(), iterator), platform::kIOReturnSuccess);
    return iterator ? drain(*iterator) : std::vector<Found>{};
}

/// A packet that is `size` bytes long with its header, filled with a pattern.
inline UsbPacket packetOfSize(std::size_t size, std::uint16_t id = 77) {
    UsbPacket packet{simulator::kApplicationLayer, id, Bytes(size - simulator::kHeaderSize)};
    for (std::size_t i = 0; i < packet.data.size(); ++i) packet.data[i] = static_cast<unsigned char>(i * 7 + i / 256);
    return packet;
}

inline const Bytes kStart = simulator::encodePacket({simulator::kUsbLayer, simulator::kStartSession, {}});

}  // namespace contract

template <typename Backend>
class UsbContract : public ::testing::Test {
  protected:
    std::string plugged() {
        backend.plug();
        const auto found = contract::present(backend.registry());
        EXPECT_EQ(found.size(), 1u);
        return found.empty() ? std::string() : found.front().path;
    }
    void setRoute(simulator::AnswerRoute route) {
        backend.withDevice([&](simulator::Device& device, simulator::Time) { device.profile().route = route; });
    }
    void send(const simulator::UsbPacket& packet) {
        backend.withDevice([&](simulator::Device& device, simulator::Time now) { device.send(packet, now); });
    }
    void addFault(const simulator::Fault& fault) {
        backend.withDevice([&](simulator::Device& device, simulator::Time) { device.addFault(fault); });
    }
    std::vector<simulator::Bytes> received() {
        std::vector<simulator::Bytes> packets;
        backend.withDevice([&](simulator::Device& device, simulator::Time) { packets = device.record().received(); });
        return packets;
    }

    Backend backend;
};

TYPED_TEST_SUITE_P(UsbContract);

TYPED_TEST_P(UsbContract, PresentDeviceIsFoundByItsPathAndForgottenWhenItLeaves) {
    auto& registry = this->backend.registry();
    EXPECT_TRUE(contract::present(registry).empty());

    this->backend.plug();
    const auto first = contract::present(registry);
    ASSERT_EQ(first.size(), 1u);
    EXPECT_LT(first[0].path.size(), 512u);
    const auto entry = registry.IORegistryEntryFromPath(first[0].path);
    ASSERT_TRUE(entry);
    std::string path;
    EXPECT_EQ(entry->IORegistryEntryGetPath("IOPower", path), platform::kIOReturnNotFound);

    this->backend.unplug();
    EXPECT_TRUE(contract::present(registry).empty());
    EXPECT_EQ(entry->IORegistryEntryGetPath(platform::kIOServicePlane, path), platform::kIOReturnNoDevice);
    EXPECT_FALSE(registry.IORegistryEntryFromPath(first[0].path));

    this->backend.plug();
    const auto second = contract::present(registry);
    ASSERT_EQ(second.size(), 1u);
    EXPECT_EQ(second[0].path, first[0].path) << "the path belongs to the port";
    EXPECT_NE(second[0].id, first[0].id) << "the id belongs to the attach";
    EXPECT_FALSE(registry.IORegistryEntryFromPath(first[0].path + "x"));
}

TYPED_TEST_P(UsbContract, NotificationTellsOfNewMatchesOnly) {
    struct Seen {
        std::vector<std::string> paths;
        int calls = 0;
        static void callback(void* refCon, platform::IOIterator& iterator) {
            auto& self = *static_cast<Seen*>(refCon);
            ++self.calls;
            for (const auto& one : contract::drain(iterator)) self.paths.push_back(one.path);
        }
    } seen;
    auto& registry = this->backend.registry();
    auto& loop = this->backend.loop();
    const std::string path = this->plugged();

    auto port = registry.IONotificationPortCreate();
    loop.CFRunLoopAddSource(port->IONotificationPortGetRunLoopSource(), platform::kCFRunLoopDefaultMode);
    std::unique_ptr<platform::IOIterator> iterator;
    EXPECT_EQ(registry.IOServiceAddMatchingNotification(*port, "IOServiceTerminate", contract::matchingTrovik(),
                                                        Seen::callback, &seen, iterator),
              platform::kIOReturnUnsupported);
    ASSERT_EQ(registry.IOServiceAddMatchingNotification(*port, platform::kIOServiceMatched, contract::matchingTrovik(),
                                                        Seen::callback, &seen, iterator),
              platform::kIOReturnSuccess);
    EXPECT_EQ(contract::drain(*iterator).size(), 1u) << "what is there already";

    const auto run = [&](const std::function<bool()>& condition) {
        for (int slice = 0; slice < 200 && !condition(); ++slice) {
            loop.CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, 0.05, true);
        }
    };
    this->backend.unplug();
    this->backend.withDevice([](simulator::Device& device, simulator::Time) { device.profile().releaseNumber = 2; });
    this->backend.plug();
    this->backend.unplug();
    this->backend.withDevice([](simulator::Device& device, simulator::Time) { device.profile().releaseNumber = 1; });
    EXPECT_EQ(seen.calls, 0) << "only the loop may call back";
    this->backend.plug();
    run([&] { return seen.calls > 0; });
    EXPECT_EQ(seen.paths, std::vector{path}) << "the one of another release is not reported, nor the one present";

    // Nothing comes after the port has gone.
    loop.CFRunLoopRemoveSource(port->IONotificationPortGetRunLoopSource());
    port.reset();
    this->backend.unplug();
    this->backend.plug();
    loop.CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, 0.05, false);
    EXPECT_EQ(seen.calls, 1);
}

TYPED_TEST_P(UsbContract, OpenedDeviceTellsItsIdsAndPipes) {
    contract::Opened opened(this->backend, this->plugged());
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    std::uint16_t release = 0;
    EXPECT_EQ(opened.device->GetDeviceVendor(vendor), platform::kIOReturnSuccess);
    EXPECT_EQ(opened.device->GetDeviceProduct(product), platform::kIOReturnSuccess);
    EXPECT_EQ(opened.device->GetDeviceReleaseNumber(release), platform::kIOReturnSuccess);
    EXPECT_EQ(vendor, platform::kTrovikVendorId);
    EXPECT_EQ(product, 3);
    EXPECT_EQ(release, 1);

    ASSERT_EQ(opened.pipes.size(), 3u);
    for (const auto& pipe : opened.pipes) EXPECT_EQ(pipe.maxPacketSize, 64);
    EXPECT_EQ(opened.pipes[0].transferType, platform::kUSBInterrupt);
    EXPECT_EQ(opened.pipes[0].direction, platform::kUSBIn);
    EXPECT_EQ(opened.pipes[1].direction, platform::kUSBIn);
    EXPECT_EQ(opened.pipes[2].direction, platform::kUSBOut);

    platform::PipeProperties properties;
    EXPECT_EQ(opened.interface->GetPipeProperties(0, properties), platform::kIOReturnBadArgument);
    EXPECT_EQ(opened.interface->GetPipeProperties(4, properties), platform::kIOReturnBadArgument);
    platform::IOUSBConfigurationDescriptor descriptor;
    EXPECT_EQ(opened.device->GetConfigurationDescriptorPtr(1, descriptor), platform::kIOReturnNotFound);
}

TYPED_TEST_P(UsbContract, CompletionsComeOnlyWhileTheModeRuns) {
    contract::Opened opened(this->backend, this->plugged());
    ASSERT_EQ(opened.read(opened.interruptIn), platform::kIOReturnSuccess);
    opened.writeWhole(contract::kStart);
    this->backend.loop().CFRunLoopRunInMode("another mode", 0.05, false);
    EXPECT_TRUE(opened.completions.empty());

    ASSERT_TRUE(opened.runUntilCompletions(2));
    const auto read = opened.on(opened.interruptIn);
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0].bytes, (contract::Bytes{0, 0, 0, 0, 6, 0, 0, 0, 4, 0, 0, 0, 0x4E, 0xC7, 0x3B, 0xE3}));
    const auto written = opened.on(opened.bulkOut);
    ASSERT_EQ(written.size(), 1u);
    EXPECT_EQ(written[0].count, 12u);
    EXPECT_FALSE(opened.calledInside);
    EXPECT_FALSE(opened.calledOnOtherThread);
}

TYPED_TEST_P(UsbContract, ReadEndsWithAShortPacketAnEmptyOneOrAFullBuffer) {
    this->setRoute(simulator::AnswerRoute::AllOnBulk);
    contract::Opened opened(this->backend, this->plugged());
    opened.read(opened.interruptIn, true);
    opened.read(opened.bulkIn, true);
    // Each run of the bulk pipe ends with an empty transfer of its own.
    const std::vector<std::pair<std::size_t, std::vector<std::size_t>>> cases = {
        {12, {12, 0}},         {63, {63, 0}},
        {64, {64, 0}},         {65, {65, 0}},
        {128, {128, 0}},       {4095, {4095, 0}},
        {4096, {4096, 0, 0}},  {4097, {4096, 1, 0}},
        {4116, {4096, 20, 0}}, {8192, {4096, 4096, 0, 0}}};
    for (const auto& one : cases) {
        const auto& size = one.first;
        const auto& lengths = one.second;
        SCOPED_TRACE(size);
        opened.completions.clear();
        const auto packet = contract::packetOfSize(size);
        this->send(packet);
        ASSERT_TRUE(opened.runUntil([&] { return opened.on(opened.bulkIn).size() >= lengths.size(); }));
        contract::Bytes all;
        std::vector<std::size_t> seen;
        for (const auto& read : opened.on(opened.bulkIn)) {
            EXPECT_EQ(read.result, platform::kIOReturnSuccess);
            seen.push_back(read.count);
            all.insert(all.end(), read.bytes.begin(), read.bytes.end());
        }
        EXPECT_EQ(seen, lengths);
        EXPECT_EQ(all, encodePacket(packet));
    }
}

TYPED_TEST_P(UsbContract, QueuedReadsAreServedInOrder) {
    contract::Opened opened(this->backend, this->plugged());
    for (int i = 0; i < 3; ++i) ASSERT_EQ(opened.read(opened.interruptIn), platform::kIOReturnSuccess);
    for (std::uint16_t id = 1; id <= 3; ++id) this->send(contract::packetOfSize(12u + id, id));
    ASSERT_TRUE(opened.runUntilCompletions(3));
    for (std::uint16_t id = 1; id <= 3; ++id) {
        EXPECT_EQ(opened.completions[id - 1u].bytes, encodePacket(contract::packetOfSize(12u + id, id)));
    }
}

TYPED_TEST_P(UsbContract, WriteOfAnExactMultipleEndsWithTheEmptyTransferOnly) {
    contract::Opened opened(this->backend, this->plugged());
    std::vector<contract::Bytes> expected;
    for (const std::size_t size : {12u, 63u, 65u, 4097u}) {
        expected.push_back(encodePacket(contract::packetOfSize(size)));
        opened.writeWhole(expected.back());
    }
    ASSERT_TRUE(opened.runUntilCompletions(4));
    EXPECT_EQ(this->received(), expected);

    expected.push_back(encodePacket(contract::packetOfSize(128)));
    ASSERT_EQ(opened.write(expected.back()), platform::kIOReturnSuccess);
    ASSERT_TRUE(opened.runUntilCompletions(5));
    EXPECT_EQ(opened.completions.back().count, 128u);
    EXPECT_EQ(this->received().size(), 4u) << "the device still waits for the end";
    ASSERT_EQ(opened.write({}), platform::kIOReturnSuccess);
    ASSERT_TRUE(opened.runUntilCompletions(6));
    EXPECT_EQ(opened.completions.back().count, 0u);
    EXPECT_EQ(this->received(), expected);
}

TYPED_TEST_P(UsbContract, AbortEndsEveryTransferOfThePipeOnce) {
    this->addFault(simulator::Fault::onPacket(77, simulator::FaultKind::NotTaken));
    contract::Opened opened(this->backend, this->plugged());
    opened.read(opened.interruptIn);
    opened.read(opened.interruptIn);
    opened.read(opened.bulkIn);
    opened.writeWhole(encodePacket(contract::packetOfSize(20)));
    ASSERT_EQ(opened.interface->AbortPipe(static_cast<std::uint8_t>(opened.interruptIn)), platform::kIOReturnSuccess);
    ASSERT_EQ(opened.interface->AbortPipe(static_cast<std::uint8_t>(opened.bulkOut)), platform::kIOReturnSuccess);
    ASSERT_TRUE(opened.runUntilCompletions(3));
    this->backend.loop().CFRunLoopRunInMode("contract", 0.02, false);
    ASSERT_EQ(opened.completions.size(), 3u) << "the bulk read goes on waiting";
    for (const auto& completion : opened.completions) EXPECT_EQ(completion.result, platform::kIOReturnAborted);
    EXPECT_FALSE(opened.calledInside);

    // The pipe is as good as before.
    opened.read(opened.interruptIn);
    this->send(contract::packetOfSize(30));
    ASSERT_TRUE(opened.runUntilCompletions(4));
    EXPECT_EQ(opened.completions.back().count, 30u);
}

TYPED_TEST_P(UsbContract, StallEndsTheTransferWithItsOwnResult) {
    this->addFault(simulator::Fault::onPacket(78, simulator::FaultKind::Stall));
    this->addFault(simulator::Fault::onPacket(simulator::kStartSession, simulator::FaultKind::Stall)
                       .withPipe(simulator::Pipe::InterruptIn));
    contract::Opened opened(this->backend, this->plugged());
    opened.read(opened.interruptIn);
    opened.writeWhole(contract::kStart);
    ASSERT_TRUE(opened.runUntilCompletions(2));
    EXPECT_EQ(opened.on(opened.interruptIn)[0].result, platform::kIOUSBPipeStalled);
    EXPECT_EQ(opened.on(opened.bulkOut)[0].result, platform::kIOReturnSuccess);
    opened.writeWhole(encodePacket(contract::packetOfSize(20, 78)));
    ASSERT_TRUE(opened.runUntilCompletions(3));
    EXPECT_EQ(opened.completions[2].result, platform::kIOUSBPipeStalled);
}

TYPED_TEST_P(UsbContract, UnplugEndsWhatIsUnderWayAndRefusesWhatFollows) {
    contract::Opened opened(this->backend, this->plugged());
    opened.read(opened.interruptIn);
    opened.read(opened.interruptIn);
    opened.read(opened.bulkIn);
    this->backend.unplug();
    ASSERT_TRUE(opened.runUntilCompletions(3));
    for (const auto& completion : opened.completions) EXPECT_EQ(completion.result, platform::kIOReturnNoDevice);
    EXPECT_EQ(opened.read(opened.interruptIn), platform::kIOReturnNoDevice);
    EXPECT_EQ(opened.write(contract::kStart), platform::kIOReturnNoDevice);

    // A device on the same port is another device to it.
    this->backend.plug();
    EXPECT_EQ(opened.read(opened.interruptIn), platform::kIOReturnNoDevice);
    opened.close();
    EXPECT_EQ(opened.completions.size(), 3u);
    contract::Opened again(this->backend, contract::present(this->backend.registry()).at(0).path);
    again.read(again.interruptIn);
    again.writeWhole(contract::kStart);
    EXPECT_TRUE(again.runUntilCompletions(2));
}

TYPED_TEST_P(UsbContract, FailureBehindASuccessComesInARunOfItsOwn) {
    contract::Opened opened(this->backend, this->plugged());
    opened.read(opened.bulkIn);
    opened.write(contract::kStart);
    for (int slice = 0; slice < 200 && this->received().empty(); ++slice) {
        this->backend.loop().CFRunLoopRunInMode("another mode", 0.05, true);
    }
    this->backend.unplug();
    ASSERT_TRUE(opened.runUntilCompletions(1));
    ASSERT_EQ(opened.completions.size(), 1u);
    EXPECT_EQ(opened.completions[0].pipe, opened.bulkOut);
    EXPECT_EQ(opened.completions[0].result, platform::kIOReturnSuccess);
    ASSERT_TRUE(opened.runUntilCompletions(2));
    EXPECT_EQ(opened.completions[1].result, platform::kIOReturnNoDevice);
}

TYPED_TEST_P(UsbContract, CloseTakesBackWhatIsPendingAndCompletesNothingMore) {
    const std::string path = this->plugged();
    for (int round = 0; round < 3; ++round) {
        contract::Opened opened(this->backend, path);
        opened.read(opened.interruptIn);
        opened.read(opened.bulkIn);
        opened.writeWhole(contract::kStart);
        // Some have ended by now, some have not; none may come once the interface is closed.
        opened.close();
        this->backend.loop().CFRunLoopRunInMode("contract", 0.02, false);
        EXPECT_TRUE(opened.completions.empty());
    }
    contract::Opened opened(this->backend, path);
    opened.read(opened.interruptIn);
    opened.writeWhole(contract::kStart);
    EXPECT_TRUE(opened.runUntilCompletions(2));
}

TYPED_TEST_P(UsbContract, TransferNeedsAnOpenedInterface) {
    contract::Opened opened(this->backend, this->plugged());
    opened.interface->USBInterfaceClose();
    EXPECT_EQ(opened.read(opened.interruptIn), platform::kIOReturnNotOpen);
    EXPECT_EQ(opened.write(contract::kStart), platform::kIOReturnNotOpen);
    ASSERT_EQ(opened.interface->USBInterfaceOpen(), platform::kIOReturnSuccess);
    EXPECT_EQ(opened.read(9), platform::kIOReturnBadArgument);
    EXPECT_EQ(opened.interface->AbortPipe(9), platform::kIOReturnBadArgument);
}

REGISTER_TYPED_TEST_SUITE_P(UsbContract, PresentDeviceIsFoundByItsPathAndForgottenWhenItLeaves,
                            NotificationTellsOfNewMatchesOnly, OpenedDeviceTellsItsIdsAndPipes,
                            CompletionsComeOnlyWhileTheModeRuns, ReadEndsWithAShortPacketAnEmptyOneOrAFullBuffer,
                            QueuedReadsAreServedInOrder, WriteOfAnExactMultipleEndsWithTheEmptyTransferOnly,
                            AbortEndsEveryTransferOfThePipeOnce, StallEndsTheTransferWithItsOwnResult,
                            UnplugEndsWhatIsUnderWayAndRefusesWhatFollows, FailureBehindASuccessComesInARunOfItsOwn,
                            CloseTakesBackWhatIsPendingAndCompletesNothingMore, TransferNeedsAnOpenedInterface);
