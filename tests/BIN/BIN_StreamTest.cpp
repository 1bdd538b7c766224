#include "BIN/BIN_fstream.hpp"
#include "BIN/BIN_istream_iterator.hpp"
#include "BIN/BIN_stringstream.hpp"
#include "GLO/GLO_String.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <numeric>
#include <sstream>
#include <utility>
#include <vector>

namespace {

using std::ios_base;
using Bytes = std::vector<unsigned char>;

/// Does what the script says and answers with what really happened, in the script's own form. Its words are calls,
/// each with its result and with the bits that are set after it: (e)nd, (f)ail, (b)ad. A value that isn't read stays 9.
std::string Play(bin::istream& stream, const std::string& script) {
    std::istringstream words(script);
    std::ostringstream played;
    unsigned long n = 0;
    const auto value = [&](auto read) {
        stream >> read;
        played << '=' << +read;
    };
    const auto string = [&](const auto& bytes) { played << '=' << std::string(bytes.begin(), bytes.end()); };
    const std::map<std::string, std::function<void()>> calls = {
        {"bool", [&] { value(true); }},
        {"byte", [&] { value(static_cast<unsigned char>(9)); }},
        {"short", [&] { value(static_cast<unsigned short>(9)); }},
        {"int", [&] { value(9U); }},
        {"long", [&] { value(9L); }},
        {"ulong", [&] { value(9UL); }},
        {"get", [&] { played << '=' << +stream.get(); }},
        {"peek", [&] { played << '=' << stream.peek(); }},
        {"at", [&] { played << '=' << stream.tellg(); }},
        {"left", [&] { played << '=' << stream.RemainingSize(); }},
        {"rest", [&] { string(dynamic_cast<bin::stringstream&>(stream).TakeRemaining()); }},
        {"skip", [&] { stream.ignore(n); }},
        {"skiptext", [&] { stream.ignore_string(); }},
        {"seek", [&] { stream.seekg(n); }},
        {"clear", [&] { stream.clear(static_cast<bin::ios::iostate>(n)); }},
        {"text",
         [&] {
             std::string text = "9";
             stream >> text;
             string(text);
         }},
        {"read",
         [&] {
             std::string bytes(n, ' ');
             stream.read(bytes.data(), n);
             string(bytes.substr(0, stream.gcount()));
         }},
    };
    for (std::string word; words >> word;) {
        const std::string call = word.substr(0, word.find_first_of("=:"));
        const std::string name = call.substr(0, call.find('('));
        n = name == call ? 0 : std::stoul(call.substr(name.size() + 1));
        played << (played.tellp() > 0 ? " " : "") << call;
        calls.at(name)();
        played << (stream.good() ? "" : ":") << (stream.eof() ? "e" : "")
               << (stream.rdstate() & bin::ios::failbit ? "f" : "") << (stream.bad() ? "b" : "");
    }
    return played.str();
}

class Stream : public testing::Test {
  protected:
    /// Every way for a stream in memory to come by the same bytes.
    static void InMemory(const std::string& bytes, auto action) {
        bin::stringstream copied({bytes.begin(), bytes.end()});
        In("copied", copied, action);
        bin::stringstream written;
        for (const char byte : bytes) written << byte;
        In("written", written, action);
    }

    /// Both kinds of file that can be read.
    void InFile(auto action) {
        bin::ifstream reader(mPath);
        In("ifstream", reader, action);
        bin::fstream both(mPath, ios_base::in);
        In("fstream", both, action);
    }

    static Bytes Written(const std::function<void(bin::ostream&)>& write) {
        bin::stringstream stream;
        write(stream);
        EXPECT_EQ(stream.rdstate(), bin::ios::goodbit);
        return stream.Buffer();
    }

    static void In(const char* kind, auto& stream, auto& action) {
        SCOPED_TRACE(kind);
        action(stream);
    }

    void Put(const std::string& bytes) { support::WriteFile(mFile, bytes); }
    std::string Content() { return support::ReadFile(mFile); }

