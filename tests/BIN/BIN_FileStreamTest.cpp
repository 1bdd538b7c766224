#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "BIN/BIN_fstream.hpp"
#include "GLO/GLO_Exception.hpp"
#include "GLO/GLO_String.hpp"
#include "tests/support/TemporaryFolder.hpp"

namespace {

using std::ios_base;
constexpr auto kBad = bin::ios::badbit;
constexpr auto kFail = bin::ios::failbit;
constexpr auto kEnd = bin::ios::eofbit;
constexpr auto kGood = bin::ios::goodbit;

class FileStream : public testing::Test {
  protected:
    void Put(const std::string& bytes) { support::WriteFile(mFile, bytes); }
    std::string Content() { return support::ReadFile(mFile); }
    static std::wstring Wide(const std::filesystem::path& path) {
        return glo::wstring(path.native(), glo::gcUtf8Encoding);
    }

    const support::TemporaryFolder mTemporary;
    const std::filesystem::path mFolder = mTemporary.path();
    const std::filesystem::path mFile = mFolder / "\xC3\xA4.bin";
    std::wstring mPath = Wide(mFile);
};

/// The rules that both kinds of reader share.
template <typename Stream>
class FileReader : public FileStream {
  protected:
    void Open(Stream& stream) {
        if constexpr (std::is_same_v<Stream, bin::ifstream>)
            stream.open(mPath);
        else
            stream.open(mPath, ios_base::in);
    }
};
using Readers = testing::Types<bin::ifstream, bin::fstream>;
TYPED_TEST_SUITE(FileReader, Readers);

}  // namespace

TYPED_TEST(FileReader, FollowsTheRulesOfMemory) {
    this->Put(std::string("\1\0\0\0AB\0", 7) + std::string(300, 'x') + '\0' + "yz");
    TypeParam stream;
    this->Open(stream);
    unsigned int number = 0;
    std::string text;
    EXPECT_EQ(stream.size(), 310U);
    EXPECT_EQ(stream.peek(), 1);
    stream >> number >> text;
    EXPECT_EQ(number, 1U);
    EXPECT_EQ(text, "AB");
    stream >> text;
    EXPECT_EQ(text, std::string(300, 'x')) << "longer than one block of the search";
    EXPECT_EQ(stream.tellg(), 308U);
    stream >> number;
    EXPECT_EQ(stream.rdstate(), kFail);
    EXPECT_EQ(stream.tellg(), 308U);
    stream.clear();
    stream >> text;
    EXPECT_EQ(stream.rdstate(), kFail) << "no zero byte ahead";
    stream.clear();
    EXPECT_EQ(stream.peek(), 'y');
    char bytes[10];
    stream.read(bytes, 10);
    EXPECT_EQ(stream.gcount(), 2U);
    EXPECT_EQ(bytes[1], 'z');
    EXPECT_EQ(stream.rdstate(), kEnd);
    EXPECT_EQ(stream.peek(), -1);
    EXPECT_EQ(stream.get(), 0);
    EXPECT_EQ(stream.rdstate(), kEnd | kFail);
}

TYPED_TEST(FileReader, SkipsAndSeeks) {
    this->Put(std::string("abc\0def\0", 8));
    TypeParam stream;
    this->Open(stream);
    stream.ignore_string();
    stream.ignore(1);
    EXPECT_EQ(stream.tellg(), 5U);
    stream.seekg(-3, ios_base::end);
    EXPECT_EQ(stream.get(), 'e');
    stream.seekg(-2, ios_base::cur);
    EXPECT_EQ(stream.get(), 'd');
    EXPECT_EQ(stream.RemainingSize(), 3U);
    stream.ignore(100);
    EXPECT_EQ(stream.rdstate(), kEnd);
    EXPECT_EQ(stream.tellg(), 8U);
    stream.ignore(1);
    EXPECT_EQ(stream.rdstate(), kEnd | kFail);
    for (const long offset : {-9L, 1L, std::numeric_limits<long>::min()}) {
        stream.clear();
        stream.seekg(offset, ios_base::end);
        EXPECT_EQ(stream.rdstate(), kFail) << offset;
        EXPECT_EQ(stream.tellg(), 8U) << offset;
    }
}

