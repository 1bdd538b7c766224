#include "simulator/bus/UsbObjects.hpp"

#include "platform/common/IOServiceList.hpp"

#include <utility>
#include <vector>

namespace simulator {
namespace {

using platform::IOReturn;

// Every object knows which attach it belongs to and asks the core before it does anything: an object of a device that
// has left answers kIOReturnNoDevice for ever, also when a device sits on the same port again.

struct Handle {
    std::shared_ptr<BusCore> core;
    Attachment attachment;
};

class UsbInterface final : public platform::IOUSBInterfaceInterface {
  public:
    explicit UsbInterface(Handle handle) : mHandle(std::move(handle)) {}
    ~UsbInterface() override { close(); }

    IOReturn USBInterfaceOpen() override {
        return on(BusOperation::USBInterfaceOpen, [&](BusPort& port, DeferredWork&) {
            if (!port.openedBy) return platform::kIOReturnNotOpen;
            if (port.connection) return platform::kIOReturnExclusiveAccess;
            mConnection = port.connection = std::make_shared<Connection>(mHandle.core);
            return platform::kIOReturnSuccess;
        });
    }

    IOReturn USBInterfaceClose() override { return close(); }

    IOReturn GetNumEndpoints(std::uint8_t& count) override {
        return on(BusOperation::GetNumEndpoints, [&](BusPort& port, DeferredWork&) {
            count = static_cast<std::uint8_t>(port.device.profile().pipes.size());
            return platform::kIOReturnSuccess;
        });
    }

    IOReturn GetPipeProperties(std::uint8_t pipeRef, platform::PipeProperties& properties) override {
        return on(BusOperation::GetPipeProperties, [&](BusPort& port, DeferredWork&) {
            if (!isPipe(port, pipeRef)) return platform::kIOReturnBadArgument;
            properties = port.device.profile().pipes[pipeRef - 1u];
            return platform::kIOReturnSuccess;
        });
    }

    IOReturn ReadPipeAsync(std::uint8_t pipeRef, std::span<unsigned char> buffer, platform::IOAsyncCallback1 callback,
                           void* refCon) override {
        Connection::Transfer transfer{{}, 0, buffer, callback, refCon};
        return start(BusOperation::ReadPipeAsync, platform::kUSBIn, pipeRef, std::move(transfer));
    }

    IOReturn WritePipeAsync(std::uint8_t pipeRef, std::span<const unsigned char> bytes,
                            platform::IOAsyncCallback1 callback, void* refCon) override {
        Connection::Transfer transfer{Bytes(bytes.begin(), bytes.end()), 0, {}, callback, refCon};
        return start(BusOperation::WritePipeAsync, platform::kUSBOut, pipeRef, std::move(transfer));
    }

    IOReturn AbortPipe(std::uint8_t pipeRef) override {
        return mHandle.core->locked([&](DeferredWork& after) -> IOReturn {
            const BusPort* port = mHandle.core->find(mHandle.attachment);
            if (!port) return platform::kIOReturnNoDevice;
            if (!mConnection) return platform::kIOReturnNotOpen;
            if (!isPipe(*port, pipeRef)) return platform::kIOReturnBadArgument;
            mConnection->completeAll(pipeRef - 1u, platform::kIOReturnAborted, after);
            return platform::kIOReturnSuccess;
        });
    }

    IOReturn CreateInterfaceAsyncEventSource(std::shared_ptr<platform::CFRunLoopSource>& source) override {
        return on(BusOperation::CreateInterfaceAsyncEventSource, [&](BusPort&, DeferredWork&) {
            if (!mConnection) return platform::kIOReturnNotOpen;
            source = mConnection;
            return platform::kIOReturnSuccess;
        });
    }

  private:
    template <typename Action>
    IOReturn on(BusOperation operation, Action action) {
        return mHandle.core->onDevice(mHandle.attachment, operation, action);
    }

    static bool isPipe(const BusPort& port, std::uint8_t pipeRef) {
        return pipeRef >= 1 && pipeRef <= port.device.profile().pipes.size() && pipeRef <= Connection::kMostPipes;
    }

    IOReturn start(BusOperation operation, std::uint8_t direction, std::uint8_t pipeRef,
                   Connection::Transfer transfer) {
        const IOReturn result = on(operation, [&](BusPort& port, DeferredWork&) {
            if (!mConnection) return platform::kIOReturnNotOpen;
            if (!isPipe(port, pipeRef) || port.device.profile().pipes[pipeRef - 1u].direction != direction) {
                return platform::kIOReturnBadArgument;
            }
            mConnection->pending(pipeRef - 1u).push_back(std::move(transfer));
            return platform::kIOReturnSuccess;  // it is served once this action has ended
        });
        if (result != platform::kIOReturnNoDevice) return result;
        return mHandle.core->locked([&](DeferredWork& after) -> IOReturn {
            if (!mConnection || !mConnection->isDelivering()) return result;
            mConnection->complete(std::move(transfer), result, after);  // behind what has ended before
            return platform::kIOReturnSuccess;
        });
    }

