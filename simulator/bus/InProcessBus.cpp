#include "simulator/bus/InProcessBus.hpp"

#include "simulator/bus/BusCore.hpp"
#include "simulator/bus/UsbObjects.hpp"

#include <algorithm>
#include <functional>
#include <utility>

namespace simulator {
namespace {

class NotificationPort final : public platform::IONotificationPort {
  public:
    explicit NotificationPort(std::shared_ptr<BusCore> core)
        : mCore(std::move(core)), mListener(std::make_shared<Listener>(mCore)) {
        mCore->locked([&](DeferredWork&) { mCore->addListener(mListener); });
    }
    ~NotificationPort() override { mListener->close(); }
    NotificationPort(const NotificationPort&) = delete;
    NotificationPort& operator=(const NotificationPort&) = delete;

    std::shared_ptr<platform::CFRunLoopSource> IONotificationPortGetRunLoopSource() override { return mListener; }

    Listener& listener() { return *mListener; }

  private:
    std::shared_ptr<BusCore> mCore;
    std::shared_ptr<Listener> mListener;
};

/// What was there when a notification was added. Whoever takes it to its end arms the notification.
class ArmingIterator final : public platform::IOIterator {
  public:
    ArmingIterator(std::unique_ptr<platform::IOIterator> present, std::function<void()> arm)
        : mPresent(std::move(present)), mArm(std::move(arm)) {}

    std::unique_ptr<platform::IOService> IOIteratorNext() override {
        auto entry = mPresent->IOIteratorNext();
        if (!entry && mArm) std::exchange(mArm, nullptr)();
        return entry;
    }

