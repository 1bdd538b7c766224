#include "BIN/BIN_stringstream.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <numeric>

#include "BIN/BIN_istream_iterator.hpp"
#include "GLO/GLO_String.hpp"

namespace {

using Bytes = std::vector<unsigned char>;
using bin::ios;

constexpr auto kBad = ios::badbit;
constexpr auto kFail = ios::failbit;
constexpr auto kEnd = ios::eofbit;

/// A stream over bytes that somebody else keeps.
struct Borrowing : bin::stringstream {
    explicit Borrowing(const Bytes& bytes) : stringstream(Borrowed_t{bytes.data(), bytes.size()}) {}
};

Bytes Written(const std::function<void(bin::ostream&)>& write) {
    bin::stringstream stream;
    write(stream);
    EXPECT_EQ(stream.rdstate(), ios::goodbit);
    return stream.Buffer();
}

template <typename T>
T Read(const Bytes& bytes) {
    bin::stringstream stream(bytes);
    T value{};
    stream >> value;
    EXPECT_EQ(stream.rdstate(), kEnd);
    return value;
}

/// Every way for a stream to come by the same bytes.
template <typename Action>
void OnEveryKind(const Bytes& bytes, Action action) {
    {
        SCOPED_TRACE("copied");
        bin::stringstream stream(bytes);
        action(stream);
    }
    {
        SCOPED_TRACE("borrowed");
        Borrowing stream(bytes);
        action(stream);
    }
    {
        SCOPED_TRACE("written");
        bin::stringstream stream;
        for (const auto byte : bytes) stream << byte;
        action(stream);
    }
}

}  // namespace

TEST(StringStream, ValuesTravelInTheirWidths) {
    const struct {
        Bytes bytes;
        Bytes written;
    } cases[] = {
        {{0x41}, Written([](auto& s) { s << 'A'; })},
        {{0xFF}, Written([](auto& s) { s << static_cast<signed char>(-1); })},
        {{1, 0}, Written([](auto& s) { s << true << false; })},
        {{0xFE, 0xFF, 0x02, 0x01}, Written([](auto& s) { s << short{-2} << static_cast<unsigned short>(0x102); })},
        {{0xFF, 0xFF, 0xFF, 0xFF, 4, 3, 2, 1}, Written([](auto& s) { s << -1 << 0x01020304U; })},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}, Written([](auto& s) { s << -1L; })},
        {{8, 7, 6, 5, 0, 0, 0, 0}, Written([](auto& s) { s << 0x0102030405060708UL; })},
        {{8, 7, 6, 5, 4, 3, 2, 1}, Written([](auto& s) { s << 0x0102030405060708ULL; })},
        {{0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, Written([](auto& s) { s << -2LL; })},
        {{0, 0, 0x80, 0x3F, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F}, Written([](auto& s) { s << 1.0F << 1.0; })},
        {{'A', 'B', 0, 0}, Written([](auto& s) { s << "AB" << std::string(); })},
        {{7, 'x', 'x', 'x', 1, 2}, Written([](auto& s) { s.put(7).fill('x', 3).fill('y', 0).write("\1\2", 2); })},
    };
    for (const auto& c : cases) EXPECT_EQ(c.written, c.bytes);

    EXPECT_EQ(Read<long>({0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}), 4294967295L);
    EXPECT_EQ(Read<long>({1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}), 1L);
    EXPECT_EQ(Read<unsigned long>({1, 0, 0, 0x80, 9, 9, 9, 9}), 0x80000001UL);
    EXPECT_EQ(Read<long long>({0, 0, 0, 0, 0, 0, 0, 0x80}), std::numeric_limits<long long>::min());
    EXPECT_EQ(Read<short>({0xFE, 0xFF}), -2);
    EXPECT_EQ(Read<bool>({0x40}), true);
    EXPECT_EQ(Read<double>({0, 0, 0, 0, 0, 0, 0xF0, 0xBF}), -1.0);
    EXPECT_EQ(Read<std::string>({'A', 'B', 0}), "AB");
}

