#include "BIN/BIN_istream_iterator.hpp"
#include "BIN/BIN_stringstream.hpp"
#include "GLO/GLO_String.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <numeric>

namespace {

using Bytes = std::vector<unsigned char>;
using bin::ios;

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
    EXPECT_EQ(stream.rdstate(), ios::eofbit);
    return value;
}

}  // namespace

TEST(StringStream, ValuesTravelInTheirWidths) {
    const std::pair<Bytes, Bytes> cases[] = {
        {{0x41}, Written([](auto& s) { s << 'A'; })},
        {{0xFF}, Written([](auto& s) { s << static_cast<signed char>(-1); })},
        {{1, 0}, Written([](auto& s) { s << true << false; })},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}, Written([](auto& s) { s << -1L; })},
        {{8, 7, 6, 5, 0, 0, 0, 0}, Written([](auto& s) { s << 0x0102030405060708UL; })},
        {{8, 7, 6, 5, 4, 3, 2, 1}, Written([](auto& s) { s << 0x0102030405060708ULL; })},
        {{'A', 'B', 0, 0}, Written([](auto& s) { s << "AB" << std::string(); })},
        {{7, 'x', 'x', 'x', 1, 2}, Written([](auto& s) { s.put(7).fill('x', 3).fill('y', 0).write("\1\2", 2); })},
    };
    for (const auto& [bytes, written] : cases) EXPECT_EQ(written, bytes);

    EXPECT_EQ(Read<long>({0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}), 4294967295L);
    EXPECT_EQ(Read<long>({1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}), 1L);
    EXPECT_EQ(Read<unsigned long>({1, 0, 0, 0x80, 9, 9, 9, 9}), 0x80000001UL);
    EXPECT_EQ(Read<bool>({0x40}), true);
}

TEST(StringStream, NothingIsWrittenAfterAFailure) {
    for (const auto state : {ios::badbit, ios::failbit, ios::eofbit}) {
        bin::stringstream stream;
        stream.setstate(state);
        stream << 2 << "text";
        EXPECT_EQ(stream.tellp(), state == ios::eofbit ? 9U : 0U) << "the end is no failure";
    }
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
    EXPECT_EQ(stream.rdstate(), ios::eofbit);
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
    EXPECT_EQ(*it++, 1);
    EXPECT_EQ(std::accumulate(it, Iterator(), 0), 2 + 3 + 4);
    EXPECT_EQ(stream.rdstate(), ios::eofbit);
}
