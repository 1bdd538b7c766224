#include "platform/Platform.hpp"

#include "platform/CFRunLoop.hpp"
#include "platform/Directories.hpp"
#include "platform/DispatchSource.hpp"
#include "platform/FileAttributes.hpp"
#include "platform/NSBundle.hpp"
#include "platform/NSUserDefaults.hpp"
#include "platform/WallClock.hpp"
#include "platform/common/EmptyBundle.hpp"
#include "platform/common/MachineClock.hpp"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace platform {
namespace {

Platform gPlatform;

class NoDefaults final : public NSUserDefaults {
  public:
    std::optional<PropertyList> objectForKey(const std::string&) const override { return std::nullopt; }
    bool boolForKey(const std::string&) const override { return false; }
    std::int64_t integerForKey(const std::string&) const override { return 0; }
    PropertyList::Dictionary persistentDomainForName(const std::string&) const override { return {}; }
    bool setPersistentDomain(const PropertyList::Dictionary&, const std::string&) override { return false; }
};

class MachineWallClock final : public WallClock {
  public:
    Date now() override { return std::chrono::system_clock::now(); }
};

class NoAttributes final : public FileAttributes {
    int setxattr(const std::string&, const std::string&, const std::string&) override { return ENOTSUP; }
    int fsetxattr(int, const std::string&, const std::string&) override { return ENOTSUP; }
    int getxattr(const std::string&, const std::string&, std::string&) override { return ENOTSUP; }
    int removexattr(const std::string&, const std::string&) override { return ENOTSUP; }
    std::optional<std::chrono::system_clock::time_point> birthTime(const std::string&) override { return {}; }
};

class NoDirectories final : public Directories {
    std::string applicationSupportDirectory() const override { return {}; }
    std::string cachesDirectory() const override { return {}; }
    std::string preferencesDirectory() const override { return {}; }
};

class NoSources final : public DispatchSources {
    using Made = std::unique_ptr<DispatchSource>;
    Made dispatch_source_vnode(int, const std::string&, DispatchQueue&, Handler) override { return nullptr; }
    Made dispatch_source_timer(Date, DispatchQueue&, Handler) override { return nullptr; }
};

/// What the composition root left out and nothing can stand in for is a mistake in the program.
template <typename T>
T& required(T* object, const char* name) {
    if (!object) {
        std::fprintf(stderr, "No %s has been set.\n", name);
        std::abort();
    }
    return *object;
}

template <typename StandIn, typename Port>
Port& orStandIn(Port* object) {
    // Never destroyed: a thread may still ask while the process ends.
    static auto& standIn = *new StandIn;
    return object ? *object : standIn;
}

}  // namespace

PlatformScope::PlatformScope(const Platform& platform) : mPrevious(std::exchange(gPlatform, platform)) {}
PlatformScope::~PlatformScope() {
    gPlatform = mPrevious;
}

Clock& systemClock() {
    return orStandIn<MachineClock>(gPlatform.clock);
}

IORegistry& kIOMasterPortDefault() {
    return required(gPlatform.masterPort, "device registry");
}
std::shared_ptr<CFRunLoop> CFRunLoopGetCurrent() {
    return required(gPlatform.runLoops, "run loop").CFRunLoopGetCurrent();
}
MainQueue& dispatch_get_main_queue() {
    return required(gPlatform.mainQueue, "main queue");
}
DispatchQueue& dispatch_get_global_queue() {
    return required(gPlatform.globalQueue, "global queue");
}
ScriptRunner& scriptRunner() {
    return required(gPlatform.scriptRunner, "script runner");
}
NSExceptionHandler& defaultExceptionHandler() {
    return required(gPlatform.exceptionHandler, "exception handler");
}

NSBundle& mainBundle() {
    return orStandIn<EmptyBundle>(gPlatform.mainBundle);
}

NSUserDefaults& standardUserDefaults() {
    return orStandIn<NoDefaults>(gPlatform.standardUserDefaults);
}

WallClock& wallClock() {
    return orStandIn<MachineWallClock>(gPlatform.wallClock);
}

FileAttributes& fileAttributes() {
    return orStandIn<NoAttributes>(gPlatform.fileAttributes);
}

Directories& directories() {
    return orStandIn<NoDirectories>(gPlatform.directories);
}

DispatchSources& dispatchSources() {
    return orStandIn<NoSources>(gPlatform.dispatchSources);
}

std::string lockFolder() {
    return gPlatform.lockFolder;
}

double CFAbsoluteTimeGetCurrent() {
    return systemClock().CFAbsoluteTimeGetCurrent();
}

std::string openFailureText(const std::string& registryPath, IOReturn result) {
    return gPlatform.describeOpenFailure ? gPlatform.describeOpenFailure(registryPath, result) : std::string();
}

SystemSurvey surveySystem() {
    return gPlatform.surveySystem ? gPlatform.surveySystem() : SystemSurvey();
}

void NSLog(const char* format, ...) {
    char beginning[1024];  // all that is written of a long line for which there is no memory
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    const int size = std::vsnprintf(beginning, sizeof beginning, format, arguments);
    va_end(arguments);
    std::string line;
    bool isLogged = false;
    try {
        line = beginning;
        if (size >= static_cast<int>(sizeof beginning)) {
            std::string whole(static_cast<std::size_t>(size), '\0');
            std::vsnprintf(whole.data(), whole.size() + 1, format, again);
            line = std::move(whole);
        }
        if (gPlatform.log) {
            gPlatform.log(line);
            isLogged = true;
        }
    } catch (...) {
        // Falls back to standard error: the last place to complain must not fail itself.
    }
    va_end(again);
    const char* const text = line.empty() ? beginning : line.c_str();
    if (!isLogged) std::fprintf(stderr, "%s%s", text, std::string_view(text).ends_with('\n') ? "" : "\n");
}

std::string CFUUIDCreateString() {
    // One question to the kernel: std::random_device may ask the processor, microseconds for each number.
    std::array<unsigned char, 16> bytes;
    if (::getentropy(bytes.data(), bytes.size()) != 0) throw std::system_error(errno, std::generic_category());
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0x0F];
    }
    return text;
}

}  // namespace platform