TEST(StringStream, TheReadThatReachesTheEndSucceedsAndTheNextOneFails) {
    OnEveryKind({1, 0, 0, 0}, [](bin::stringstream& stream) {
        unsigned int value = 0;
        unsigned char byte = 9;
        bool flag = true;
        long number = 9;
        stream >> value;
        EXPECT_EQ(value, 1U);
        EXPECT_EQ(stream.rdstate(), kEnd);
        EXPECT_EQ(stream.peek(), -1);
        stream >> byte >> flag >> number;
        EXPECT_EQ(stream.rdstate(), kEnd | kFail);
        EXPECT_EQ(byte, 9);
        EXPECT_EQ(flag, true);
        EXPECT_EQ(number, 9);
        EXPECT_EQ(stream.tellg(), 4U);
    });
}

TEST(StringStream, ShortReadConsumesNothing) {
    OnEveryKind({5, 6, 7}, [](bin::stringstream& stream) {
        unsigned short value = 0;
        stream >> value >> value;
        EXPECT_EQ(stream.rdstate(), kFail);
        EXPECT_EQ(value, 0x0605);
        EXPECT_EQ(stream.tellg(), 2U);
        EXPECT_EQ(stream.RemainingSize(), 1U);
        EXPECT_EQ(stream.peek(), -1);
        stream.clear();
        EXPECT_EQ(stream.peek(), 7);
        EXPECT_EQ(stream.get(), 7);
        EXPECT_EQ(stream.rdstate(), kEnd);
    });
}

TEST(StringStream, ReadTakesWhatThereIs) {
    OnEveryKind({1, 2, 3, 4}, [](bin::stringstream& stream) {
        char bytes[10] = {};
        stream.read(bytes, 1);
        EXPECT_EQ(stream.gcount(), 1U);
        EXPECT_EQ(stream.rdstate(), ios::goodbit);
        stream.read(bytes, 10);
        EXPECT_EQ(stream.gcount(), 3U);
        EXPECT_EQ(bytes[2], 4);
        EXPECT_EQ(stream.rdstate(), kEnd);
        stream.read(bytes, 1);
        EXPECT_EQ(stream.gcount(), 0U);
        EXPECT_EQ(stream.rdstate(), kEnd | kFail);
    });
}

TEST(StringStream, StringsNeedTheirZeroByte) {
    OnEveryKind({'A', 0, 'B', 0, 'C', 'D'}, [](bin::stringstream& stream) {
        std::string text = "old";
        stream >> text;
        EXPECT_EQ(text, "A");
        stream.ignore_string();
        EXPECT_EQ(stream.tellg(), 4U);
        stream >> text;
        EXPECT_EQ(text, "A");
        EXPECT_EQ(stream.rdstate(), kFail);
        EXPECT_EQ(stream.tellg(), 4U);
        stream.clear();
        stream.ignore_string();
        EXPECT_EQ(stream.rdstate(), kFail);
    });
    OnEveryKind({0}, [](bin::stringstream& stream) {
        std::string text = "old";
        stream >> text;
        EXPECT_EQ(text, "");
        EXPECT_EQ(stream.rdstate(), kEnd);
        stream.ignore_string();
        EXPECT_EQ(stream.rdstate(), kEnd | kFail);
    });
}

TEST(StringStream, IgnoreStopsAtTheEnd) {
    OnEveryKind({1, 2, 3}, [](bin::stringstream& stream) {
        stream.ignore(2);
        stream.ignore(0);
        EXPECT_EQ(stream.rdstate(), ios::goodbit);
        EXPECT_EQ(stream.peek(), 3);
        stream.ignore(std::numeric_limits<unsigned long>::max());
        EXPECT_EQ(stream.rdstate(), kEnd);
        stream.ignore(0);
        EXPECT_EQ(stream.rdstate(), kEnd);
        stream.ignore(1);
        EXPECT_EQ(stream.rdstate(), kEnd | kFail);
        EXPECT_EQ(stream.tellg(), 3U);
    });
}

