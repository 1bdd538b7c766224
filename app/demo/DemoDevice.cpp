#include "app/demo/DemoDevice.hpp"

using simulator::Device;
using simulator::RecordEntry;
using simulator::Time;

DemoDevice::DemoDevice(const simulator::Profile& profile) : mBus(mDrive), mPort(mBus.addDevice(profile)) {
    mDrive.start(mBus);
}

DemoDevice::~DemoDevice() {
    mBus.setObserver({});
    mDrive.requestStop();
    mDrive.join();
}

void DemoDevice::addFault(const simulator::Fault& fault) {
    mBus.withDevice(mPort, [&](Device& device, Time) { device.addFault(fault); });
}

void DemoDevice::clearFaults() {
    mBus.withDevice(mPort, [](Device& device, Time) { device.faults().clear(); });
}

void DemoDevice::fillStore() {
    mBus.withDevice(mPort, [](Device& device, Time) { device.store() = simulator::SettingsStore::wellUsed(); });
}

DemoDevice::View DemoDevice::look() {
    View view;
    mBus.withDevice(mPort, [&](Device& device, Time) {
        view.isAttached = device.isAttached();
        view.cable = device.cable();
        view.state = device.bootState();
        view.store = device.store().entries();
        for (const auto& fault : device.faults().pending()) view.pendingFaults.push_back(fault.name);

        const auto& record = device.record();
        const std::size_t count = record.dropped() + record.entries().size();
        const std::size_t first = mSeen > record.dropped() ? mSeen - record.dropped() : 0;
        for (std::size_t i = first; i < record.entries().size(); ++i) {
            const RecordEntry& entry = record.entries()[i];
            switch (entry.kind) {
                case RecordEntry::Kind::State:
                    view.news.push_back(entry.text);
                    break;
                case RecordEntry::Kind::Fault:
                    view.news.push_back("fault: " + entry.text);
                    break;
                case RecordEntry::Kind::Refused:
                    view.news.push_back("refused: " + entry.text);
                    break;
                case RecordEntry::Kind::Received:
                case RecordEntry::Kind::Sent:
                    break;
            }
        }
        mSeen = count;
    });
    return view;
}
