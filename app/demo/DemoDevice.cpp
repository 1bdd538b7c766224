#include "app/demo/DemoDevice.hpp"

#include <utility>

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

void DemoDevice::fillStore() {
    mBus.withDevice(mPort, [](Device& device, Time now) {
        device.store() = simulator::SettingsStore::wellUsed();
        device.record().add({RecordEntry::Kind::State, now, {}, {}, "store filled"});
    });
}

DemoDevice::View DemoDevice::look() {
    View view;
    mBus.withDevice(mPort, [&](const Device& device, Time now) {
        view.isAttached = device.isAttached();
        view.cable = device.cable();
        view.state = device.bootState();
        view.store = device.store().entries();
        for (const auto& fault : device.faults().pending()) view.pendingFaults.push_back(fault.name);

        const auto clock = std::chrono::system_clock::now();
        const auto& record = device.record();
        const std::size_t first = mSeen > record.dropped() ? mSeen - record.dropped() : 0;
        for (std::size_t i = first; i < record.entries().size(); ++i) {
            const RecordEntry& entry = record.entries()[i];
            std::string words = simulator::inWords(entry);
            if (words.empty()) continue;
            view.news.push_back({clock - (now - entry.time), entry.kind, entry.text, std::move(words)});
        }
        mSeen = record.dropped() + record.entries().size();
    });
    return view;
}
