#include "cli/Lookout.hpp"

#include "app/TrovikMode/USBTrovikModeFinderUtils.hpp"
#include "platform/Clock.hpp"
#include "platform/IOReturn.hpp"
#include "platform/Platform.hpp"

#include <algorithm>
#include <utility>

namespace twin {
namespace {

void takeAll(platform::IOIterator& iterator) {
    while (iterator.IOIteratorNext()) {
    }
}

}  // namespace

Lookout::Lookout()
    : mLoop(platform::CFRunLoopGetCurrent()), mPort(platform::kIOMasterPortDefault().IONotificationPortCreate()) {
    mLoop->CFRunLoopAddSource(mPort->IONotificationPortGetRunLoopSource(), platform::kCFRunLoopDefaultMode);
    for (const char* const type : {platform::kIOServiceMatched, platform::kIOServiceTerminate}) {
        std::unique_ptr<platform::IOIterator> iterator;
        if (platform::kIOMasterPortDefault().IOServiceAddMatchingNotification(
                *mPort, type, USBTrovikModeFinderUtils::createTMDeviceMatcher(), changed, this, iterator) !=
            platform::kIOReturnSuccess)
            continue;  // then there are the looks
        takeAll(*iterator);
        mNotifications.push_back(std::move(iterator));
    }
}

Lookout::~Lookout() {
    mLoop->CFRunLoopRemoveSource(mPort->IONotificationPortGetRunLoopSource());
}

void Lookout::changed(void* self, platform::IOIterator& iterator) {
    takeAll(iterator);
    auto& lookout = *static_cast<Lookout*>(self);
    lookout.mDue = std::min(lookout.mDue, lookout.mLast + lookout.mPause);
}

std::optional<std::vector<Device>> Lookout::look(double now) {
    mLast = now;
    mDue = now + kInterval;
    auto devices = attachedDevices();
    // With many devices looks are dear, and events are many.
    mPause = std::clamp(kLeisure * (platform::CFAbsoluteTimeGetCurrent() - now), kShortestInterval, kInterval);
    return devices;
}

}  // namespace twin
