#include "platform/Boundary.hpp"

#include "platform/Platform.hpp"

namespace platform {
namespace {

constinit RaiseSiteReader gReader = nullptr;  // set while static objects are made, in no certain order

}  // namespace

void SetRaiseSiteReader(RaiseSiteReader reader) noexcept {
    gReader = reader;
}

void LogCaughtException(const char* file, int line) noexcept {
    try {
        std::string thrownIn;
        int thrownAt = 0;
        if (gReader && gReader(thrownIn, thrownAt)) {
            return NSLog("Exception thrown at %s, %d; caught at %s, %d\n", thrownIn.c_str(), thrownAt, file, line);
        }
    } catch (...) {
        // No memory for the file's name.
    }
    NSLog("Unknown exception caught at %s, %d\n", file, line);
}

}  // namespace platform
