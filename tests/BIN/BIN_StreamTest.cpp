#include "BIN/BIN_fstream.hpp"
#include "BIN/BIN_stringstream.hpp"
#include "GLO/GLO_String.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace {

using bin::ios;
using std::ios_base;
using Bytes = std::vector<unsigned char>;

class FileStream : public testing::Test {
  protected:
    /// Both kinds of file that can be read.
    void InFile(auto action) {
        for (const bool isBoth : {false, true}) {
            SCOPED_TRACE(isBoth ? "fstream" : "ifstream");
            if (isBoth) {
                bin::fstream both(mPath, ios_base::in);
                action(both);
            } else {
                bin::ifstream reader(mPath);
                action(reader);
            }
        }
    }

    void Put(const std::string& bytes) { support::WriteFile(mFile, bytes); }
    std::string Content() { return support::ReadFile(mFile); }

    const support::TemporaryFolder mFolder;
    const std::string mFile = mFolder / "\xC3\xA4.bin";
    std::wstring mPath = glo::wstring(mFile, glo::gcUtf8Encoding);
};

TEST_F(FileStream, MissingOneFailsAndEmptyOneIsAtItsEndAndOpeningAnewForgetsThat) {
    InFile([](auto& stream) { EXPECT_EQ(stream.rdstate(), ios::badbit) << "not there"; });
    bin::ifstream reader(mPath);
    Put("");
    InFile([](auto& stream) { EXPECT_EQ(stream.rdstate(), ios::eofbit); });
    Put("abc");
    reader.open(mPath);
    EXPECT_TRUE(reader.good());
}

TEST_F(FileStream, IsReadOnAsItGrowsAndFailsWhereItWasCut) {
    Put("12abcd");
    InFile([this](auto& stream) {
        EXPECT_EQ(stream.get(), '1');
        EXPECT_EQ(stream.get(), '2');
        Put("1");
        EXPECT_EQ(stream.RemainingSize(), 0U);
        EXPECT_EQ(stream.get(), 0);
        EXPECT_EQ(stream.rdstate(), ios::failbit);
        stream.clear();
        Put("12ab");
        EXPECT_EQ(stream.get(), 'a') << "what was read ahead counts no longer";
        Put("12abcd");
        for (const char byte : {'b', 'c', 'd'}) EXPECT_EQ(stream.get(), byte);
        EXPECT_EQ(stream.rdstate(), ios::eofbit);
    });
}

TEST_F(FileStream, OpenModesFollowTheTable) {
    constexpr auto in = ios_base::in, out = ios_base::out, trunc = ios_base::trunc, app = ios_base::app;
    constexpr auto ate = ios_base::ate, binary = ios_base::binary;
    const std::pair<ios_base::openmode, int> cases[] = {
        {in, 0},       {out | binary, 1},     {out | trunc, 1},       {out | app | ate, 2},
        {in | out, 3}, {in | out | trunc, 4}, {in | out | app, 5},    {in | app | binary, 5},
        {trunc, -1},   {in | trunc, -1},      {out | app | trunc, -1}};
    for (const auto& [modes, number] : cases) {
        fil::OpenMode_t mode{};
        ASSERT_EQ(bin::FileOpenMode(modes, mode), number != -1) << modes;
        EXPECT_EQ(static_cast<int>(mode), std::max(number, 0)) << modes;
    }
    EXPECT_TRUE(bin::fstream(mPath, trunc).bad());
    Put("abc");
    bin::fstream stream(mPath, out | app | ate);
    EXPECT_EQ(stream.tellg(), 3U);
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

TEST_F(FileStream, WideStringWithoutEncodingStopsTheProcess) {
    std::wstring text;
    EXPECT_EXIT(bin::stringstream(Bytes{0}) >> text, testing::KilledBySignal(SIGILL),
                "File: libs/BIN/BIN_istream Line: 239\n");
    EXPECT_EXIT(bin::stringstream() << L"text", testing::KilledBySignal(SIGILL),
                "File: libs/BIN/BIN_ostream Line: 229\n");
}

}  // namespace
