#include "tests/support/ScriptedUsb.hpp"

#include "platform/VendorId.hpp"

#include <algorithm>
#include <utility>

namespace support {

using namespace platform;
using simulator::Time;

/// Whatever the registry hands out, from the device's entry to its interface and that one's event source: each is used
/// as what it was asked for as.
class ScriptedUsb::Node final : public IOService,
                                public IOIterator,
                                public IOCFPlugInInterface,
                                public IOUSBDeviceInterface,
                                public IOUSBInterfaceInterface,
                                public CFRunLoopSource {
  public:
    explicit Node(ScriptedUsb& usb) : mUsb(usb) {}

    // IOService, IOIterator
    IOReturn IORegistryEntryGetPath(const std::string&, std::string& found) override { return give(found, mUsb.path); }
    IOReturn IORegistryEntryGetRegistryEntryID(std::uint64_t& entryId) override { return give(entryId, 1U); }
    IOReturn IORegistryEntryGetName(std::string& name) override { return give(name, "1-1"); }
    std::optional<PropertyList> IORegistryEntryCreateCFProperty(const std::string&) override { return std::nullopt; }
    IOReturn IOCreatePlugInInterfaceForService(IOUserClientType,
                                               std::unique_ptr<IOCFPlugInInterface>& plugIn) override {
        return give(plugIn, node());
    }
    std::unique_ptr<IOService> IOIteratorNext() override { return std::exchange(mIsTaken, true) ? nullptr : node(); }

    // IOCFPlugInInterface
    IOReturn QueryInterface(std::unique_ptr<IOUSBDeviceInterface>& device) override { return give(device, node()); }
    IOReturn QueryInterface(std::unique_ptr<IOUSBInterfaceInterface>& interface) override {
        return give(interface, node());
    }

    // IOUSBDeviceInterface
    IOReturn USBDeviceOpen() override {
        mUsb.mClock.advanceBy(mUsb.opensIn);
        return kIOReturnSuccess;
    }
    IOReturn USBDeviceClose() override { return kIOReturnSuccess; }
    IOReturn GetConfigurationDescriptorPtr(std::uint8_t, IOUSBConfigurationDescriptor& found) override {
        return give(found, IOUSBConfigurationDescriptor{1, 1});
    }
    IOReturn SetConfiguration(std::uint8_t) override { return kIOReturnSuccess; }
    IOReturn GetDeviceVendor(std::uint16_t& vendor) override { return give(vendor, kTrovikVendorId); }
    IOReturn GetDeviceProduct(std::uint16_t& product) override { return give(product, std::uint16_t{3}); }
    IOReturn GetDeviceReleaseNumber(std::uint16_t& release) override { return give(release, std::uint16_t{1}); }
    IOReturn CreateInterfaceIterator(const IOUSBFindInterfaceRequest& wanted,
                                     std::unique_ptr<IOIterator>& iterator) override {
        if (wanted != IOUSBFindInterfaceRequest{}) return kIOReturnNotFound;  // it fits nothing else
        return give(iterator, node());
    }

    // IOUSBInterfaceInterface
    IOReturn USBInterfaceOpen() override { return give(mUsb.mIsOpen, std::make_shared<bool>()); }
    IOReturn USBInterfaceClose() override {
        mUsb.mReads.clear();
        mUsb.mEvents.clear();
        return give(mUsb.mIsOpen, nullptr);
    }
    IOReturn GetNumEndpoints(std::uint8_t& count) override {
        return give(count, static_cast<std::uint8_t>(mUsb.pipes.size()));
    }
    IOReturn GetPipeProperties(std::uint8_t pipeRef, PipeProperties& properties) override {
        return give(properties, mUsb.pipes.at(pipeRef - 1U));
    }
    IOReturn ReadPipeAsync(std::uint8_t pipeRef, std::span<unsigned char> buffer, IOAsyncCallback1 callback,
                           void* refCon) override {
        mUsb.mReads[pipeRef].push_back({buffer, callback, refCon});
        mUsb.pump();
        return kIOReturnSuccess;
    }
    IOReturn WritePipeAsync(std::uint8_t, std::span<const unsigned char> bytes, IOAsyncCallback1 callback,
                            void* refCon) override {
        mUsb.writes.emplace_back(bytes.begin(), bytes.end());
        WriteEnd end;
        if (!mUsb.mWriteEnds.empty()) {
            end = mUsb.mWriteEnds.front();
            mUsb.mWriteEnds.pop_front();
        }
        if (end.count == 0 && end.result == kIOReturnSuccess) end.count = bytes.size();
        if (!end.ends) return kIOReturnSuccess;
        mUsb.add(mUsb.mClock.now() + end.delay, [&usb = mUsb, end, callback, refCon] {
            usb.post([end, callback, refCon] {
                if (end.raise) end.raise();
                callback(refCon, end.result, reinterpret_cast<void*>(end.count));
            });
            return true;
        });
        return kIOReturnSuccess;
    }
    IOReturn AbortPipe(std::uint8_t pipeRef) override {
        for (const auto& read : std::exchange(mUsb.mReads[pipeRef], {}))
            mUsb.post([read] { read.callback(read.refCon, kIOReturnAborted, nullptr); });
        return kIOReturnSuccess;
    }
    IOReturn CreateInterfaceAsyncEventSource(std::shared_ptr<CFRunLoopSource>& source) override {
        return give(source, std::make_shared<Node>(mUsb));
    }

    // CFRunLoopSource
    void scheduled(const std::shared_ptr<CFRunLoop>& loop, std::string_view mode) override {
        mUsb.mLoop = loop;
        mUsb.mMode = mode;
        mUsb.pump();
    }
    void cancelled() override { mUsb.mLoop.reset(); }

  private:
    template <typename To, typename From>
    static IOReturn give(To& to, From from) {
        to = std::move(from);
        return kIOReturnSuccess;
    }
    std::unique_ptr<Node> node() const { return std::make_unique<Node>(mUsb); }

    ScriptedUsb& mUsb;
    bool mIsTaken = false;
};

void ScriptedUsb::brings(std::uint8_t pipe, Bytes bytes, IOReturn result, simulator::Duration delay,
                         std::optional<std::uint64_t> count, unsigned times) {
    mLastDue = std::max(mLastDue, mClock.now()) + delay;
    add(mLastDue, [this, pipe, bytes = std::move(bytes), result, count, left = times]() mutable {
        for (auto& waiting = mReads[pipe]; left > 0 && !waiting.empty(); --left) {
            // The reads of a pipe share a buffer, so it is filled only right before the completion.
            post([read = waiting.front(), bytes, result, count] {
                const auto size = std::min(bytes.size(), read.buffer.size());
                std::copy_n(bytes.begin(), size, read.buffer.begin());
                read.callback(read.refCon, result, reinterpret_cast<void*>(count.value_or(size)));
            });
            waiting.pop_front();
        }
        return left == 0;
    });
}

void ScriptedUsb::bringsPacket(std::uint8_t pipe, const Bytes& packet) {
    for (std::size_t offset = 0; offset <= packet.size(); offset += 4096) {
        const auto rest = std::span(packet).subspan(offset);
        const auto part = rest.first(std::min<std::size_t>(4096, rest.size()));
        brings(pipe, Bytes(part.begin(), part.end()));
    }
}

IOReturn ScriptedUsb::IOServiceGetMatchingServices(const MatchingDictionary&, std::unique_ptr<IOIterator>& iterator) {
    iterator = std::make_unique<Node>(*this);
    return kIOReturnSuccess;
}
std::unique_ptr<IOService> ScriptedUsb::IORegistryEntryFromPath(const std::string& wanted) {
    return wanted == path ? std::make_unique<Node>(*this) : nullptr;
}

std::optional<Time> ScriptedUsb::nextDue() {
    std::optional<Time> next;
    for (const auto& event : mEvents)
        if (event.due > mPumped && (!next || event.due < *next)) next = event.due;
    return next;
}

void ScriptedUsb::run(Time now) {
    mPumped = now;
    if (mLoop && mIsOpen) mEvents.remove_if([now](const Event& event) { return event.due <= now && event.happens(); });
}

void ScriptedUsb::add(Time due, std::function<bool()> happens) {
    mEvents.push_back({due, std::move(happens)});
    pump();
}

/// Hands work to the loop; it is dropped if the interface has closed by the time its turn comes.
void ScriptedUsb::post(std::function<void()> work) {
    if (!mLoop) return;
    mLoop->CFRunLoopPerformBlock(mMode, [open = std::weak_ptr(mIsOpen), work = std::move(work)] {
        if (open.lock()) work();
    });
}

}  // namespace support
