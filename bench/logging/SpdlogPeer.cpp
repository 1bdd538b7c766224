#include "Peer.hpp"

#include <memory>
#include <string>
#include <utility>
#include <vector>

// The library's headers are not held to this project's warnings.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#pragma GCC diagnostic pop

namespace {

constexpr std::size_t kQueue = 1000;

class SpdlogPeer final : public Peer {
  public:
    SpdlogPeer(PeerMode mode, const std::string& file) {
        auto fileSink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(file, true);
        auto errorSink = std::make_shared<spdlog::sinks::stderr_sink_mt>();
        fileSink->set_pattern("%Y-%m-%d %H.%M.%S (GMT%z) | %t | %L | %v");
        errorSink->set_pattern("%Y-%m-%d %H:%M:%S:%e bench[%P:%t] %v");
        std::vector<spdlog::sink_ptr> sinks{errorSink, fileSink};
        if (mode == PeerMode::Asynchronous) {
            mPool = std::make_shared<spdlog::details::thread_pool>(kQueue, 1);
            mLogger = std::make_shared<spdlog::async_logger>("bench", sinks.begin(), sinks.end(), mPool,
                                                             spdlog::async_overflow_policy::block);
        } else {
            mLogger = std::make_shared<spdlog::logger>("bench", sinks.begin(), sinks.end());
            if (mode == PeerMode::SynchronousAndFlushed) mLogger->flush_on(spdlog::level::info);
        }
        mFile = std::move(fileSink);
    }

    ~SpdlogPeer() override { flush(); }

    const char* name() const override { return "spdlog"; }

    void call(int number, int thread) override {
        mLogger->info("Message number {} of thread {}: {}", number, thread, "Device rebooted");
    }

    void flush() override {
        mPool.reset();  // joins its thread once the queue is empty
        mFile->flush();
    }

  private:
    std::shared_ptr<spdlog::details::thread_pool> mPool;
    std::shared_ptr<spdlog::logger> mLogger;
    spdlog::sink_ptr mFile;
};

}  // namespace

std::unique_ptr<Peer> makeSpdlogPeer(PeerMode mode, const std::string& file) {
    return std::make_unique<SpdlogPeer>(mode, file);
}
