#include "cli/UsbGate.hpp"

#include "platform/CFRunLoop.hpp"
#include "platform/IOUSB.hpp"
#include "platform/Platform.hpp"
#include "platform/common/IOServiceList.hpp"

#include <list>
#include <span>
#include <utility>
#include <vector>

namespace twin {

using platform::IOReturn;

namespace {

thread_local UsbGate* gCurrent = nullptr;

}  // namespace

/// The transfers of one opened interface that have not been completed, and the event source through which the real ones
/// are delivered. Shared by the interface, the run loop and the gate. All but end() belongs to the owner thread.
class GatedTransfers final : public platform::CFRunLoopSource, public std::enable_shared_from_this<GatedTransfers> {
  public:
    explicit GatedTransfers(UsbGate& gate) : mGate(gate) {}

    template <typename Start>
    IOReturn start(platform::IOAsyncCallback1 callback, void* refCon, const Start& submit) {
        if (!mGate.isOpen()) return platform::kIOReturnNoDevice;
        Pending& pending = mPending.emplace_back(Pending{this, callback, refCon});
        const IOReturn result = mGate.note(submit(&GatedTransfers::completed, &pending));
        if (result != platform::kIOReturnSuccess) mPending.pop_back();  // nothing came in between: it was refused
        return result;
    }

    void setSource(std::shared_ptr<platform::CFRunLoopSource> inner) { mInner = std::move(inner); }

    /// Has the owner thread complete what is pending. Any thread.
    void end() {
        std::shared_ptr<platform::CFRunLoop> loop;
        std::string mode;
        {
            const std::lock_guard lock(mMutex);
            loop = mLoop;
            mode = mMode;
        }
        if (!loop) return;
        loop->CFRunLoopPerformBlock(mode, [weak = weak_from_this()] {
            if (const auto self = weak.lock()) self->completeAll();
        });
    }

    void setDeadline(platform::CFAbsoluteTime deadline) {
        if (mLoop && deadline < UsbGate::kNever)
            mTimer = mLoop->CFRunLoopAddTimer(mMode, deadline, 0, [this] { static_cast<void>(mGate.isOpen()); });
    }

    // platform::CFRunLoopSource
    void scheduled(const std::shared_ptr<platform::CFRunLoop>& loop, std::string_view mode) override {
        mInner->scheduled(loop, mode);
        {
            const std::lock_guard lock(mMutex);
            mLoop = loop;
            mMode = mode;
        }
        mGate.attach(shared_from_this());
    }
    void cancelled() override {
        mTimer.reset();
        {
            const std::lock_guard lock(mMutex);
            mLoop.reset();
        }
        mInner->cancelled();
    }

  private:
    struct Pending {
        GatedTransfers* owner;
        platform::IOAsyncCallback1 callback;  ///< null once it has been completed
        void* refCon;
    };

    static void completed(void* refCon, IOReturn result, void* bytes) {
        auto& pending = *static_cast<Pending*>(refCon);
        GatedTransfers& self = *pending.owner;
        const Pending ended = pending;
        self.mPending.remove_if([&](const Pending& one) { return &one == &pending; });
        if (ended.callback) ended.callback(ended.refCon, self.mGate.note(result), bytes);
    }

    /// The real transfers go on until the library closes the interface; what they complete then is nobody's any more.
    void completeAll() {
        // As the source is taken out, what was posted for its mode may still be run, and the pipes have gone by then.
        if (!mLoop) return;
        std::vector<Pending> ended;
        for (Pending& pending : mPending) {
            if (pending.callback) ended.push_back(pending);
            pending.callback = nullptr;
        }
        for (const Pending& pending : ended) pending.callback(pending.refCon, platform::kIOReturnNoDevice, nullptr);
    }

    UsbGate& mGate;
    std::list<Pending> mPending;  ///< a list: the platform holds pointers to its members
    std::shared_ptr<platform::CFRunLoopSource> mInner;
    std::unique_ptr<platform::CFRunLoopTimer> mTimer;
    std::mutex mMutex;
    std::shared_ptr<platform::CFRunLoop> mLoop;  ///< under mMutex; null while not scheduled
    std::string mMode;                           ///< under mMutex
};

namespace {

class GatedInterface final : public platform::IOUSBInterfaceInterface {
  public:
    GatedInterface(UsbGate& gate, std::unique_ptr<platform::IOUSBInterfaceInterface> inner)
        : mGate(gate), mTransfers(std::make_shared<GatedTransfers>(gate)), mInner(std::move(inner)) {}

