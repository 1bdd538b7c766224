#include "platform/linux/LinuxPlatform.hpp"

#include "platform/Platform.hpp"
#include "platform/PropertyList.hpp"
#include "platform/common/EmptyBundle.hpp"
#include "platform/common/RunLoopMainQueue.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/settings/UserDefaults.hpp"
#include "platform/linux/usb/OpenFailure.hpp"
#include "platform/linux/usb/UdevRegistry.hpp"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform {
namespace {

/// What the library asks a program's bundle for, without files.
class ProgramBundle final : public EmptyBundle {
  public:
    explicit ProgramBundle(const LinuxPlatformOptions& options) : mIdentifier(options.identifier) {
        mInfo = {{"CFBundleName", PropertyList{options.name}},
                 {"CFBundleExecutable", PropertyList{options.name}},
                 {"CFBundleShortVersionString", PropertyList{options.version}},
                 {"CFBundleVersion", PropertyList{options.version}}};
    }

    std::string bundleIdentifier() const override { return mIdentifier; }

  private:
    const std::string mIdentifier;
};

void dropLine(const std::string&) {}

}  // namespace

struct LinuxPlatform::Parts {
    explicit Parts(const LinuxPlatformOptions& options)
        : logScope(withLog(options)),
          bundle(options),
          registry(runLoops),
          ownMainQueue(runLoops),
          scope(whole(options)) {}

    static Platform withLog(const LinuxPlatformOptions& options) {
        Platform platform = withLinuxFiles();
        platform.log = options.log ? options.log : dropLine;
        return platform;
    }

    Platform whole(const LinuxPlatformOptions& options) {
        Platform platform = withLog(options);
        platform.runLoops = &runLoops;
        platform.masterPort = &registry;
        platform.mainQueue = options.mainQueue ? options.mainQueue : &ownMainQueue;
        platform.mainBundle = &bundle;
        platform.describeOpenFailure = [](const std::string& path, IOReturn result) {
            return diagnoseOpenFailure(path, result).seen;
        };
        if (!options.identifier.empty()) platform.standardUserDefaults = &userDefaults.emplace(options.identifier);
        return platform;
    }

    const PlatformScope logScope;  // for what the next ones find damaged
    ProgramBundle bundle;
    AsioRunLoops runLoops;
    UdevRegistry registry;
    RunLoopMainQueue ownMainQueue;
    std::optional<UserDefaults> userDefaults;
    const PlatformScope scope;
};

LinuxPlatform::LinuxPlatform(const LinuxPlatformOptions& options) : mParts(std::make_unique<const Parts>(options)) {}
LinuxPlatform::~LinuxPlatform() = default;

int runLoopDescriptor() {
    return AsioRunLoops().current()->readinessDescriptor();
}

void serveRunLoop() {
    AsioRunLoops().current()->serveDefaultMode();
}

}  // namespace platform
