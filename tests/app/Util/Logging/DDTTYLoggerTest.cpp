#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/DDLogFormatter.hpp"
#include "app/Util/Logging/DDTTYLogger.hpp"
#include "platform/common/FileDescriptor.hpp"
#include "tests/app/Util/Logging/LoggingSupport.hpp"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <tuple>
#include <unistd.h>

namespace {

class UpperCaseA final : public DDLogFormatter {
  public:
    bool formatLogMessage(const DDLogMessage& message, std::string& text) override {
        if (message.logMsg == "hide") return false;
        for (const char c : message.logMsg) text += c == 'a' ? 'A' : c;
        return true;
    }
};

/// A console logger on a file.
struct Console {
    explicit Console(DDTTYPalette palette = DDTTYPalette::none()) : logger(file.get(), std::move(palette)) {}
    std::string log(const DDLogMessage& message) {
        logger.logMessage(message);
        const std::string all = support::ReadFile(path);
        return all.substr(std::exchange(seen, all.size()));
    }
    support::TemporaryFolder folder;
    std::string path = folder / "console";
    platform::FileDescriptor file{::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600)};
    std::size_t seen = 0;
    DDTTYLogger logger;
};

DDLogMessage messageAt(const std::string& text, std::uint32_t flag = 4, std::uint32_t thread = 0x1a03) {
    DDLogMessage message = messageWithText(text, flag);
    message.timestamp = std::chrono::system_clock::from_time_t(1795030000) + std::chrono::microseconds(120999);
    message.machThreadID = thread;
    return message;
}

TEST(DDTTYLogger, BuiltInFormHasTimeProcessThreadAndOneLineEnd) {
    const TimeZone zone("Europe/Berlin");
    Console console;
    const std::string start = "2026-11-18 20:26:40:120 logging_test[" + std::to_string(::getpid());
    EXPECT_EQ(console.log(messageAt("ends\n", 1, 0xFFFFFFFF)), start + ":ffffffff] ends\n");
    for (const std::size_t length : {0UL, 4095UL, 4096UL, 100000UL}) {
        const std::string text(length, 'm');
        EXPECT_EQ(console.log(messageAt(text)), start + ":1a03] " + text + "\n");
    }
    // A formatter that changes nothing leaves the built-in form.
    console.logger.setLogFormatter(std::make_shared<UpperCaseA>());
    EXPECT_EQ(console.log(messageAt("text")), start + ":1a03] text\n");
    EXPECT_EQ(console.log(messageAt("a text")), "A text\n");
    EXPECT_EQ(console.log(messageAt("hide")), "");
}

TEST(DDTTYLogger, BatchIsWrittenInWholeLinesThatAPipeTakesAtOnceAndAClosedPipeIsNoticedByNobody) {
    DDLog::flushLog();  // the first use of the core sees to it that no signal comes
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_DIRECT), 0);  // keeps the writes apart
    platform::FileDescriptor readEnd(ends[0]), writeEnd(ends[1]);
    DDTTYLogger logger(writeEnd.get(), DDTTYPalette::none());
    const std::vector<std::string> lines(100, std::string(100, 'x'));
    deliver(logger, lines);
    std::string all, text(2 * PIPE_BUF, '\0');
    int writes = 0;
    while (std::count(all.begin(), all.end(), '\n') < 100) {
        const ssize_t size = ::read(readEnd.get(), text.data(), text.size());
        ASSERT_GT(size, 0);
        ASSERT_LE(size, PIPE_BUF);
        EXPECT_EQ(text[static_cast<std::size_t>(size) - 1], '\n');
        all.append(text, 0, static_cast<std::size_t>(size));
        ++writes;
    }
    EXPECT_LE(writes, 8);
    readEnd.reset();
    deliver(logger, lines);
}

