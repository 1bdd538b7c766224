#include "platform/common/Boundary.hpp"

#include "platform/Platform.hpp"

namespace platform {
namespace {

constinit RaiseSiteReader gReader = nullptr;  // set while static objects are made, in no certain order

}  // namespace

void setRaiseSiteReader(RaiseSiteReader reader) noexcept {
    gReader = reader;
}

std::string caughtException(const char* file, int line) {
    const std::string caught = std::string(file) + ", " + std::to_string(line);
    std::string thrownIn;
    int thrownAt = 0;
    if (!gReader || !gReader(thrownIn, thrownAt)) return "Unknown exception caught at " + caught;
    return "Exception thrown at " + thrownIn + ", " + std::to_string(thrownAt) + "; caught at " + caught;
}

void logCaughtException(const char* file, int line) noexcept {
    try {
        NSLog("%s\n", caughtException(file, line).c_str());
    } catch (...) {
        NSLog("Unknown exception caught at %s, %d\n", file, line);
    }
}

}  // namespace platform