TEST(StringStream, SeekLeavesTheEndBitAndRefusesWhatLiesBeyond) {
    OnEveryKind({1, 2, 3, 4, 5, 6}, [](bin::stringstream& stream) {
        stream.seekg(6);
        EXPECT_EQ(stream.rdstate(), ios::goodbit);
        stream.seekg(7);
        EXPECT_EQ(stream.rdstate(), kFail);
        EXPECT_EQ(stream.tellg(), 6U);
        stream.clear(kEnd);
        stream.seekg(0);
        unsigned char byte = 9;
        stream >> byte;
        EXPECT_EQ(stream.rdstate(), kEnd | kFail) << "the end bit stays until it is cleared";
        EXPECT_EQ(byte, 9);
        stream.clear();
        stream >> byte;
        EXPECT_EQ(byte, 1);
    });
}

TEST(StringStream, WritePositionIsIndependentOfTheReadPosition) {
    const Bytes original{1, 2, 3, 4, 5, 6};
    OnEveryKind(original, [](bin::stringstream& stream) {
        stream.ignore(1);
        stream.seekp(4);
        stream << 0x0A090807U;
        EXPECT_EQ(stream.tellp(), 8U);
        EXPECT_EQ(stream.tellg(), 1U);
        EXPECT_EQ(stream.RemainingSize(), 7U);
        stream.seekp(0);
        stream << static_cast<unsigned char>(0xFF);
        EXPECT_EQ(stream.Buffer(), (Bytes{0xFF, 2, 3, 4, 7, 8, 9, 10}));
        stream.seekp(10);
        EXPECT_EQ(stream.Buffer(), (Bytes{0xFF, 2, 3, 4, 7, 8, 9, 10, 0, 0}));
        stream << static_cast<unsigned char>(1);
        EXPECT_EQ(stream.Buffer(), (Bytes{0xFF, 2, 3, 4, 7, 8, 9, 10, 0, 0, 1}));
        unsigned long long value = 0;
        stream >> value;
        EXPECT_EQ(value, 0x00000A09080704ULL << 16 | 0x0302ULL);
    });
    EXPECT_EQ(original, (Bytes{1, 2, 3, 4, 5, 6})) << "borrowed bytes are left alone";
}

TEST(StringStream, LongOnesArePatchedAndHandedOverLikeShortOnes) {
    Bytes bytes(500);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
    OnEveryKind(bytes, [bytes](bin::stringstream& stream) mutable {
        stream.seekp(2);
        stream << static_cast<unsigned char>(0xEE);
        bytes[2] = 0xEE;
        EXPECT_EQ(stream.tellp(), 3U);
        stream.seekp(700);
        bytes.resize(700);
        EXPECT_EQ(stream.TakeRemaining(), bytes);
        EXPECT_EQ(stream.rdstate(), kEnd);
        EXPECT_EQ(stream.RemainingSize(), 0U);
    });
}

TEST(StringStream, GapsAreZeroWhereverTheStreamKeepsItsBytes) {
    for (const unsigned long length : {4UL, 100UL, 300UL}) {
        bin::stringstream stream;
        stream.fill('x', 2 * length);
        ASSERT_EQ(stream.TakeRemaining().size(), 2 * length);
        stream.clear();
        stream.seekp(stream.tellg() + length);
        EXPECT_EQ(stream.TakeRemaining(), Bytes(length)) << "old bytes show through";
    }
}

TEST(StringStream, WhatIsWrittenCanBeReadAtOnce) {
    // Wider than any room that the stream keeps ready, so that it grows in every phase of a value.
    bin::stringstream stream;
    for (unsigned int i = 0; i < 1000; ++i) {
        stream << i << static_cast<unsigned char>(i) << static_cast<unsigned short>(i * 3);
        unsigned int first = 0;
        unsigned char second = 0;
        stream >> first >> second;
        ASSERT_TRUE(stream.good());
        unsigned short third = 0;
        stream >> third;
        ASSERT_EQ(first, i);
        ASSERT_EQ(second, i & 0xFF);
        ASSERT_EQ(third, static_cast<unsigned short>(i * 3));
        ASSERT_EQ(stream.rdstate(), kEnd);
        stream.clear();
    }
    EXPECT_EQ(stream.Buffer().size(), 7000U);
}

TEST(StringStream, NothingIsWrittenAfterAFailure) {
    for (const auto state : {kBad, kFail}) {
        bin::stringstream stream;
        stream << 1;
        stream.setstate(state);
        stream << 2 << "text" << 'c';
        EXPECT_EQ(stream.Buffer().size(), 4U);
        EXPECT_EQ(stream.tellp(), 4U);
    }
    bin::stringstream atEnd(Bytes{1});
    atEnd.get();
    atEnd << static_cast<unsigned char>(2);
    EXPECT_EQ(atEnd.Buffer(), Bytes{2}) << "the end is no failure";
}

