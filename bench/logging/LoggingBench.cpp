// Throughput, the caller's latency and synchronous calls, each beside spdlog in the same run, outputs and line alike.
// The goal is to be at or ahead of it in every figure, and not far behind where it may keep a line in a buffer.
// Prints a table and the ratios; the file goes to a folder of its own below $TMPDIR, standard error to /dev/null.
//
// bench_logging [messages]    how many of them a throughput run has, 1,000,000 unless given

#include "Peer.hpp"
#include "app/Util/Logging/DDFileLogger.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/DDLogFileDefaults.hpp"
#include "app/Util/Logging/DDTTYLogger.hpp"
#include "app/Util/Logging/VundLogFormatter.hpp"
#include "platform/linux/files/LinuxFiles.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using MakePeer = std::unique_ptr<Peer> (*)(PeerMode, const std::string&);

constexpr int kMessages = 1'000'000;
constexpr int kMessagesPerSynchronousMessage = 5;
constexpr int kCalls = 30'000;
constexpr std::chrono::microseconds kCallPeriod(100);  // 10,000 calls a second
constexpr int kRounds = 3;

class OwnPeer final : public Peer {
  public:
    OwnPeer(PeerMode mode, const std::string& file)
        : mAsynchronous(mode == PeerMode::Asynchronous),
          mFileLogger(std::make_shared<DDFileLogger>(std::make_shared<DDLogFileManagerDefault>(file + ".d"))) {
        mFileLogger->setMaximumFileSize(0);
        mFileLogger->setLogFormatter(std::make_shared<VundLogFormatter>());
        DDLog::addLogger(DDTTYLogger::sharedInstance());
        DDLog::addLogger(mFileLogger);
        DDLog::flushLog();
    }
    ~OwnPeer() override {
        DDLog::removeAllLoggers();
        DDLog::flushLog();
    }
    const char* name() const override { return "own"; }
    void call(int number, int thread) override {
        DD_LOG_MAYBE(mAsynchronous, DDLogFlagInfo, "Message number %d of thread %d: %s", number, thread,
                     "Device rebooted");
    }
    void flush() override { DDLog::flushLog(); }

  private:
    const bool mAsynchronous;
    std::shared_ptr<DDFileLogger> mFileLogger;
};

double seconds(Clock::duration span) {
    return std::chrono::duration<double>(span).count();
}

/// Messages per second, until the last one is written.
double throughput(MakePeer make, PeerMode mode, const std::string& file, int threads, int messages) {
    const auto peer = make(mode, file);
    std::atomic<bool> go{false};
    std::vector<std::thread> callers;
    for (int t = 0; t < threads; ++t)
        callers.emplace_back([&, t] {
            go.wait(false);
            for (int i = 0; i < messages / threads; ++i) peer->call(i, t);
        });
    const auto start = Clock::now();
    go = true;
    go.notify_all();
    for (auto& caller : callers) caller.join();
    peer->flush();
    return messages / seconds(Clock::now() - start);
}

struct Latency {
    double p50, p99, p999;  // microseconds
};

/// How long single calls take at a low rate. The caller sleeps between them, as a program does.
Latency latency(MakePeer make, const std::string& file) {
    const auto peer = make(PeerMode::Asynchronous, file);
    std::vector<double> spans;
    spans.reserve(kCalls);
    auto next = Clock::now();
    for (int i = 0; i < kCalls; ++i) {
        std::this_thread::sleep_until(next += kCallPeriod);
        const auto start = Clock::now();
        peer->call(i, 0);
        spans.push_back(seconds(Clock::now() - start) * 1e6);
    }
    peer->flush();
    std::sort(spans.begin(), spans.end());
    const auto at = [&](double part) { return spans[static_cast<std::size_t>(part * (kCalls - 1))]; };
    return {at(0.5), at(0.99), at(0.999)};
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void compareThroughput(const char* title, PeerMode mode, const std::string& folder, int threads, int messages,
                       double goal) {
    std::vector<double> own, other;
    for (int round = 0; round < kRounds; ++round) {
        own.push_back(throughput(makeOwnPeer, mode, folder + "/own", threads, messages));
        other.push_back(throughput(makeSpdlogPeer, mode, folder + "/spdlog", threads, messages));
        std::filesystem::remove_all(folder + "/own.d");
    }
    std::printf("%-44s own %9.0f/s   spdlog %9.0f/s   ratio %5.2f (goal %.2f)\n", title, median(own), median(other),
                median(own) / median(other), goal);
    std::fflush(stdout);
}

void compareLatency(const std::string& folder) {
    std::vector<double> own[3], other[3];
    for (int round = 0; round < kRounds; ++round) {
        const auto add = [](std::vector<double>(&to)[3], const Latency& from) {
            to[0].push_back(from.p50);
            to[1].push_back(from.p99);
            to[2].push_back(from.p999);
        };
        add(own, latency(makeOwnPeer, folder + "/own"));
        add(other, latency(makeSpdlogPeer, folder + "/spdlog"));
    }
    const char* const titles[] = {"caller's latency at 10,000 calls/s, p50", "p99", "p99.9"};
    for (int i = 0; i < 3; ++i)
        std::printf("%-44s own %8.2f us   spdlog %8.2f us   ratio %5.3f (goal 1)\n", titles[i], median(own[i]),
                    median(other[i]), median(own[i]) / median(other[i]));
    std::fflush(stdout);
}

void disabledLevel() {
    const auto start = Clock::now();
    constexpr int kDisabledCalls = 100'000'000;
    for (int i = 0; i < kDisabledCalls; ++i) DDLogVerbose("Never seen: %d", i);
    std::printf("%-44s %.2f ns\n", "a call whose level is off", seconds(Clock::now() - start) * 1e9 / kDisabledCalls);
}

}  // namespace

std::unique_ptr<Peer> makeOwnPeer(PeerMode mode, const std::string& file) {
    return std::make_unique<OwnPeer>(mode, file);
}

int main(int argc, char** argv) {
    const int messages = argc > 1 ? std::max(100, std::atoi(argv[1])) : kMessages;
    const int synchronous = messages / kMessagesPerSynchronousMessage;
    const char* const temporary = std::getenv("TMPDIR");
    std::string folder = std::string(temporary && *temporary ? temporary : "/tmp") + "/bench_logging.XXXXXX";
    if (!::mkdtemp(folder.data())) return 1;
    const int null = ::open("/dev/null", O_WRONLY);
    if (null < 0 || ::dup2(null, STDERR_FILENO) < 0) return 1;

    const platform::PlatformScope scope(platform::withLinuxFiles());
    disabledLevel();
    std::printf("%d messages, %d synchronous ones\n", messages, synchronous);
    compareThroughput("messages from 1 thread", PeerMode::Asynchronous, folder, 1, messages, 1);
    compareThroughput("messages from 4 threads", PeerMode::Asynchronous, folder, 4, messages, 1);
    compareLatency(folder);
    compareThroughput("synchronous calls, file buffered by the peer", PeerMode::Synchronous, folder, 1, synchronous,
                      0.9);
    compareThroughput("synchronous calls, both with the system", PeerMode::SynchronousAndFlushed, folder, 1,
                      synchronous, 1);
    compareThroughput("the same from 4 threads", PeerMode::SynchronousAndFlushed, folder, 4, synchronous, 1);
    std::filesystem::remove_all(folder);
    return 0;
}
