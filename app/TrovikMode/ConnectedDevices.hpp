#pragma once

#include "platform/CFRunLoop.hpp"
#include "platform/IORegistry.hpp"

#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

/// One device in Trovik mode, as far as it is known without opening it.
struct ConnectedDevice {
    std::string path;  ///< in the device registry
    std::string port;  ///< where it is plugged in, "1-2.3"
    std::string name;  ///< of the model: one line, empty when the device has not said it

    bool operator==(const ConnectedDevice&) const = default;
};

/// Watches which devices in Trovik mode are connected. It tells what is there, whatever a reset makes of it, and never
/// opens a device: what one is called stands in the registry, until a command of the tool has identified it, which is
/// passed on by UsbTrovikModeIoLink.
///
/// The log gets a line for each device that has left, and one when there come to be several.
///
/// After each arrival and each departure it looks at all that is there, so an event too many or too few is put right by
/// the next one. Owned by the composition root, before which the platform must not go. One at a time: the link has one
/// observer.
class ConnectedDevices {
  public:
    /// @param observer  told the devices present, in the registry's order: once in the beginning, then after every
    ///                  change. Never where the registry refuses to tell of both arrivals and departures
    /// Callback on the main queue.
    explicit ConnectedDevices(std::function<void(const std::vector<ConnectedDevice>&)> observer);

    /// Ends the watch; the observer is not called any more. Main thread, and where watch() was called, that one.
    ~ConnectedDevices();
    ConnectedDevices(const ConnectedDevices&) = delete;
    ConnectedDevices& operator=(const ConnectedDevices&) = delete;

    /// Watches on a thread of its own, since the listener's is busy as long as it talks to a device. Where no thread is
    /// to be had, nothing is watched: a reset needs none of this. Once.
    void start();

    /// Watches on the calling thread's run loop, in its default mode. Once, instead of start().
    void watch();

  private:
    class Knowledge;

    static void arrived(void* refCon, platform::IOIterator& iterator);
    static void departed(void* refCon, platform::IOIterator& iterator);
    void look(const std::set<std::uint64_t>& departedIds);

    const std::shared_ptr<Knowledge> mKnowledge;  // shared with blocks and commands on their way
    std::unique_ptr<platform::IONotificationPort> mPort;
    std::future<std::shared_ptr<platform::CFRunLoop>> mLoop;  ///< the thread's; null where it could not have one
    std::thread mThread;
};
