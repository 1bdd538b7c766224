#pragma once

#include "simulator/bus/InProcessBus.hpp"
#include "simulator/engine/RealTimeDrive.hpp"
#include "simulator/engine/Record.hpp"

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

/// The demo's one simulated device, on a bus of its own in real time. Any thread.
class DemoDevice {
  public:
    /// What happened to the device, or what it did.
    struct News {
        std::chrono::system_clock::time_point when;
        simulator::RecordEntry::Kind kind = simulator::RecordEntry::Kind::State;
        std::string name;   ///< of a fault
        std::string words;  ///< for a person
    };

    /// What a person can see of the device at one moment.
    struct View {
        bool isAttached = false;
        bool cable = false;
        simulator::BootState state = simulator::BootState::Running;
        std::vector<simulator::SettingsStore::Entry> store;
        std::vector<std::string> pendingFaults;  ///< their names
        std::vector<News> news;                  ///< since the last look, oldest first
    };

    explicit DemoDevice(const simulator::Profile& profile);
    ~DemoDevice();
    DemoDevice(const DemoDevice&) = delete;
    DemoDevice& operator=(const DemoDevice&) = delete;

    simulator::InProcessBus& bus() { return mBus; }

    void plug() { mBus.plug(mPort); }
    void unplug() { mBus.unplug(mPort); }
    void change(const std::function<void(simulator::Device&)>& action);
    void fillStore();  ///< with what a device in use has stored; the record says so

    /// Main thread only: news are told once.
    View look();

  private:
    simulator::RealTimeDrive mDrive;
    simulator::InProcessBus mBus;
    std::size_t mPort;
    std::size_t mSeen = 0;  ///< entries of the device's record that were told as news
};
