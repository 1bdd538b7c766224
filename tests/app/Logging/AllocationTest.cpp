// What a log call costs its caller.
#include <cstdlib>
#include <new>

#include "app/Util/Logging/DDLog.hpp"
#include "tests/app/Logging/LoggingSupport.hpp"

static thread_local long gAllocations = 0;

void* operator new(std::size_t size) {
    ++gAllocations;
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

TEST(DDLogAllocation, AsynchronousCallOfUsualLengthMakesNoneOnceItsMessagesHaveBeenUsed) {
    struct Logger final : DDAbstractLogger {
        void logMessage(const DDLogMessage&) override { const std::lock_guard wait(gate); }
        std::mutex gate;
    };
    const auto logger = std::make_shared<Logger>();
    DDLog::addLogger(logger);
    const auto allocationsOfAFullQueue = [&] {
        DDLog::flushLog();
        const std::lock_guard full(logger->gate);
        const long before = gAllocations;
        for (int i = 1000; i < 2000; ++i)
            DDLogInfo("Device %d of %zu at /sys/devices/pci0000:00/usb1/1-%x", i, SIZE_MAX, i);
        return gAllocations - before;
    };
    EXPECT_GE(allocationsOfAFullQueue(), 1000) << "they are counted";
    allocationsOfAFullQueue();  // the few places of the queue that the first round left out
    EXPECT_EQ(allocationsOfAFullQueue(), 0);
    DDLog::removeAllLoggers();
    DDLog::flushLog();
}
