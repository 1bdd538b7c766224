#pragma once

#include "platform/Clock.hpp"
#include "platform/IORegistry.hpp"
#include "platform/IOReturn.hpp"

#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <string>

namespace platform {
class CFRunLoop;
}

namespace twin {

class GatedTransfers;

/// Stands between the device library and the USB port, one for each opening of a device, and ends what the library
/// waits for: a closed gate completes every pending transfer with kIOReturnNoDevice, as an unplug would, and refuses
/// all that comes after. The library then gives its link up in its own way; no other thread ever calls into the link.
///
/// A gate closes when it is told to, and by itself at its deadline. What is pending is completed on the thread that
/// owns the link, while it waits. It serves one opening at a time, that of the thread on which its Scope lives.
class UsbGate {
  public:
    enum class State { Open, Cancelled, TimeUp };

    static constexpr platform::CFAbsoluteTime kNever = std::numeric_limits<double>::infinity();

    /// @param entry  the one attach that may be opened through it; 0 for any. The library goes by the path, where
    ///               another device may sit by the time it opens it
    explicit UsbGate(platform::CFAbsoluteTime deadline = kNever, std::uint64_t entry = 0)
        : mEntry(entry), mDeadline(deadline) {}
    ~UsbGate();
    UsbGate(const UsbGate&) = delete;
    UsbGate& operator=(const UsbGate&) = delete;

    /// Makes a gate that of the calling thread for the life of this object.
    class Scope {
      public:
        explicit Scope(UsbGate& gate);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

      private:
        UsbGate* mPrevious;
    };

    /// Closes the gate for good; the first reason stays. Never blocks. Any thread.
    void close(State reason);

    /// The moment at which it closes by itself. Owner thread of the link only.
    void setDeadline(platform::CFAbsoluteTime deadline);

    [[nodiscard]] State state() const;

    /// The last result other than success of an opening or a transfer through this gate. Any thread.
    [[nodiscard]] platform::IOReturn lastFailure() const;

    /// @name For the gated port. Owner thread of the link only.
    /// @{
    static UsbGate* current();  ///< the calling thread's; null without one
    [[nodiscard]] bool isFor(platform::IOService& entry) const;
    [[nodiscard]] bool isOpen();  ///< closes it when its time is up
    platform::IOReturn note(platform::IOReturn result);
    void attach(const std::shared_ptr<GatedTransfers>& transfers);
    /// @}

  private:
    const std::uint64_t mEntry;
    mutable std::mutex mMutex;
    State mState = State::Open;                                    ///< under mMutex
    platform::IOReturn mLastFailure = platform::kIOReturnSuccess;  ///< under mMutex
    std::weak_ptr<GatedTransfers> mTransfers;                      ///< under mMutex
    platform::CFAbsoluteTime mDeadline;                            ///< owner thread
};

/// The device registry as it is, except that what a thread with a gate opens through it goes through that gate.
class GatedRegistry final : public platform::IORegistry {
  public:
    /// @param inner  must outlive this and all that was opened through it
    explicit GatedRegistry(platform::IORegistry& inner) : mInner(inner) {}

    platform::IOReturn IOServiceGetMatchingServices(const platform::MatchingDictionary& matching,
                                                    std::unique_ptr<platform::IOIterator>& iterator) override {
        return mInner.IOServiceGetMatchingServices(matching, iterator);
    }
    std::unique_ptr<platform::IONotificationPort> IONotificationPortCreate() override {
        return mInner.IONotificationPortCreate();
    }
    platform::IOReturn IOServiceAddMatchingNotification(platform::IONotificationPort& port, const std::string& type,
                                                        const platform::MatchingDictionary& matching,
                                                        platform::IOServiceMatchingCallback callback, void* refCon,
                                                        std::unique_ptr<platform::IOIterator>& iterator) override {
        return mInner.IOServiceAddMatchingNotification(port, type, matching, callback, refCon, iterator);
    }
    std::unique_ptr<platform::IOService> IORegistryEntryFromPath(const std::string& path) override;

  private:
    platform::IORegistry& mInner;
};

}  // namespace twin
