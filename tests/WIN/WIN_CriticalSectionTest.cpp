#include "WIN/WIN_CriticalSection.hpp"

#include <gtest/gtest.h>

#include <thread>

TEST(CriticalSection, IsRecursiveAndKeepsOtherThreadsOut) {
    win::CriticalSection_t section;
    int counter = 0;
    const auto count = [&] {
        for (int n = 0; n < 1000; ++n) {
            const win::SmartCriticalSection_t outer(section);
            const int before = counter;
            { const win::SmartCriticalSection_t inner(section); }
            std::this_thread::yield();  // still held: leaving once is not leaving twice
            counter = before + 1;
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(counter, 2000);
}