  private:
    std::unique_ptr<platform::IOIterator> mPresent;
    std::function<void()> mArm;
};

}  // namespace

InProcessBus::InProcessBus(Drive& drive) : mCore(std::make_shared<BusCore>(drive)) {}

InProcessBus::~InProcessBus() {
    mCore->locked([&](DeferredWork& after) { mCore->shutDown(after); });
}

std::size_t InProcessBus::addDevice(Profile profile, SettingsStore store) {
    return mCore->locked([&](DeferredWork&) {
        const std::size_t number = mCore->ports().size();
        auto path = "IOService:/SimulatedBus@0/Port@" + std::to_string(number + 1);
        mCore->ports().push_back(std::make_unique<BusPort>(std::move(profile), std::move(store), std::move(path)));
        return number;
    });
}

void InProcessBus::plug(const std::vector<std::size_t>& ports) {
    mCore->locked([&](DeferredWork&) {
        // All cables first, then one look at what the devices want: one notification for all of them.
        for (const std::size_t port : ports) mCore->ports().at(port)->device.setCable(true, mCore->now());
    });
}

void InProcessBus::unplug(std::size_t port) {
    withDevice(port, [](Device& device, Time now) { device.setCable(false, now); });
}

void InProcessBus::swap(std::size_t one, std::size_t other) {
    unplug(one);
    unplug(other);
    mCore->locked([&](DeferredWork&) { std::swap(mCore->ports().at(one)->device, mCore->ports().at(other)->device); });
}

void InProcessBus::closeAll() {
    mCore->locked([&](DeferredWork&) {
        for (const auto& port : mCore->ports()) {
            if (port->connection) port->connection->drop();
            port->connection = nullptr;
            port->openedBy = nullptr;
        }
    });
}

bool InProcessBus::isAttached(std::size_t port) const {
    return mCore->locked([&](DeferredWork&) { return mCore->ports().at(port)->attached; });
}

std::string InProcessBus::registryPath(std::size_t port) const {
    return mCore->locked([&](DeferredWork&) { return mCore->ports().at(port)->path; });
}

void InProcessBus::withDevice(std::size_t port, const std::function<void(Device&, Time)>& action) {
    mCore->locked([&](DeferredWork&) { action(mCore->ports().at(port)->device, mCore->now()); });
}

void InProcessBus::addFault(Fault fault) {
    mCore->locked([&](DeferredWork&) { mCore->faults().add(std::move(fault)); });
}

void InProcessBus::setObserver(std::function<void()> observer) {
    mCore->locked([&](DeferredWork&) { mCore->setObserver(std::move(observer)); });
}

std::size_t InProcessBus::pendingTransfers() const {
    return mCore->locked([&](DeferredWork&) {
        std::size_t count = 0;
        for (const auto& port : mCore->ports()) count += port->connection ? port->connection->count() : 0;
        return count;
    });
}

std::size_t InProcessBus::openDevices() const {
    return mCore->locked([&](DeferredWork&) {
        return static_cast<std::size_t>(
            std::ranges::count_if(mCore->ports(), [](const auto& port) { return port->openedBy != nullptr; }));
    });
}

platform::IOReturn InProcessBus::IOServiceGetMatchingServices(const platform::MatchingDictionary& matching,
                                                              std::unique_ptr<platform::IOIterator>& iterator) {
    return mCore->locked([&](DeferredWork&) {
        const auto failure = mCore->busFailure(BusOperation::IOServiceGetMatchingServices);
        if (failure == platform::kIOReturnSuccess) iterator = makeDeviceIterator(mCore, mCore->present(matching));
        return failure;
    });
}

std::unique_ptr<platform::IONotificationPort> InProcessBus::IONotificationPortCreate() {
    return std::make_unique<NotificationPort>(mCore);
}

platform::IOReturn InProcessBus::IOServiceAddMatchingNotification(
    platform::IONotificationPort& port, const std::string& type, const platform::MatchingDictionary& matching,
    platform::IOServiceMatchingCallback callback, void* refCon, std::unique_ptr<platform::IOIterator>& iterator) {
    // Ports of another registry can't be served from here.
    auto* own = dynamic_cast<NotificationPort*>(&port);
    if (!own) return platform::kIOReturnBadArgument;
    const bool tellsOfArrivals = type == platform::kIOServiceMatched;
    if (!tellsOfArrivals && type != platform::kIOServiceTerminate) return platform::kIOReturnUnsupported;
    return mCore->locked([&](DeferredWork&) {
        const auto failure = mCore->busFailure(BusOperation::IOServiceAddMatchingNotification);
        if (failure != platform::kIOReturnSuccess) return failure;
        // One lock over both, so that nothing falls between the list and the first notification.
        const std::size_t number = own->listener().add({type, matching, callback, refCon, {}});
        iterator = std::make_unique<ArmingIterator>(
            makeDeviceIterator(mCore, tellsOfArrivals ? mCore->present(matching) : std::vector<Attachment>()),
            [core = mCore, weak = own->listener().weak_from_this(), number] {
                const auto listener = weak.lock();
                if (listener) core->locked([&](DeferredWork& after) { listener->arm(number, after); });
            });
        return platform::kIOReturnSuccess;
    });
}

std::unique_ptr<platform::IOService> InProcessBus::IORegistryEntryFromPath(const std::string& path) {
    return mCore->locked([&](DeferredWork&) -> std::unique_ptr<platform::IOService> {
        if (mCore->busFailure(BusOperation::IORegistryEntryFromPath) != platform::kIOReturnSuccess) return nullptr;
        for (std::size_t i = 0; i < mCore->ports().size(); ++i) {
            BusPort& port = *mCore->ports()[i];
            if (port.path != path || !port.attached) continue;
            const auto failure = port.device.failure(BusOperation::IORegistryEntryFromPath, mCore->now());
            return failure == platform::kIOReturnSuccess ? makeDeviceEntry(mCore, {i, port.entryId}) : nullptr;
        }
        return nullptr;
    });
}

// The drive asks this right before it sleeps; from then on only an earlier moment wakes it.
std::optional<Time> InProcessBus::nextDue() {
    return mCore->locked([&](DeferredWork&) { return mCore->nextDue(); });
}

void InProcessBus::run(Time now) {
    mCore->locked([&](DeferredWork&) { mCore->advance(now); });
}

}  // namespace simulator