    const support::TemporaryFolder mFolder;
    const std::string mFile = mFolder / "\xC3\xA4.bin";
    std::wstring mPath = glo::wstring(mFile, glo::gcUtf8Encoding);
};
using FileStream = Stream;

TEST_F(Stream, ReadingFollowsTheSameRulesInMemoryAndInFiles) {
    using namespace std::string_literals;
    const std::string xs(300, 'x');  // longer than one block of a file's search for the 0 byte
    const struct {
        std::string bytes, script;
    } cases[] = {
        {"\1\0\0\0"s, "int=1:e peek=-1:e byte=9:ef bool=1:ef long=9:ef at=4:ef"},
        {"\1\0\0\x80gone\1\0\0\x80gone@"s, "long=2147483649 ulong=2147483649 bool=1:e"},
        {"\5\6\7"s, "short=1541 short=9:f at=2:f left=1:f peek=-1:f clear peek=7 get=7:e get=0:ef"},
        {"abcd"s, "read(1)=a read(10)=bcd:e read(1)=:ef at=4:ef"},
        {"A\0B\0CD"s, "text=A skiptext at=4 text=9:f at=4:f clear skiptext:f clear peek=67"},
        {"\0"s, "text=:e skiptext:ef"},
        {xs + "\0y\0"s, "text=" + xs + " at=301 text=y:e"},
        {"abc"s, "skip(2) skip(0) peek=99 skip(18446744073709551615):e skip(0):e skip(1):ef at=3:ef"},
        {"abc"s, "skip(3):e clear seek(3) get=0:f"},
        {"abc"s,
         "seek(3) seek(4):f clear(4):e seek(0):e byte=9:ef clear byte=97 seek(4):f byte=9:f at=1:f clear get=98"},
    };
    for (const auto& c : cases) {
        const auto plays = [&](bin::istream& stream) { EXPECT_EQ(Play(stream, c.script), c.script); };
        InMemory(c.bytes, plays);
        Put(c.bytes);
        InFile(plays);
    }
}

TEST_F(Stream, TakingAllThatRemainsInMemoryEqualsReadingByteByByte) {
    const std::pair<std::string, std::string> cases[] = {
        {"abc", "rest=abc:e left=0:e rest=:e"}, {"abc", "skip(2) rest=c:e"}, {"", "peek=-1 get=0:f"}, {"", "rest=:f"}};
    for (const auto& [bytes, script] : cases)
        InMemory(bytes, [&script = script](auto& stream) { EXPECT_EQ(Play(stream, script), script); });
}

TEST_F(Stream, InMemoryGivesAtOnceWhatIsWritten) {
    bin::stringstream stream;
    for (unsigned int i = 0; i < 1000; ++i) {  // grows in every phase of a value
        stream << i << static_cast<unsigned char>(i) << static_cast<unsigned short>(i * 3);
        const std::string script = "int=" + std::to_string(i) + " byte=" + std::to_string(i & 0xFF) +
                                   " short=" + std::to_string(i * 3) + ":e clear";
        ASSERT_EQ(Play(stream, script), script);
    }
    EXPECT_EQ(stream.Buffer().size(), 7000U);
}

TEST_F(FileStream, AlsoSeekFromWhereTheyAreAndFromTheEnd) {
    Put("abcdefgh");
    InFile([](auto& stream) {
        stream.seekg(-3, ios_base::end);
        EXPECT_EQ(Play(stream, "get"), "get=102");
        stream.seekg(-2, ios_base::cur);
        EXPECT_EQ(Play(stream, "get"), "get=101");
        stream.seekg(-9, ios_base::end);
        EXPECT_EQ(Play(stream, "at"), "at=5:f");
    });
}

TEST_F(FileStream, MissingOneFailsAndEmptyOneIsAtItsEndAndKindsDifferWhereNoneIsOpenAndInReadsOfNoBytes) {
    InFile([](auto& stream) { EXPECT_EQ(Play(stream, "at"), "at=0:b") << "not there"; });
    Put("");
    InFile([](auto& stream) { EXPECT_EQ(Play(stream, "at"), "at=0:e"); });
    bin::ifstream reader;
    EXPECT_EQ(Play(reader, "skip(0) skip(1) clear get"), "skip(0) skip(1):f clear get=0:f");
    bin::fstream both;
    EXPECT_EQ(Play(both, "skip(1) get peek"), "skip(1) get=0 peek=-1");

    Put("abc");
    reader.open(mPath);
    EXPECT_EQ(Play(reader, "at"), "at=0") << "opening anew forgets the earlier failure";
    char byte = 0;
    reader.BinInput(&byte, 0);
    EXPECT_TRUE(reader.fail());
    both.open(mPath, ios_base::in);
    both.BinInput(&byte, 0);
    EXPECT_TRUE(both.good());
}

TEST_F(FileStream, IsReadOnAsItGrowsAndFailsWhereItWasCut) {
    Put("12abcd");
    InFile([this](auto& stream) {
        EXPECT_EQ(Play(stream, "short"), "short=12849");
        Put("1");
        EXPECT_EQ(Play(stream, "left get clear"), "left=0 get=0:f clear");
        Put("12ab");
        EXPECT_EQ(Play(stream, "get"), "get=97") << "what was read ahead counts no longer";
        Put("12abcd");
        EXPECT_EQ(Play(stream, "get get get"), "get=98 get=99 get=100:e");
    });
}

TEST_F(Stream, InMemoryIsPatchedAndGrowsWhereverTheReadPositionIs) {
    InMemory("123456", [](bin::stringstream& stream) {
        stream.ignore(1);
        stream.seekp(4);
        stream << 0x0A090807U;
        EXPECT_EQ(stream.tellp(), 8U);
        EXPECT_EQ(Play(stream, "at left"), "at=1 left=7");
        stream.seekp(0);
        stream << 'a';
        Bytes expected = {'a', '2', '3', '4', 7, 8, 9, 10};
        EXPECT_EQ(stream.Buffer(), expected);
        stream.seekp(700);
        expected.resize(700);
        EXPECT_EQ(stream.Buffer(), expected);
        stream << 'b';
        EXPECT_EQ(Play(stream, "read(3)=234 skip(696)"), "read(3)=234 skip(696)");
        EXPECT_EQ(Play(stream, "rest left clear seek(0) get"), "rest=b:e left=0:e clear seek(0) get=97");
    });
}

TEST_F(FileStream, OutputReplacesTheFileAndExpandsIt) {
    Put("something longer");
    bin::ofstream stream(mPath);
    stream << 0x64636261U;
    stream.seekp(1);
    stream.expand(5000, 'z');
    EXPECT_EQ(stream.tellp(), 1U);
    stream << 'B';
    stream.seekp(-1, ios_base::end);
    stream << 'E';
    stream.seekp(-6000, ios_base::cur);
    EXPECT_EQ(stream.rdstate(), bin::ios::failbit);
    stream << "lost";
    stream.close();
    EXPECT_EQ(Content(), "aBcd" + std::string(4999, 'z') + "E");

    EXPECT_TRUE(bin::ofstream(mPath + L"/no/such").bad());
    bin::ofstream closed;
    closed << 'x';
    EXPECT_TRUE(closed.bad());
}

TEST_F(FileStream, OpenModesFollowTheTable) {
    constexpr auto in = ios_base::in, out = ios_base::out, trunc = ios_base::trunc, app = ios_base::app;
    const std::pair<ios_base::openmode, int> cases[] = {{in, 0},
                                                        {out | ios_base::binary, 1},
                                                        {out | trunc, 1},
                                                        {out | app | ios_base::ate, 2},
                                                        {in | out, 3},
                                                        {in | out | trunc, 4},
                                                        {in | out | app, 5},
                                                        {in | app | ios_base::binary, 5},
                                                        {trunc, -1},
                                                        {in | trunc, -1},
                                                        {out | app | trunc, -1}};
    for (const auto& [modes, number] : cases) {
        fil::OpenMode_t mode{};
        ASSERT_EQ(bin::FileOpenMode(modes, mode), number != -1) << modes;
        EXPECT_EQ(static_cast<int>(mode), std::max(number, 0)) << modes;
    }
    EXPECT_TRUE(bin::fstream(mPath, trunc).bad());
}

TEST_F(FileStream, BothWaysKeepsTwoPositionsAndAFreshReadAhead) {
    bin::fstream stream(mPath, ios_base::in | ios_base::out | ios_base::trunc);
    const auto plays = [&](const std::string& script) { EXPECT_EQ(Play(stream, script), script); };
    plays("at=0:e");
    for (int i = 0; i < 1000; ++i) stream << i;
    plays("at=0");  // there is something to read now
    for (int i = 0; i < 300; ++i) plays("int=" + std::to_string(i));
    stream.seekp(1200);
    stream << 7;  // the next one to be read, which lies in the read-ahead
    plays("int=7");
    std::string block(2000, ' ');
    stream.BinInput(block.data(), block.size());  // past the read-ahead, straight from the file
    EXPECT_EQ(block.substr(1996), std::string("\x20\3\0\0", 4));
    plays("at=3204 int=801 skip(1000):e");
    stream.expand(2, 'x');
    EXPECT_EQ(stream.tellp(), 1204U);
    plays("read(1)=x");
    stream.seekp(-2, ios_base::end);
    stream << 'a' << 'b';
    plays("read(1)=b:e");
    EXPECT_EQ(Content().size(), 4002U);
}

TEST_F(FileStream, AppendingWritesGoToTheEndWhereverThePositionIs) {
    Put("ab");
    bin::fstream stream(mPath, ios_base::in | ios_base::out | ios_base::app);
    EXPECT_EQ(stream.tellp(), 0U);
    stream << 'c';
    EXPECT_EQ(stream.tellp(), 3U);
    EXPECT_EQ(Play(stream, "read(1)"), "read(1)=a");
    stream.open(mPath, ios_base::out | ios_base::app | ios_base::ate);
    EXPECT_EQ(Play(stream, "at"), "at=3");
    stream << 'd';
    stream.get();
    EXPECT_TRUE(stream.bad()) << "not open for reading";
    EXPECT_EQ(Content(), "abcd");
}

TEST_F(FileStream, AWriterNeitherOpensNorEmptiesWhatReadersKeepFromIt) {
    using Share = fil::ShareMode_t;
    Put("kept");
    const bin::ifstream first(mPath, Share::DenyWrite), second(mPath, Share::DenyWrite);
    EXPECT_TRUE(second.good());
    EXPECT_TRUE(bin::ofstream(mPath, Share::DenyWrite).bad());
    EXPECT_EQ(Content(), "kept");
}

TEST_F(Stream, ValuesTravelInTheirWidths) {
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
}

TEST_F(Stream, NothingIsWrittenAfterAFailure) {
    for (const auto state : {bin::ios::badbit, bin::ios::failbit, bin::ios::eofbit}) {
        bin::stringstream stream;
        stream.setstate(state);
        stream << 2 << "text";
        EXPECT_EQ(stream.tellp(), state == bin::ios::eofbit ? 9U : 0U) << "the end is no failure";
    }
}

TEST_F(Stream, WideStringsGoThroughTheStreamsEncoding) {
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
    stream >> text;
    EXPECT_EQ(text, L"\x20AC") << "a failed read leaves its target";
}

TEST_F(Stream, WideStringWithoutEncodingStopsTheProcess) {
    std::wstring text;
    EXPECT_EXIT(bin::stringstream(Bytes{0}) >> text, testing::KilledBySignal(SIGILL),
                "File: libs/BIN/BIN_istream Line: 239\n");
    EXPECT_EXIT(bin::stringstream() << L"text", testing::KilledBySignal(SIGILL),
                "File: libs/BIN/BIN_ostream Line: 229\n");
}

TEST_F(Stream, IteratorTakesEveryByteUpToTheEnd) {
    using Iterator = bin::istream_iterator<unsigned char>;
    bin::stringstream stream(Bytes{1, 2, 3, 4});
    Iterator it(stream);
    EXPECT_TRUE(Iterator() == Iterator());
    EXPECT_FALSE(it == it) << "two iterators on streams are never equal";
    EXPECT_EQ(*it++, 1);
    EXPECT_EQ(std::accumulate(it, Iterator(), 0), 2 + 3 + 4);
    EXPECT_EQ(stream.rdstate(), bin::ios::eofbit);
}

}  // namespace
