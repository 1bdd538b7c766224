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

void DemoDevice::change(const std::function<void(Device&)>& action) {
    mBus.withDevice(mPort, [&](Device& device, Time) { action(device); });
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
        const std::size_t first = mSeen > record.dropped() ? mSeen - record.dropped() : 0;
        for (std::size_t i = first; i < record.entries().size(); ++i) {
            const RecordEntry& entry = record.entries()[i];
            if (entry.kind == RecordEntry::Kind::State) view.news.push_back(entry.text);
            if (entry.kind == RecordEntry::Kind::Fault) view.news.push_back("fault: " + entry.text);
            if (entry.kind == RecordEntry::Kind::Refused) view.news.push_back("refused: " + entry.text);
        }
        mSeen = record.dropped() + record.entries().size();
    });
    return view;
}
