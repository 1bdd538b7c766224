#include "fuzz/Harness.hpp"

#include "GLO/GLO_String.hpp"
#include "IOU/IOU_DebugServer.hpp"
#include "WIN/WIN_DebugServer.hpp"
#include "libs/IOL/IOL_DebugServer.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "simulator/world/SimulatedServices.hpp"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <sanitizer/allocator_interface.h>
#include <stdlib.h>
#include <unistd.h>

namespace fuzz {
namespace {

// Of all threads together, in bytes. What was allocated before the hooks were set makes no difference: only growth
// counts.
std::atomic<std::ptrdiff_t> gHeld = 0;
std::atomic<std::ptrdiff_t> gPeak = 0;
std::ptrdiff_t gStart = 0;

void allocated(const volatile void*, std::size_t size) {
    const std::ptrdiff_t held = gHeld += static_cast<std::ptrdiff_t>(size);
    if (held > gPeak) gPeak = held;
}

void freed(const volatile void* memory) {
    gHeld -= static_cast<std::ptrdiff_t>(__sanitizer_get_allocated_size(const_cast<const void*>(memory)));
}

}  // namespace

void require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "%s\n", what);
    abort();
}

void traceIntoNothing() {
    static bool isDone = false;
    if (std::exchange(isDone, true)) return;
    std::string folder = std::filesystem::temp_directory_path() / "fuzz-XXXXXX";
    require(mkdtemp(folder.data()) && setenv("XDG_CACHE_HOME", folder.c_str(), 1) == 0, "no folder for traces");

    using platform::PropertyList;
    simulator::MemoryDefaults defaults;
    PropertyList tree{PropertyList::Dictionary{{"ShowDebug", {PropertyList::Data{1}}}}};
    for (const char* element : {"Settings", "Trovik", "Software"}) tree = {PropertyList::Dictionary{{element, tree}}};
    defaults.values["RegistryRoot"] = tree;
    defaults.values["ShowUsbDebug"] = {true};
    const platform::PlatformScope scope(platform::withLinuxFiles({.standardUserDefaults = &defaults}));
    for (win::DebugServer_t* const server : {&win::DebugServer(), &iol::DebugServer(), &iou::DebugServer()}) {
        require(server->IsEnabled(), "a trace is switched off");
        std::filesystem::create_symlink("/dev/null", glo::string(server->FilePath(), glo::gcUtf8Encoding));
        server->PrintStr("\n");  // opens it
    }
    std::filesystem::remove_all(folder);
}

void Limits::begin() {
    static const bool isHooked = __sanitizer_install_malloc_and_free_hooks(allocated, freed) != 0;
    require(isHooked, "no hooks of the allocator");
    mStart = mClock.CFAbsoluteTimeGetCurrent();
    gPeak = gStart = gHeld;
}

void Limits::end(double seconds, std::size_t bytes, const char* what) {
    const double took = mClock.CFAbsoluteTimeGetCurrent() - mStart;
    const std::ptrdiff_t held = gPeak - gStart;
    if (took <= seconds + 0.001 && held <= static_cast<std::ptrdiff_t>(bytes)) return;
    std::fprintf(stderr, "%s took %.3f s and %td bytes; %.3f s and %zu bytes are its limits.\n", what, took, held,
                 seconds, bytes);
    abort();
}

}  // namespace fuzz
