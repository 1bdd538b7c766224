// Encodes and decodes the 64-byte position record and a protocol list of 40 entries: through packet and frame, through
// a reused standard string stream, and through two bounds-checked cursors written by hand: one that keeps its buffer
// for the next record, and one whose result can be kept and passed on, as a frame can: it gives an owned buffer back
// and reads one that belongs to somebody else. Repetitions are interleaved and medians compared, so the ratios stand in
// one run whatever else the machine does. At the end the ratios are printed, one line each, for scripts:
//
//   ratio <record> to_<peer> <value> goal <the most it should be>

#include "IOA/IOA_Protocols.hpp"
#include "IOA/IOA_PvtData.hpp"
#include "bench/Medians.hpp"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t kEntries = 40;

ioa::PvtData_t SamplePvt() {
    ioa::PvtData_t pvt;
    pvt.floats1To4 = {1.5F, 2.5F, 3.5F, 4.5F};
    pvt.fix = 3;
    pvt.timeOfWeek = 123456.5;
    pvt.latitude = 0.7;
    pvt.longitude = -1.5;
    pvt.floats9To12 = {9.5F, 10.5F, 11.5F, 12.5F};
    pvt.leapSeconds = 18;
    pvt.dayCount = 12345;
    return pvt;
}

ioa::Protocols_t SampleProtocols() {
    ioa::Protocols_t protocols;
    for (std::size_t i = 0; i < kEntries; ++i) {
        protocols.push_back({i % 2 == 0 ? 'A' : 'D', static_cast<unsigned short>(100 + i)});
    }
    return protocols;
}

/// The record as the two peers keep it, with its fields in wire order.
struct Position {
    std::array<float, 4> a{};
    unsigned short fix = 0;
    double timeOfWeek = 0;
    double latitude = 0;
    double longitude = 0;
    std::array<float, 4> b{};
    short leapSeconds = 0;
    int dayCount = 0;

    template <typename Self, typename Visit>
    static void EachField(Self& self, Visit visit) {
        for (auto& value : self.a) visit(value);
        visit(self.fix);
        visit(self.timeOfWeek);
        visit(self.latitude);
        visit(self.longitude);
        for (auto& value : self.b) visit(value);
        visit(self.leapSeconds);
        visit(self.dayCount);
    }
};

Position SamplePosition() {
    const ioa::PvtData_t pvt = SamplePvt();
    return {pvt.floats1To4, pvt.fix,         pvt.timeOfWeek,  pvt.latitude,
            pvt.longitude,  pvt.floats9To12, pvt.leapSeconds, pvt.dayCount};
}

/// The cursor that one would write by hand: a buffer that stays, every access checked.
class Cursor {
  public:
    template <typename T>
    void Put(const T& value) {
        if (mBytes.size() - mPosition < sizeof value) mBytes.resize(mPosition + sizeof value);
        std::memcpy(mBytes.data() + mPosition, &value, sizeof value);
        mPosition += sizeof value;
    }
    template <typename T>
    bool Get(T& value) {
        if (mEnd - mPosition < sizeof value) return false;
        std::memcpy(&value, mBytes.data() + mPosition, sizeof value);
        mPosition += sizeof value;
        return true;
    }
    void Turn() { mEnd = std::exchange(mPosition, 0); }

  private:
    std::vector<unsigned char> mBytes;
    std::size_t mPosition = 0;
    std::size_t mEnd = 0;
};

template <typename T>
void Put(std::stringstream& stream, const T& value) {
    stream.write(reinterpret_cast<const char*>(&value), sizeof value);
}

template <typename T>
bool Get(std::stringstream& stream, T& value) {
    return static_cast<bool>(stream.read(reinterpret_cast<char*>(&value), sizeof value));
}

void Rewind(std::stringstream& stream) {
    stream.clear();
    stream.seekp(0);
    stream.seekg(0);
}

void Require(benchmark::State& state, bool condition) {
    if (!condition) state.SkipWithError("the record did not come back");
}

void PvtFrame(benchmark::State& state) {
    const ioa::PvtData_t sent = SamplePvt();
    ioa::PvtData_t read;
    for (auto _ : state) {
        read.AcceptFrame(sent.ProduceFrame());
        benchmark::DoNotOptimize(read.dayCount);
    }
    Require(state, read.dayCount == sent.dayCount && read.latitude == sent.latitude);
}

void PvtStringstream(benchmark::State& state) {
    std::stringstream stream;
    const Position sent = SamplePosition();
    Position read;
    bool isWhole = true;
    for (auto _ : state) {
        Rewind(stream);
        Position::EachField(sent, [&stream](const auto& value) { Put(stream, value); });
        Position::EachField(read, [&](auto& value) { isWhole = Get(stream, value) && isWhole; });
        benchmark::DoNotOptimize(read.dayCount);
    }
    Require(state, isWhole && read.dayCount == sent.dayCount && read.latitude == sent.latitude);
}