    IOReturn USBInterfaceOpen() override { return mGate.note(mInner->USBInterfaceOpen()); }
    IOReturn USBInterfaceClose() override { return mInner->USBInterfaceClose(); }
    IOReturn GetNumEndpoints(std::uint8_t& count) override { return mInner->GetNumEndpoints(count); }
    IOReturn GetPipeProperties(std::uint8_t pipeRef, platform::PipeProperties& properties) override {
        return mInner->GetPipeProperties(pipeRef, properties);
    }
    IOReturn ReadPipeAsync(std::uint8_t pipeRef, std::span<unsigned char> buffer, platform::IOAsyncCallback1 callback,
                           void* refCon) override {
        return mTransfers->start(callback, refCon, [&](auto completed, void* own) {
            return mInner->ReadPipeAsync(pipeRef, buffer, completed, own);
        });
    }
    IOReturn WritePipeAsync(std::uint8_t pipeRef, std::span<const unsigned char> bytes,
                            platform::IOAsyncCallback1 callback, void* refCon) override {
        return mTransfers->start(callback, refCon, [&](auto completed, void* own) {
            return mInner->WritePipeAsync(pipeRef, bytes, completed, own);
        });
    }
    IOReturn AbortPipe(std::uint8_t pipeRef) override { return mInner->AbortPipe(pipeRef); }
    IOReturn CreateInterfaceAsyncEventSource(std::shared_ptr<platform::CFRunLoopSource>& source) override {
        std::shared_ptr<platform::CFRunLoopSource> inner;
        const IOReturn result = mInner->CreateInterfaceAsyncEventSource(inner);
        if (result != platform::kIOReturnSuccess) return result;
        mTransfers->setSource(std::move(inner));
        source = mTransfers;
        return result;
    }

  private:
    UsbGate& mGate;
    const std::shared_ptr<GatedTransfers> mTransfers;
    const std::unique_ptr<platform::IOUSBInterfaceInterface> mInner;  ///< last: takes its transfers back first
};

class GatedService final : public platform::IOService {
  public:
    GatedService(UsbGate& gate, std::unique_ptr<platform::IOService> inner) : mGate(gate), mInner(std::move(inner)) {}
    IOReturn IORegistryEntryGetPath(const std::string& plane, std::string& path) override {
        return mInner->IORegistryEntryGetPath(plane, path);
    }
    IOReturn IORegistryEntryGetRegistryEntryID(std::uint64_t& entryId) override {
        return mInner->IORegistryEntryGetRegistryEntryID(entryId);
    }
    IOReturn IORegistryEntryGetName(std::string& name) override { return mInner->IORegistryEntryGetName(name); }
    std::optional<platform::PropertyList> IORegistryEntryCreateCFProperty(const std::string& key) override {
        return mInner->IORegistryEntryCreateCFProperty(key);
    }
    IOReturn IOCreatePlugInInterfaceForService(platform::IOUserClientType type,
                                               std::unique_ptr<platform::IOCFPlugInInterface>& plugIn) override;

  private:
    UsbGate& mGate;
    const std::unique_ptr<platform::IOService> mInner;
};

class GatedDevice final : public platform::IOUSBDeviceInterface {
  public:
    GatedDevice(UsbGate& gate, std::unique_ptr<platform::IOUSBDeviceInterface> inner)
        : mGate(gate), mInner(std::move(inner)) {}
    IOReturn USBDeviceOpen() override {
        return mGate.isOpen() ? mGate.note(mInner->USBDeviceOpen()) : platform::kIOReturnNoDevice;
    }
    IOReturn USBDeviceClose() override { return mInner->USBDeviceClose(); }
    IOReturn GetConfigurationDescriptorPtr(std::uint8_t index,
                                           platform::IOUSBConfigurationDescriptor& descriptor) override {
        return mGate.note(mInner->GetConfigurationDescriptorPtr(index, descriptor));
    }
    IOReturn SetConfiguration(std::uint8_t value) override { return mGate.note(mInner->SetConfiguration(value)); }
    IOReturn GetDeviceVendor(std::uint16_t& vendor) override { return mInner->GetDeviceVendor(vendor); }
    IOReturn GetDeviceProduct(std::uint16_t& product) override { return mInner->GetDeviceProduct(product); }
    IOReturn GetDeviceReleaseNumber(std::uint16_t& release) override { return mInner->GetDeviceReleaseNumber(release); }
    IOReturn CreateInterfaceIterator(const platform::IOUSBFindInterfaceRequest& request,
                                     std::unique_ptr<platform::IOIterator>& iterator) override {
        std::unique_ptr<platform::IOIterator> inner;
        const IOReturn result = mGate.note(mInner->CreateInterfaceIterator(request, inner));
        if (!inner) return result;
        std::vector<std::unique_ptr<platform::IOService>> gated;
        while (auto entry = inner->IOIteratorNext()) {
            gated.push_back(std::make_unique<GatedService>(mGate, std::move(entry)));
        }
        iterator = std::make_unique<platform::IOServiceList>(std::move(gated));
        return result;
    }

