// What becomes of a log call for which there is no memory.
#include <cstdlib>
#include <new>

#include "app/Util/Logging/DDLog.hpp"
#include "tests/app/Logging/LoggingSupport.hpp"
#include "tests/support/LogRecorder.hpp"

static thread_local bool gNoMemory = false;

void* operator new(std::size_t size) {
    if (void* const memory = gNoMemory ? nullptr : std::malloc(size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

TEST(DDLogWithoutMemory, LineGoesToStandardErrorAndNoOlderLineIsWrittenAgain) {
    support::LogRecorder recorder;
    for (int i = 0; i < 2000; ++i) DDLogInfo("an older text that is on the heap %d", i);
    recorder.take();
    const std::string text(600, 'x');
    testing::internal::CaptureStderr();
    for (const bool asynchronous : {true, false}) {
        gNoMemory = true;
        DD_LOG_MAYBE(asynchronous, DDLogFlagError, "%s", text.c_str());
        gNoMemory = false;
        EXPECT_TRUE(recorder.take().empty()) << asynchronous;
    }
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(errors.begin(), errors.end(), 'x'), 2 * 511) << "the beginning that fits a buffer";
}