void PvtCursor(benchmark::State& state) {
    Cursor cursor;
    const Position sent = SamplePosition();
    Position read;
    bool isWhole = true;
    for (auto _ : state) {
        Position::EachField(sent, [&cursor](const auto& value) { cursor.Put(value); });
        cursor.Turn();
        Position::EachField(read, [&](auto& value) { isWhole = cursor.Get(value) && isWhole; });
        cursor.Turn();
        benchmark::DoNotOptimize(read.dayCount);
    }
    Require(state, isWhole && read.dayCount == sent.dayCount && read.latitude == sent.latitude);
}

void ProtocolsFrame(benchmark::State& state) {
    const ioa::Protocols_t sent = SampleProtocols();
    std::size_t count = 0;
    for (auto _ : state) {
        ioa::Protocols_t read;
        read.AcceptFrame(sent.ProduceFrame());
        count = read.size();
        benchmark::DoNotOptimize(count);
    }
    Require(state, count == kEntries);
}

void ProtocolsStringstream(benchmark::State& state) {
    const ioa::Protocols_t sent = SampleProtocols();
    std::stringstream stream;
    std::size_t count = 0;
    for (auto _ : state) {
        Rewind(stream);
        for (const ioa::Protocol_t& protocol : sent) {
            Put(stream, protocol.tag);
            Put(stream, protocol.number);
        }
        std::vector<ioa::Protocol_t> read;
        for (ioa::Protocol_t next; Get(stream, next.tag) && Get(stream, next.number);) read.push_back(next);
        count = read.size();
        benchmark::DoNotOptimize(count);
    }
    Require(state, count == kEntries);
}

void ProtocolsCursor(benchmark::State& state) {
    const ioa::Protocols_t sent = SampleProtocols();
    Cursor cursor;
    std::size_t count = 0;
    for (auto _ : state) {
        for (const ioa::Protocol_t& protocol : sent) {
            cursor.Put(protocol.tag);
            cursor.Put(protocol.number);
        }
        cursor.Turn();
        std::vector<ioa::Protocol_t> read;
        for (ioa::Protocol_t next; cursor.Get(next.tag) && cursor.Get(next.number);) read.push_back(next);
        cursor.Turn();
        count = read.size();
        benchmark::DoNotOptimize(count);
    }
    Require(state, count == kEntries);
}

/// The cursor whose bytes can be kept: it owns them while it writes and gives them away.
class Writer {
  public:
    explicit Writer(std::size_t expected) : mBytes(expected) {}
    template <typename T>
    void Put(const T& value) {
        if (mBytes.size() - mPosition < sizeof value) mBytes.resize(mPosition + sizeof value);
        std::memcpy(mBytes.data() + mPosition, &value, sizeof value);
        mPosition += sizeof value;
    }
    std::vector<unsigned char> Take() {
        mBytes.resize(mPosition);
        return std::move(mBytes);
    }

  private:
    std::vector<unsigned char> mBytes;
    std::size_t mPosition = 0;
};

/// Its counterpart, over bytes that somebody else owns.
class Reader {
  public:
    explicit Reader(std::span<const unsigned char> bytes) : mBytes(bytes) {}
    template <typename T>
    bool Get(T& value) {
        if (mBytes.size() < sizeof value) return false;
        std::memcpy(&value, mBytes.data(), sizeof value);
        mBytes = mBytes.subspan(sizeof value);
        return true;
    }

  private:
    std::span<const unsigned char> mBytes;
};

std::vector<unsigned char> Encode(const Position& position) {
    Writer writer(64);
    Position::EachField(position, [&writer](const auto& value) { writer.Put(value); });
    return writer.Take();
}

bool Decode(std::span<const unsigned char> bytes, Position& position) {
    Reader reader(bytes);
    bool isWhole = true;
    Position::EachField(position, [&](auto& value) { isWhole = isWhole && reader.Get(value); });
    return isWhole;
}

std::vector<unsigned char> Encode(const ioa::Protocols_t& protocols) {
    Writer writer(protocols.size() * 3);
    for (const ioa::Protocol_t& protocol : protocols) {
        writer.Put(protocol.tag);
        writer.Put(protocol.number);
    }
    return writer.Take();
}

std::vector<ioa::Protocol_t> DecodeProtocols(std::span<const unsigned char> bytes) {
    Reader reader(bytes);
    std::vector<ioa::Protocol_t> protocols;
    protocols.reserve(bytes.size() / 3);
    for (ioa::Protocol_t next; reader.Get(next.tag) && reader.Get(next.number);) protocols.push_back(next);
    return protocols;
}

