#include "platform/linux/process/CrashHandler.hpp"

namespace {

[[maybe_unused]] const bool gIsInstalled = [] {
    platform::InstallCrashHandler("", "test");
    return true;
}();

}  // namespace