  private:
    UsbGate& mGate;
    const std::unique_ptr<platform::IOUSBDeviceInterface> mInner;
};

class GatedPlugIn final : public platform::IOCFPlugInInterface {
  public:
    GatedPlugIn(UsbGate& gate, std::unique_ptr<platform::IOCFPlugInInterface> inner)
        : mGate(gate), mInner(std::move(inner)) {}
    IOReturn QueryInterface(std::unique_ptr<platform::IOUSBDeviceInterface>& device) override {
        return query<GatedDevice>(device);
    }
    IOReturn QueryInterface(std::unique_ptr<platform::IOUSBInterfaceInterface>& interface) override {
        return query<GatedInterface>(interface);
    }

  private:
    template <typename Gated, typename Port>
    IOReturn query(std::unique_ptr<Port>& object) {
        std::unique_ptr<Port> inner;
        const IOReturn result = mInner->QueryInterface(inner);
        if (inner) object = std::make_unique<Gated>(mGate, std::move(inner));
        return result;
    }

    UsbGate& mGate;
    const std::unique_ptr<platform::IOCFPlugInInterface> mInner;
};

IOReturn GatedService::IOCreatePlugInInterfaceForService(platform::IOUserClientType type,
                                                         std::unique_ptr<platform::IOCFPlugInInterface>& plugIn) {
    std::unique_ptr<platform::IOCFPlugInInterface> inner;
    const IOReturn result = mGate.note(mInner->IOCreatePlugInInterfaceForService(type, inner));
    if (inner) plugIn = std::make_unique<GatedPlugIn>(mGate, std::move(inner));
    return result;
}

}  // namespace

// ---- UsbGate

UsbGate::~UsbGate() = default;

UsbGate::Scope::Scope(UsbGate& gate) : mPrevious(std::exchange(gCurrent, &gate)) {}
UsbGate::Scope::~Scope() {
    gCurrent = mPrevious;
}

UsbGate* UsbGate::current() {
    return gCurrent;
}

bool UsbGate::isFor(platform::IOService& entry) const {
    std::uint64_t id = 0;
    return mEntry == 0 || (entry.IORegistryEntryGetRegistryEntryID(id) == platform::kIOReturnSuccess && id == mEntry);
}

void UsbGate::close(State reason) {
    std::shared_ptr<GatedTransfers> transfers;
    {
        const std::lock_guard lock(mMutex);
        if (mState == State::Open) mState = reason;
        transfers = mTransfers.lock();
    }
    if (transfers) transfers->end();
}

void UsbGate::setDeadline(platform::CFAbsoluteTime deadline) {
    mDeadline = deadline;
    std::shared_ptr<GatedTransfers> transfers;
    {
        const std::lock_guard lock(mMutex);
        transfers = mTransfers.lock();
    }
    if (transfers) transfers->setDeadline(deadline);
}

UsbGate::State UsbGate::state() const {
    const std::lock_guard lock(mMutex);
    return mState;
}

IOReturn UsbGate::lastFailure() const {
    const std::lock_guard lock(mMutex);
    return mLastFailure;
}

bool UsbGate::isOpen() {
    if (platform::CFAbsoluteTimeGetCurrent() >= mDeadline) close(State::TimeUp);
    return state() == State::Open;
}

IOReturn UsbGate::note(IOReturn result) {
    if (result == platform::kIOReturnSuccess || result == platform::kIOReturnAborted) return result;
    const std::lock_guard lock(mMutex);
    return mLastFailure = result;
}

void UsbGate::attach(const std::shared_ptr<GatedTransfers>& transfers) {
    {
        const std::lock_guard lock(mMutex);
        mTransfers = transfers;
    }
    transfers->setDeadline(mDeadline);
    if (!isOpen()) transfers->end();
}

std::unique_ptr<platform::IOService> GatedRegistry::IORegistryEntryFromPath(const std::string& path) {
    auto inner = mInner.IORegistryEntryFromPath(path);
    UsbGate* const gate = UsbGate::current();
    if (!inner || !gate) return inner;
    if (!gate->isFor(*inner)) return nullptr;
    return std::make_unique<GatedService>(*gate, std::move(inner));
}

}  // namespace twin