void PvtOwningCursor(benchmark::State& state) {
    Position sent = SamplePosition(), read;
    bool isWhole = true;
    for (auto _ : state) {
        benchmark::DoNotOptimize(sent);
        auto bytes = Encode(sent);
        benchmark::DoNotOptimize(bytes.data());
        isWhole = Decode(bytes, read) && isWhole;
        benchmark::DoNotOptimize(read);
    }
    Require(state, isWhole && read.dayCount == sent.dayCount && read.latitude == sent.latitude);
}

void PvtEncodeFrame(benchmark::State& state) {
    ioa::PvtData_t sent = SamplePvt();
    std::size_t size = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(sent);
        const iol::Frame_t frame = sent.ProduceFrame();
        size = frame.Size();
        benchmark::DoNotOptimize(frame.Data());
    }
    Require(state, size == 64);
}

void PvtEncodeOwningCursor(benchmark::State& state) {
    Position sent = SamplePosition();
    std::size_t size = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(sent);
        const auto bytes = Encode(sent);
        size = bytes.size();
        benchmark::DoNotOptimize(bytes.data());
    }
    Require(state, size == 64);
}

void PvtDecodeFrame(benchmark::State& state) {
    const iol::Frame_t frame = SamplePvt().ProduceFrame();
    ioa::PvtData_t read;
    for (auto _ : state) {
        read.AcceptFrame(frame);
        benchmark::DoNotOptimize(read);
    }
    Require(state, read.dayCount == SamplePvt().dayCount);
}

void PvtDecodeOwningCursor(benchmark::State& state) {
    auto bytes = Encode(SamplePosition());
    Position read;
    bool isWhole = true;
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes.data());
        isWhole = Decode(bytes, read) && isWhole;
        benchmark::DoNotOptimize(read);
    }
    Require(state, isWhole && read.dayCount == SamplePvt().dayCount);
}

void ProtocolsDecodeFrame(benchmark::State& state) {
    const iol::Frame_t frame = SampleProtocols().ProduceFrame();
    std::size_t count = 0;
    for (auto _ : state) {
        ioa::Protocols_t read;
        read.AcceptFrame(frame);
        count = read.size();
        benchmark::DoNotOptimize(&read[0]);
    }
    Require(state, count == kEntries);
}

void ProtocolsDecodeOwningCursor(benchmark::State& state) {
    auto bytes = Encode(SampleProtocols());
    std::size_t count = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes.data());
        const auto read = DecodeProtocols(bytes);
        count = read.size();
        benchmark::DoNotOptimize(read.data());
    }
    Require(state, count == kEntries);
}

BENCHMARK(PvtFrame)->Name("pvt/frame");
BENCHMARK(PvtStringstream)->Name("pvt/stringstream");
BENCHMARK(PvtCursor)->Name("pvt/cursor");
BENCHMARK(ProtocolsFrame)->Name("protocols/frame");
BENCHMARK(ProtocolsStringstream)->Name("protocols/stringstream");
BENCHMARK(ProtocolsCursor)->Name("protocols/cursor");
BENCHMARK(PvtOwningCursor)->Name("pvt/owning_cursor");
BENCHMARK(PvtEncodeFrame)->Name("pvt_encode/frame");
BENCHMARK(PvtEncodeOwningCursor)->Name("pvt_encode/owning_cursor");
BENCHMARK(PvtDecodeFrame)->Name("pvt_decode/frame");
BENCHMARK(PvtDecodeOwningCursor)->Name("pvt_decode/owning_cursor");
BENCHMARK(ProtocolsDecodeFrame)->Name("protocols_decode/frame");
BENCHMARK(ProtocolsDecodeOwningCursor)->Name("protocols_decode/owning_cursor");

}  // namespace

int main(int argc, char** argv) {
    const auto medians = bench::MeasureMedians(argc, argv);
    if (!medians) return EXIT_FAILURE;
    const auto tell = [&](const std::string& record, const std::string& peer, const char* goal) {
        bench::TellRatio(*medians, record + " to_" + peer, record + "/frame", record + '/' + peer, goal);
    };
    for (const char* record : {"pvt", "protocols"}) {
        tell(record, "stringstream", " goal 0.333");
        tell(record, "cursor", "");
    }
    tell("pvt", "owning_cursor", " goal 1.2");
    tell("pvt_encode", "owning_cursor", "");
    tell("pvt_decode", "owning_cursor", "");
    tell("protocols_decode", "owning_cursor", " goal 1.0");
    return EXIT_SUCCESS;
}