TEST(DDTTYLogger, ColoursOfTheTagComeBeforeThoseOfFlagAndContextAndOnlyWhenEnabled) {
    Console console(DDTTYPalette::with16Colors());
    console.logger.setLogFormatter(std::make_shared<UpperCaseA>());
    const DDTTYColor red = DDTTYColor::fromBytes(205, 0, 0), blue = DDTTYColor::fromBytes(92, 92, 250);
    const int tag = 0;
    console.logger.setForegroundColor(red, std::nullopt, 1 | 2);
    console.logger.setForegroundColor(blue, blue, 2);
    console.logger.setForegroundColor(blue, blue, 4, 9);
    console.logger.setForegroundColorForTag(std::nullopt, red, &tag);
    EXPECT_FALSE(console.logger.colorsEnabled());
    EXPECT_EQ(console.log(messageAt("a", 1)), "A\n");
    console.logger.setColorsEnabled(true);
    const std::tuple<std::uint32_t, std::int32_t, const int*, const char*> cases[] = {
        {1, 0, nullptr, "\033[31mA\n\033[0m"},
        {2, 0, nullptr, "\033[31mA\n\033[0m"},
        {4, 0, nullptr, "A\n"},
        {4, 9, nullptr, "\033[1;34m\033[1;44mA\n\033[0m"},
        {1, 0, &tag, "\033[41mA\n\033[0m"}};
    for (const auto& [flag, context, ownTag, line] : cases) {
        DDLogMessage message = messageAt("a", flag);
        message.logContext = context;
        message.tag = ownTag;
        EXPECT_EQ(console.log(message), line) << flag << (ownTag ? " with the tag" : "");
    }

    const DDTTYColor beyond{1.5, -0.5, 205 / 255.0};
    const DDTTYLoggerColorProfile profile(DDTTYPalette::withDirectColors(), beyond, blue, 3, -1);
    EXPECT_THAT(profile.description(),
                testing::EndsWith(" mask:3 ctxt:-1 fg:255,0,205 bg:92,92,250 fgCode:\033[fg255,0,205; "
                                  "bgCode:\033[bg92,92,250;>"));
}

TEST(DDTTYPaletteTest, NearestEntryWinsAndTheFirstOfSeveral) {
    const DDTTYPalette few = DDTTYPalette::with16Colors(), many = DDTTYPalette::with256Colors();
    // White stands twice in the large table; the last two are as far from the entry as from a later one.
    const std::tuple<unsigned, unsigned, unsigned, std::string, std::string> cases[] = {
        {255, 255, 255, "1;47", "48;5;15"}, {95, 135, 175, "1;40", "48;5;67"}, {10, 9, 8, "40", "48;5;232"},
        {255, 135, 0, "43", "48;5;208"},    {34, 235, 35, "1;42", "48;5;10"},  {234, 182, 118, "47", "48;5;180"}};
    for (const auto& [red, green, blue, fewCode, manyCode] : cases) {
        const DDTTYColor color = DDTTYColor::fromBytes(red, green, blue);
        EXPECT_EQ(few.backgroundCode(color), "\033[" + fewCode + "m") << red;
        EXPECT_EQ(many.backgroundCode(color), "\033[" + manyCode + "m") << red;
    }
    EXPECT_EQ(many.foregroundCode(DDTTYColor::fromBytes(95, 135, 175)), "\033[38;5;67m");
}

TEST(DDTTYPaletteTest, TerminalIsToldByTheEnvironment) {
    // The terminal, the console's switch, and the code for pure red.
    const std::tuple<const char*, const char*, std::string> cases[] = {{"xterm-256color", nullptr, "\033[38;5;9m"},
                                                                       {"XTERM-Color", nullptr, "\033[1;31m"},
                                                                       {"dumb", nullptr, ""},
                                                                       {"vt256", "YES", ""},
                                                                       {nullptr, "YES", "\033[fg255,0,0;"},
                                                                       {nullptr, "NO", ""},
                                                                       {nullptr, nullptr, ""}};
    for (const auto& [term, console, code] : cases) {
        term ? ::setenv("TERM", term, 1) : ::unsetenv("TERM");
        console ? ::setenv("XcodeColors", console, 1) : ::unsetenv("XcodeColors");
        EXPECT_EQ(DDTTYPalette::fromEnvironment().foregroundCode({1, 0, 0}), code);
        EXPECT_EQ(DDTTYPalette::fromEnvironment().resetCode().empty(), code.empty());
    }
    ::unsetenv("XcodeColors");
}

}  // namespace