TEST(StringStream, EmptyOneFailsAtItsFirstRead) {
    OnEveryKind({}, [](bin::stringstream& stream) {
        EXPECT_EQ(stream.rdstate(), ios::goodbit);
        EXPECT_EQ(stream.peek(), -1);
        EXPECT_TRUE(stream.Buffer().empty());
        stream.seekp(8);
        EXPECT_EQ(stream.Buffer(), Bytes(8));
        stream.seekg(8);
        EXPECT_EQ(stream.get(), 0);
        EXPECT_EQ(stream.rdstate(), kFail);
    });
}

TEST(StringStream, TakeRemainingEqualsReadingByteByByte) {
    OnEveryKind({1, 2, 3}, [](bin::stringstream& stream) {
        EXPECT_EQ(stream.TakeRemaining(), (Bytes{1, 2, 3}));
        EXPECT_EQ(stream.rdstate(), kEnd);
        EXPECT_EQ(stream.RemainingSize(), 0U);
        EXPECT_EQ(stream.TakeRemaining(), Bytes());
        EXPECT_EQ(stream.rdstate(), kEnd);
        stream.clear();
        stream.seekp(stream.tellg());
        stream << static_cast<unsigned char>(9);
        EXPECT_EQ(stream.TakeRemaining(), Bytes{9}) << "usable again";
    });
    OnEveryKind({1, 2, 3}, [](bin::stringstream& stream) {
        stream.ignore(2);
        EXPECT_EQ(stream.TakeRemaining(), Bytes{3});
        EXPECT_EQ(stream.rdstate(), kEnd);
        EXPECT_EQ(stream.Buffer(), (Bytes{1, 2, 3}));
    });
    OnEveryKind({}, [](bin::stringstream& stream) {
        EXPECT_EQ(stream.TakeRemaining(), Bytes());
        EXPECT_EQ(stream.rdstate(), kFail);
    });
}

TEST(StringStream, WideStringsGoThroughTheStreamsEncoding) {
    bin::stringstream stream;
    stream.encodingp(glo::gcUtf8Encoding);
    stream << L"\x20AC" << std::wstring();
    stream.encodingp(glo::gcWindows1252Encoding);
    stream << L"\x20AC";
    EXPECT_EQ(stream.Buffer(), (Bytes{0xE2, 0x82, 0xAC, 0, 0, 0x80, 0}));

    std::wstring text = L"old";
    stream.encodingg(stream.encodingp());
    stream.seekg(5);
    stream >> text;
    EXPECT_EQ(text, L"\x20AC");
    EXPECT_EQ(stream.rdstate(), kEnd);
    stream >> text;
    EXPECT_EQ(text, L"\x20AC") << "a failed read leaves its target";
}

TEST(StringStream, WideStringWithoutEncodingStopsTheProcess) {
    std::wstring text;
    EXPECT_EXIT(bin::stringstream(Bytes{0}) >> text, testing::KilledBySignal(SIGILL),
                "File: libs/BIN/BIN_istream Line: 239\n");
    EXPECT_EXIT(bin::stringstream() << L"text", testing::KilledBySignal(SIGILL),
                "File: libs/BIN/BIN_ostream Line: 229\n");
}

TEST(IstreamIterator, TakesEveryByteUpToTheEnd) {
    using Iterator = bin::istream_iterator<unsigned char>;
    bin::stringstream stream(Bytes{1, 2, 3, 4});
    Iterator it(stream);
    EXPECT_TRUE(Iterator() == Iterator());
    EXPECT_FALSE(it == it) << "two iterators on streams are never equal";
    EXPECT_FALSE(it == Iterator(stream));
    EXPECT_EQ(*it, 1);
    EXPECT_EQ(*it++, 1);
    EXPECT_EQ(std::accumulate(it, Iterator(), 0), 2 + 3 + 4);
    EXPECT_TRUE(Iterator() == it);
    EXPECT_EQ(stream.rdstate(), kEnd);
}
