#pragma once

#include "simulator/engine/Types.hpp"

#include <libudev.h>
#include <libusb.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace bench {

using simulator::Bytes;

/// One packet of a recorded reset.
struct Message {
    bool toDevice = false;
    Bytes bytes;
};

[[noreturn]] void Fail(const std::string& what);

/// The peer: a program that knows nothing but libusb and what to write next. It keeps a read waiting on the interrupt
/// pipe, reads the bulk pipe when the device has announced data, and writes the next packet when everything that came
/// before it in the recording has arrived.
class BareDevice {
  public:
    explicit BareDevice(const std::string& node);
    ~BareDevice();
    BareDevice(const BareDevice&) = delete;
    BareDevice& operator=(const BareDevice&) = delete;

    /// Plays one session of a recording, or the next part of it.
    void Play(const Message* first, const Message* last);

    /// With libusb's synchronous calls: one packet out, one packet in. Not beside Play.
    void WriteSync(const Bytes& bytes);
    std::size_t ReadSync();

  private:
    struct Read;

    void Write(Bytes bytes);
    void Start(std::uint8_t endpoint);
    void Received(Read& read);
    void HandleUntil(const std::function<bool()>& condition);

    int mNode = -1;
    libusb_context* mContext = nullptr;
    libusb_device_handle* mHandle = nullptr;
    std::vector<std::unique_ptr<Read>> mReads;
    std::size_t mPackets = 0;  ///< read so far, empty transfers not counted
    bool mPlaying = false;
};

/// Where the device's node is, found with libudev as a bare program would.
class BareDiscovery {
  public:
    BareDiscovery();
    ~BareDiscovery();
    BareDiscovery(const BareDiscovery&) = delete;
    BareDiscovery& operator=(const BareDiscovery&) = delete;

    std::string Present();
    std::map<std::string, std::string> AllPresent();  ///< by path in sysfs
    std::string NextAttach();
    void SkipPending();

    /// For a loop of one's own: readable when there is something to receive. That is the path and the node of a device
    /// that has come, or nothing.
    int Descriptor() const { return udev_monitor_get_fd(mMonitor); }
    std::pair<std::string, std::string> Received();

  private:
    udev* mUdev;
    udev_monitor* mMonitor;
};

}  // namespace bench
