#include "platform/linux/process/CrashHandler.hpp"

namespace {

[[maybe_unused]] const bool gIsInstalled = [] {
    platform::installCrashHandler("", "test");
    return true;
}();

}  // namespace
