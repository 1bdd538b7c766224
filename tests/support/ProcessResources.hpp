#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <string>

namespace support {

/// What the process has taken from the system at a moment.
struct ProcessResources {
    long descriptors = 0;
    long threads = 0;
    long bytes = 0;

    /// Sockets are left out: umockdev keeps one for each device number that has ever been used. So are the threads of
    /// the toolkit's pool, which come and go as they like.
    static ProcessResources now() {
        namespace fs = std::filesystem;
        ProcessResources resources;
        std::error_code gone;
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            if (!fs::read_symlink(entry, gone).string().starts_with("socket:")) ++resources.descriptors;
        }
        for (const auto& entry : fs::directory_iterator("/proc/self/task")) {
            std::string name;
            std::getline(std::ifstream(entry.path() / "comm"), name);
            if (!name.starts_with("Thread (pooled)")) ++resources.threads;
        }
// Sanitizers have allocators of their own, which keep what has been freed; one of them looks for leaks itself.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        const auto heap = mallinfo2();
        resources.bytes = static_cast<long>(heap.uordblks + heap.hblkhd);
#endif
        return resources;
    }

    /// A leak in each of some rounds adds up to more than what comes and goes.
    void expectNoMoreSince(const ProcessResources& before) const {
        EXPECT_LT(descriptors, before.descriptors + 5);
        EXPECT_LT(threads, before.threads + 5);
        EXPECT_LT(bytes, before.bytes + (160 << 10));
    }
};

/// Rounds of a soak: what script/soak asks for, few where nobody does.
inline int soakRounds(int few) {
    const char* const wanted = std::getenv("TROVIK_SOAK_ROUNDS");
    return wanted ? std::atoi(wanted) : few;
}

}  // namespace support