TYPED_TEST(FileReader, EmptyFileIsAtItsEndAndMissingOneIsBad) {
    TypeParam stream;
    this->Open(stream);
    EXPECT_EQ(stream.rdstate(), kBad);
    this->Put("");
    this->Open(stream);
    EXPECT_EQ(stream.rdstate(), kEnd) << "opening anew forgets the earlier failure";
    this->mPath = this->Wide(this->mFolder);
    this->Open(stream);
    EXPECT_EQ(stream.rdstate(), kBad) << "a folder is no file";
}

TYPED_TEST(FileReader, FileThatShrinksUnderTheReaderIsBad) {
    this->Put(std::string(8, 'x'));
    TypeParam stream;
    this->Open(stream);
    stream.ignore(4);
    ASSERT_EQ(::truncate(this->mFile.c_str(), 2), 0);
    EXPECT_EQ(stream.RemainingSize(), 0U);
    stream.get();
    EXPECT_EQ(stream.rdstate(), kFail);
}

TEST_F(FileStream, ClosedReadersDifferInTheirState) {
    bin::ifstream reader;
    EXPECT_EQ(reader.get(), 0);
    EXPECT_EQ(reader.rdstate(), kFail);
    bin::fstream both;
    EXPECT_EQ(both.get(), 0);
    EXPECT_EQ(both.rdstate(), kGood);
    EXPECT_EQ(both.peek(), -1);

    Put("abc");
    reader.open(mPath);
    char byte = 0;
    reader.BinInput(&byte, 0);
    EXPECT_EQ(reader.rdstate(), kFail) << "a read of no bytes fails on this kind";
    both.open(mPath, ios_base::in);
    both.BinInput(&byte, 0);
    EXPECT_EQ(both.rdstate(), kGood);
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
    EXPECT_EQ(stream.rdstate(), kFail);
    stream << "lost";
    stream.close();
    EXPECT_EQ(Content(), "aBcd" + std::string(4999, 'z') + "E");

    bin::ofstream nowhere(Wide(mFolder / "no" / "such"));
    EXPECT_EQ(nowhere.rdstate(), kBad);
    bin::ofstream closed;
    closed << 'x';
    EXPECT_EQ(closed.rdstate(), kBad);
}

TEST_F(FileStream, OpenModesFollowTheTable) {
    const struct {
        ios_base::openmode mode;
        std::optional<int> number;
    } cases[] = {
        {ios_base::in, 0},
        {ios_base::out | ios_base::binary, 1},
        {ios_base::out | ios_base::trunc, 1},
        {ios_base::out | ios_base::app | ios_base::ate, 2},
        {ios_base::in | ios_base::out, 3},
        {ios_base::in | ios_base::out | ios_base::trunc, 4},
        {ios_base::in | ios_base::out | ios_base::app, 5},
        {ios_base::in | ios_base::app | ios_base::binary, 5},
        {ios_base::trunc, std::nullopt},
        {ios_base::in | ios_base::trunc, std::nullopt},
        {ios_base::out | ios_base::app | ios_base::trunc, std::nullopt},
        {ios_base::openmode(), std::nullopt},
    };
    for (const auto& c : cases) {
        fil::OpenMode_t mode{};
        ASSERT_EQ(bin::FileOpenMode(c.mode, mode), c.number.has_value()) << c.mode;
        EXPECT_EQ(static_cast<int>(mode), c.number.value_or(0)) << c.mode;
    }
    EXPECT_EQ(bin::fstream(mPath, ios_base::trunc).rdstate(), kBad);
}

