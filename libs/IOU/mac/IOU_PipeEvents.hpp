#pragma once

#include "platform/IOReturn.hpp"

#include <cstdint>

namespace iou {

struct UsbPacket_t;

/// What opening a device throws when it fails, once the failure has been reported.
inline constexpr int gcDeviceUnusable = 1;

/// What a device and its pipes tell whoever opened them. They know nothing else of it. Called on the thread that opened
/// the device: while it opens, and from completions, which run inside that thread's waits.
class PipeEventsIntf_t {
  public:
    /// A packet has come that MakeUsbPacket has passed.
    /// @param packet  its bytes are good for the call only
    virtual void SavePacket(const UsbPacket_t& packet) = 0;

    /// The write under way has ended, and so has the empty packet behind it where there had to be one.
    virtual void CompleteWrite() = 0;

    /// Something has failed; the device is of no more use.
    /// @param code  0 when there is none
    /// @param file  a text that lives as long as the process
    virtual void ReportErrorWithCode(platform::IOReturn code, const char* file, std::uint16_t line) = 0;
    void ReportError(const char* file, std::uint16_t line) { ReportErrorWithCode(0, file, line); }

    /// For the steps of opening a device: goes on after a success, reports anything else.
    /// @throws int  gcDeviceUnusable, after reporting
    void Require(platform::IOReturn result, const char* file, std::uint16_t line) {
        if (result == platform::kIOReturnSuccess) return;
        ReportErrorWithCode(result, file, line);
        throw gcDeviceUnusable;
    }

    /// The same for a step that fails without a result.
    [[noreturn]] void Refuse(const char* file, std::uint16_t line) {
        ReportError(file, line);
        throw gcDeviceUnusable;
    }

  protected:
    ~PipeEventsIntf_t() = default;
};

}  // namespace iou
