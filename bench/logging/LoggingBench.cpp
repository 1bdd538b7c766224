// Throughput, the caller's latency and synchronous calls, each beside spdlog in the same run, outputs and line alike.
// The goal is to be at or ahead of it in every figure, and not far behind where it keeps the file's lines in a buffer.
// Prints medians and ratios; the file goes to a folder of its own below $TMPDIR, standard error to /dev/null.
//
// bench_logging [messages]    how many of them a throughput run has, 200,000 unless given

#include "Peer.hpp"
#include "app/Util/Logging/DDFileLogger.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/DDLogFileDefaults.hpp"
#include "app/Util/Logging/DDTTYLogger.hpp"
#include "app/Util/Logging/VundLogFormatter.hpp"
#include "bench/Pairs.hpp"
#include "platform/common/FileDescriptor.hpp"
#include "platform/linux/files/LinuxFiles.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using bench::Median;
using Clock = std::chrono::steady_clock;
using MakePeer = std::unique_ptr<Peer> (*)(PeerMode, const std::string&);

constexpr int kMessages = 200'000;
constexpr int kMessagesPerSynchronousMessage = 4;
constexpr int kCalls = 10'000;
constexpr std::chrono::microseconds kCallPeriod(100);  // 10,000 calls a second of each logger
constexpr int kRounds = 11;

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

/// The system calls of a synchronous line, and nothing else.
class BareWrites final : public Peer {
  public:
    explicit BareWrites(const std::string& file)
        : mFile(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600)) {}
    const char* name() const override { return "bare"; }
    void call(int, int) override {
        static constexpr std::string_view kLine =
            "2026-11-15 18:25:03:120 bench_logging[812:1a03] Message number 100000 of thread 0: Device rebooted\n";
        for (const int output : {STDERR_FILENO, mFile.get()})
            if (::write(output, kLine.data(), kLine.size()) < 0) std::abort();
    }
    void flush() override {}

  private:
    platform::FileDescriptor mFile;
};

std::unique_ptr<Peer> makeBareWrites(PeerMode, const std::string& file) {
    return std::make_unique<BareWrites>(file);
}

double seconds(Clock::duration span) {
    return std::chrono::duration<double>(span).count();
}

struct Run {
    double rate;  ///< messages per second, until the last one is written
    double cost;  ///< processor time of the whole process for a message, in microseconds
};

Run throughput(MakePeer make, PeerMode mode, const std::string& file, int threads, int messages) {
    const auto peer = make(mode, file);
    std::atomic<bool> go{false};
    std::vector<std::thread> callers;
    for (int t = 0; t < threads; ++t)
        callers.emplace_back([&, t] {
            go.wait(false);
            for (int i = 0; i < messages / threads; ++i) peer->call(i, t);
        });
    const auto start = Clock::now();
    const std::clock_t used = std::clock();
    go = true;
    go.notify_all();
    for (auto& caller : callers) caller.join();
    peer->flush();
    return {messages / seconds(Clock::now() - start),
            static_cast<double>(std::clock() - used) * 1e6 / CLOCKS_PER_SEC / messages};
}

/// The two are measured right after one another. On a machine that is busy with something else the rates are what is
/// left for them, and only the processor time tells the two apart.
void print(const bench::Pairs& figure, const char* title, const char* unit, const char* goal) {
    const auto [least, most] = std::ranges::minmax(figure.Ratios());
    std::printf("%-46s own %10.1f %s   peer %10.1f %s   ratio %5.2f (%.2f to %.2f), goal %s\n", title,
                Median(figure.Own()), unit, Median(figure.Peer()), unit, Median(figure.Ratios()), least, most, goal);
    std::fflush(stdout);
}

void compareThroughput(const char* title, MakePeer makeOther, PeerMode mode, const std::string& folder, int threads,
                       int messages, const char* goal) {
    bench::Pairs rate, cost;
    for (int round = 0; round < kRounds; ++round) {
        const Run own = throughput(makeOwnPeer, mode, folder + "/own", threads, messages);
        const Run other = throughput(makeOther, mode, folder + "/other", threads, messages);
        rate.Add(own.rate / 1000, other.rate / 1000);
        cost.Add(own.cost, other.cost);
        std::filesystem::remove_all(folder + "/own.d");
    }
    print(rate, title, "k/s", goal);
    print(cost, "    processor time of a message", "us ", "none");
}

/// How long single calls take at a low rate. The caller sleeps between them, as a program does. Both loggers are called
/// in turn, so that each call of one has a call of the other within a moment.
void compareLatency(const std::string& folder) {
    constexpr std::array kParts = {0.5, 0.99, 0.999};
    std::array<bench::Pairs, kParts.size()> figures;
    for (int round = 0; round < kRounds; ++round) {
        const std::array peers = {makeOwnPeer(PeerMode::Asynchronous, folder + "/own"),
                                  makeSpdlogPeer(PeerMode::Asynchronous, folder + "/other")};
        std::array<std::vector<double>, 2> spans;  // microseconds
        auto next = Clock::now();
        for (int i = 0; i < kCalls; ++i)
            for (std::size_t k = 0; k < peers.size(); ++k) {
                std::this_thread::sleep_until(next += kCallPeriod / 2);
                const auto start = Clock::now();
                peers[k]->call(i, 0);
                spans[k].push_back(seconds(Clock::now() - start) * 1e6);
            }
        for (auto& of : spans) std::sort(of.begin(), of.end());
        for (std::size_t f = 0; f < kParts.size(); ++f) {
            const auto at = static_cast<std::size_t>(kParts[f] * (kCalls - 1));
            figures[f].Add(spans[0][at], spans[1][at]);
        }
    }
    std::filesystem::remove_all(folder + "/own.d");
    print(figures[0], "caller's latency at 10,000 calls/s, p50", "us ", "<= 1");
    print(figures[1], "the same, p99", "us ", "<= 1");
    print(figures[2], "the same, p99.9", "us ", "<= 1");
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
    std::printf(
        "The peer is spdlog. %d messages, %d synchronous ones; medians of %d rounds, least and most in brackets\n",
        messages, synchronous, kRounds);
    const auto compare = [&](const char* title, PeerMode mode, int threads, int count, const char* goal) {
        compareThroughput(title, makeSpdlogPeer, mode, folder, threads, count, goal);
    };
    compare("messages from 1 thread", PeerMode::Asynchronous, 1, messages, ">= 1");
    compare("messages from 4 threads", PeerMode::Asynchronous, 4, messages, ">= 1");
    compareLatency(folder);
    compare("synchronous, both with the system", PeerMode::SynchronousAndFlushed, 1, synchronous, ">= 1");
    compare("the same from 4 threads", PeerMode::SynchronousAndFlushed, 4, synchronous, ">= 1");
    compare("synchronous, the peer keeps the file's lines", PeerMode::Synchronous, 1, synchronous, ">= 0.9");
    compareThroughput("synchronous, beside the bare two writes", makeBareWrites, PeerMode::SynchronousAndFlushed,
                      folder, 1, synchronous, "none");
    std::puts(
        "The last two: a peer that keeps lines in a buffer loses them with the process, which this system's\n"
        "synchronous call must not. The two bare writes, with nothing to format, are the least that it can cost.");
    std::filesystem::remove_all(folder);
    return 0;
}