TEST_F(FileStream, BothWaysKeepsTwoPositionsAndAFreshReadAhead) {
    bin::fstream stream(mPath, ios_base::in | ios_base::out | ios_base::trunc);
    EXPECT_EQ(stream.rdstate(), kEnd);
    for (int i = 0; i < 1000; ++i) stream << i;
    EXPECT_EQ(stream.rdstate(), kGood) << "there is something to read now";
    EXPECT_EQ(stream.tellp(), 4000U);
    EXPECT_EQ(stream.tellg(), 0U);
    int value = -1;
    for (int i = 0; i < 300; ++i) {
        stream >> value;
        ASSERT_EQ(value, i);
    }
    stream.seekp(1200);
    stream << -7;  // the next one to be read, which lies in the read-ahead
    stream >> value;
    EXPECT_EQ(value, -7);
    std::string block(2000, ' ');
    stream.BinInput(block.data(), block.size());  // past the read-ahead, straight from the file
    EXPECT_EQ(stream.tellg(), 3204U);
    stream >> value;
    EXPECT_EQ(value, 801);
    stream.ignore(1000);
    EXPECT_EQ(stream.rdstate(), kEnd);
    stream.expand(2, 'x');
    EXPECT_EQ(stream.rdstate(), kGood);
    EXPECT_EQ(stream.tellp(), 1204U);
    EXPECT_EQ(stream.get(), 'x');
    stream.seekp(-2, ios_base::end);
    stream << 'a' << 'b';
    EXPECT_EQ(stream.get(), 'b');
    stream.close();
    EXPECT_FALSE(stream.isopen());
    EXPECT_EQ(Content().size(), 4002U);
}

TEST_F(FileStream, AppendingWritesGoToTheEndWhereverThePositionIs) {
    Put("ab");
    bin::fstream stream(mPath, ios_base::in | ios_base::out | ios_base::app);
    EXPECT_EQ(stream.tellp(), 0U);
    stream << 'c';
    EXPECT_EQ(stream.tellp(), 3U);
    EXPECT_EQ(stream.get(), 'a');
    stream.open(mPath, ios_base::out | ios_base::app | ios_base::ate);
    EXPECT_EQ(stream.tellp(), 3U);
    EXPECT_EQ(stream.tellg(), 3U);
    stream << 'd';
    EXPECT_EQ(stream.rdstate(), kGood);
    stream.get();
    EXPECT_EQ(stream.rdstate() & kBad, kBad) << "not open for reading";
    EXPECT_EQ(Content(), "abcd");
}

TEST_F(FileStream, ShareModesKeepOthersOut) {
    using Share = fil::ShareMode_t;
    using Mode = fil::OpenMode_t;
    const struct {
        Mode first;
        Share firstShare;
        Mode second;
        Share secondShare;
        bool opens;
    } cases[] = {
        {Mode::Write, Share::DenyAll, Mode::Read, Share::DenyNone, true},  // advisory
        {Mode::Write, Share::DenyAll, Mode::Read, Share::DenyWrite, false},
        {Mode::Read, Share::DenyWrite, Mode::Read, Share::DenyWrite, true},
        {Mode::Read, Share::DenyWrite, Mode::Write, Share::DenyWrite, false},
        {Mode::Read, Share::DenyWrite, Mode::Read, Share::DenyAll, false},
        {Mode::Read, Share::DenyNone, Mode::Append, Share::DenyAll, true},
    };
    for (const auto& c : cases) {
        Put("kept");
        fil::File_t first;
        fil::File_t second;
        first.Open(mPath, c.first, c.firstShare);
        if (c.opens) {
            EXPECT_NO_THROW(second.Open(mPath, c.second, c.secondShare));
        } else {
            EXPECT_THROW(second.Open(mPath, c.second, c.secondShare), glo::FileError_t);
            EXPECT_FALSE(second.IsOpen());
            EXPECT_EQ(Content(), c.first == Mode::Write ? "" : "kept") << "a refused writer empties nothing";
        }
    }
}

TEST_F(FileStream, FileErrorsNameTheReasonAndThePath) {
    fil::File_t file;
    try {
        file.Open(mPath, fil::OpenMode_t::ReadWrite);
        FAIL() << "opened what is not there";
    } catch (const glo::FileError_t& e) {
        EXPECT_EQ(e.File(), "libs/FIL/FIL_File");
        EXPECT_EQ(e.Message(), L"No such file or directory. Path: " + mPath);
    }
    EXPECT_THROW(file.Size(), glo::FileError_t);
    EXPECT_THROW(file.Position(), glo::FileError_t);
    EXPECT_THROW(file.Write("x", 1), glo::FileError_t);
    file.Open(mPath, fil::OpenMode_t::ReadWriteCreate);
    EXPECT_THROW(file.Seek(-1, fil::File_t::From_t::Begin), glo::FileError_t);
    char byte = 0;
    EXPECT_EQ(file.Read(&byte, 1), 0U);
}
