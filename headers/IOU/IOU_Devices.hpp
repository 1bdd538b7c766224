#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "IOU/IOU_Exception.hpp"
#include "platform/IORegistry.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace iou {

/// One attach of a device.
struct AttachedDevice_t {
    std::string path;      ///< what UsbLink_t opens; it names the port, and stays when the device leaves and comes back
    std::uint64_t id = 0;  ///< of this attach; never used twice while the system is up

    bool operator==(const AttachedDevice_t&) const = default;  ///< @plain
};

/// What a device looks like in the registry: vendor, product and release. Any thread.
[[nodiscard]] platform::MatchingDictionary DeviceMatching();

/// The devices that are attached now, in the registry's order; one that leaves meanwhile is left out. Never waits for a
/// device. Any thread.
/// @throws iou::Exception_t  the registry can't be asked
[[nodiscard]] std::vector<AttachedDevice_t> AttachedDevices();

/// Tells of each device that attaches, for as long as it lives. Devices that are there already are told of first, so
/// that none is missed and none told of twice.
class AttachNotice_t : private glo::NonCopyable_t {
  public:
    /// Starts on the calling thread's run loop: nothing is told inside this call, and afterwards only while that thread
    /// serves its default mode (thr::ProcessMessageWithNoWait() and its kin, CFRunLoopRun).
    /// @param told  must not destroy this object; what it throws leaves the run of the loop. Callback on the calling
    ///              thread
    /// @throws iou::Exception_t  the registry refuses
    explicit AttachNotice_t(std::function<void(const AttachedDevice_t&)> told);

    /// Nothing is told after this. Owner thread only.
    ~AttachNotice_t();

  private:
    struct State;
    const std::shared_ptr<State> mState;  ///< shared: what waits in the loop looks whether it still lives
};

}  // namespace iou