    /// Also right after the device has gone: what it left undelivered is taken back.
    IOReturn close() {
        return mHandle.core->locked([&](DeferredWork&) {
            if (!mConnection) return platform::kIOReturnNotOpen;
            mConnection->drop();
            if (BusPort* port = mHandle.core->find(mHandle.attachment)) {
                if (port->connection == mConnection) port->connection = nullptr;
            }
            mConnection = nullptr;
            return platform::kIOReturnSuccess;
        });
    }

    Handle mHandle;
    std::shared_ptr<Connection> mConnection;  ///< while open; guarded by the bus's lock
};

class UsbDevice final : public platform::IOUSBDeviceInterface {
  public:
    explicit UsbDevice(Handle handle) : mHandle(std::move(handle)) {}
    ~UsbDevice() override { USBDeviceClose(); }

    IOReturn USBDeviceOpen() override {
        return on(BusOperation::USBDeviceOpen, [&](BusPort& port, DeferredWork&) {
            if (port.openedBy) return platform::kIOReturnExclusiveAccess;
            port.openedBy = this;
            return platform::kIOReturnSuccess;
        });
    }

    IOReturn USBDeviceClose() override {
        return mHandle.core->locked([&](DeferredWork&) -> IOReturn {
            BusPort* port = mHandle.core->find(mHandle.attachment);
            if (!port) return platform::kIOReturnSuccess;
            if (port->openedBy != this) return platform::kIOReturnNotOpen;
            port->openedBy = nullptr;
            if (port->connection) port->connection->drop();
            port->connection = nullptr;
            return platform::kIOReturnSuccess;
        });
    }

    IOReturn GetConfigurationDescriptorPtr(std::uint8_t index,
                                           platform::IOUSBConfigurationDescriptor& descriptor) override {
        return on(BusOperation::GetConfigurationDescriptorPtr, [&](BusPort& port, DeferredWork&) {
            if (index != 0) return platform::kIOReturnNotFound;
            descriptor = {port.device.profile().configurationValue, 1};
            return platform::kIOReturnSuccess;
        });
    }

    IOReturn SetConfiguration(std::uint8_t configurationValue) override {
        return on(BusOperation::SetConfiguration, [&](BusPort& port, DeferredWork&) {
            if (port.openedBy != this) return platform::kIOReturnNotOpen;
            if (configurationValue != port.device.profile().configurationValue) return platform::kIOReturnNotFound;
            port.device.configured(mHandle.core->now());
            return platform::kIOReturnSuccess;
        });
    }

    IOReturn GetDeviceVendor(std::uint16_t& vendor) override {
        return on(BusOperation::GetDeviceVendor, [&](BusPort& port, DeferredWork&) {
            vendor = port.device.profile().vendorId;
            return platform::kIOReturnSuccess;
        });
    }
    IOReturn GetDeviceProduct(std::uint16_t& product) override {
        return on(BusOperation::GetDeviceProduct, [&](BusPort& port, DeferredWork&) {
            product = port.device.profile().productId;
            return platform::kIOReturnSuccess;
        });
    }
    IOReturn GetDeviceReleaseNumber(std::uint16_t& release) override {
        return on(BusOperation::GetDeviceReleaseNumber, [&](BusPort& port, DeferredWork&) {
            release = port.device.profile().releaseNumber;
            return platform::kIOReturnSuccess;
        });
    }

    IOReturn CreateInterfaceIterator(const platform::IOUSBFindInterfaceRequest& request,
                                     std::unique_ptr<platform::IOIterator>& iterator) override;

  private:
    template <typename Action>
    IOReturn on(BusOperation operation, Action action) {
        return mHandle.core->onDevice(mHandle.attachment, operation, action);
    }

    Handle mHandle;
};

class PlugIn final : public platform::IOCFPlugInInterface {
  public:
    PlugIn(Handle handle, bool ofInterface) : mHandle(std::move(handle)), mOfInterface(ofInterface) {}

    IOReturn QueryInterface(std::unique_ptr<platform::IOUSBDeviceInterface>& device) override {
        if (mOfInterface) return platform::kIOReturnUnsupported;
        return make<UsbDevice>(BusOperation::QueryDeviceInterface, device);
    }
    IOReturn QueryInterface(std::unique_ptr<platform::IOUSBInterfaceInterface>& interface) override {
        if (!mOfInterface) return platform::kIOReturnUnsupported;
        return make<UsbInterface>(BusOperation::QueryInterfaceInterface, interface);
    }

  private:
    template <typename Object, typename Port>
    IOReturn make(BusOperation operation, std::unique_ptr<Port>& object) {
        return mHandle.core->onDevice(mHandle.attachment, operation, [&](BusPort&, DeferredWork&) {
            object = std::make_unique<Object>(mHandle);
            return platform::kIOReturnSuccess;
        });
    }

    Handle mHandle;
    bool mOfInterface;
};

/// A device, or the one interface of a device.
class Entry final : public platform::IOService {
  public:
    Entry(Handle handle, bool ofInterface) : mHandle(std::move(handle)), mOfInterface(ofInterface) {}

    IOReturn IORegistryEntryGetPath(const std::string& plane, std::string& path) override {
        return mHandle.core->onDevice(mHandle.attachment, BusOperation::IORegistryEntryGetPath,
                                      [&](BusPort& port, DeferredWork&) {
                                          if (plane != platform::kIOServicePlane) return platform::kIOReturnNotFound;
                                          path = port.path + (mOfInterface ? "/Interface@0" : "");
                                          return platform::kIOReturnSuccess;
                                      });
    }

    IOReturn IORegistryEntryGetRegistryEntryID(std::uint64_t& entryId) override {
        return mHandle.core->locked([&](DeferredWork&) {
            entryId = mHandle.attachment.entryId;
            BusPort* const port = mHandle.core->find(mHandle.attachment);
            return port ? port->device.failure(BusOperation::IORegistryEntryGetRegistryEntryID, mHandle.core->now())
                        : platform::kIOReturnSuccess;
        });
    }

    IOReturn IORegistryEntryGetName(std::string& name) override {
        name = "1-" + std::to_string(mHandle.attachment.port + 1) + (mOfInterface ? ":1.0" : "");
        return platform::kIOReturnSuccess;
    }

    std::optional<platform::PropertyList> IORegistryEntryCreateCFProperty(const std::string& key) override {
        if (mOfInterface) return std::nullopt;
        return mHandle.core->locked([&](DeferredWork&) {
            return propertyOf(mHandle.core->ports().at(mHandle.attachment.port)->device.profile(), key);
        });
    }

    IOReturn IOCreatePlugInInterfaceForService(platform::IOUserClientType type,
                                               std::unique_ptr<platform::IOCFPlugInInterface>& plugIn) override {
        const bool wantsInterface = type == platform::IOUserClientType::kIOUSBInterfaceUserClientTypeID;
        const auto operation = mOfInterface ? BusOperation::CreateInterfacePlugIn : BusOperation::CreateDevicePlugIn;
        return mHandle.core->onDevice(mHandle.attachment, operation, [&](BusPort&, DeferredWork&) {
            if (wantsInterface != mOfInterface) return platform::kIOReturnUnsupported;
            plugIn = std::make_unique<PlugIn>(mHandle, mOfInterface);
            return platform::kIOReturnSuccess;
        });
    }

  private:
    Handle mHandle;
    bool mOfInterface;
};

/// At most the one interface that a device has.
class InterfaceIterator final : public platform::IOIterator {
  public:
    InterfaceIterator(Handle handle, bool fits) : mHandle(std::move(handle)), mFits(fits) {}

    std::unique_ptr<platform::IOService> IOIteratorNext() override {
        if (!std::exchange(mFits, false)) return nullptr;
        const IOReturn result =
            mHandle.core->onDevice(mHandle.attachment, BusOperation::InterfaceIteratorNext,
                                   [](BusPort&, DeferredWork&) { return platform::kIOReturnSuccess; });
        if (result != platform::kIOReturnSuccess) return nullptr;
        return std::make_unique<Entry>(mHandle, true);
    }

  private:
    Handle mHandle;
    bool mFits;
};

IOReturn UsbDevice::CreateInterfaceIterator(const platform::IOUSBFindInterfaceRequest& request,
                                            std::unique_ptr<platform::IOIterator>& iterator) {
    return on(BusOperation::CreateInterfaceIterator, [&](BusPort&, DeferredWork&) {
        iterator = std::make_unique<InterfaceIterator>(mHandle, request.fits({0xFF, 0, 0, 0}));
        return platform::kIOReturnSuccess;
    });
}

}  // namespace

std::unique_ptr<platform::IOIterator> makeDeviceIterator(const std::shared_ptr<BusCore>& core,
                                                         const std::vector<Attachment>& attachments) {
    std::vector<std::unique_ptr<platform::IOService>> entries;
    for (const auto& attachment : attachments) entries.push_back(makeDeviceEntry(core, attachment));
    return std::make_unique<platform::IOServiceList>(std::move(entries));
}

std::unique_ptr<platform::IOService> makeDeviceEntry(std::shared_ptr<BusCore> core, Attachment attachment) {
    return std::make_unique<Entry>(Handle{std::move(core), attachment}, false);
}

}  // namespace simulator
