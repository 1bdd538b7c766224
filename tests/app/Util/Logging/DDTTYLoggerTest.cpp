#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/DDLogFormatter.hpp"
#include "app/Util/Logging/DDTTYLogger.hpp"
#include "platform/common/FileDescriptor.hpp"
#include "tests/app/Util/Logging/LoggingSupport.hpp"

#include <gmock/gmock.h>

#include <fcntl.h>
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
    console.logger.setForegroundColor(blue, std::nullopt, 4, 9);
    console.logger.setForegroundColorForTag(std::nullopt, red, &tag);
    DDLogMessage error = messageAt("a", 1), warning = messageAt("a", 2), info = messageAt("a", 4), tagged = error;
    DDLogMessage elsewhere = info;
    tagged.tag = &tag;
    elsewhere.logContext = 9;
    EXPECT_EQ(console.log(tagged), "A\n");
    EXPECT_FALSE(console.logger.colorsEnabled());
    console.logger.setColorsEnabled(true);
    EXPECT_EQ(console.log(error), "\033[31mA\n\033[0m");
    EXPECT_EQ(console.log(warning), "\033[31mA\n\033[0m");
    EXPECT_EQ(console.log(info), "A\n");
    EXPECT_EQ(console.log(elsewhere), "\033[1;34mA\n\033[0m");
    EXPECT_EQ(console.log(tagged), "\033[41mA\n\033[0m");
    console.logger.clearColors(1 | 2);
    console.logger.clearColorsForTag(&tag);
    EXPECT_EQ(console.log(tagged), "A\n");
    EXPECT_EQ(console.log(warning), "\033[1;34m\033[1;44mA\n\033[0m");
    console.logger.clearAllColors();
    EXPECT_EQ(console.log(elsewhere), "A\n");

    const DDTTYColor beyond{1.5, -0.5, 205 / 255.0};
    const DDTTYLoggerColorProfile profile(DDTTYPalette::withDirectColors(), beyond, blue, 3, -1);
    EXPECT_THAT(profile.description(),
                testing::EndsWith(" mask:3 ctxt:-1 fg:255,0,205 bg:92,92,250 fgCode:\033[fg255,0,205; "
                                  "bgCode:\033[bg92,92,250;>"));
}

TEST(DDTTYPaletteTest, NearestEntryWinsAndTheFirstOfSeveral) {
    const DDTTYPalette few = DDTTYPalette::with16Colors(), many = DDTTYPalette::with256Colors();
    struct Case {
        unsigned red, green, blue;
        std::size_t few, many;
    };
    // Black and white stand twice in the large table; the last four are as far from the entry as from a later one.
    for (const Case& tested :
         {Case{0, 0, 0, 0, 0}, Case{255, 255, 255, 15, 15}, Case{120, 130, 125, 8, 8}, Case{95, 135, 175, 8, 67},
          Case{10, 9, 8, 0, 232}, Case{255, 135, 0, 3, 208}, Case{230, 228, 229, 7, 7}, Case{234, 182, 118, 7, 180},
          Case{201, 133, 200, 7, 176}, Case{34, 235, 35, 10, 10}, Case{194, 43, 186, 5, 5}}) {
        const DDTTYColor color = DDTTYColor::fromBytes(tested.red, tested.green, tested.blue);
        EXPECT_EQ(few.codeIndex(color), tested.few) << tested.red;
        EXPECT_EQ(many.codeIndex(color), tested.many) << tested.red;
    }
    EXPECT_EQ(many.codeIndex({113.9 / 255, 113.9 / 255, 113.9 / 255}), 243U) << "118 is nearer than 108";
    EXPECT_EQ(many.foregroundCode(DDTTYColor::fromBytes(95, 135, 175)), "\033[38;5;67m");
    EXPECT_EQ(many.backgroundCode(DDTTYColor::fromBytes(95, 135, 175)), "\033[48;5;67m");
    EXPECT_EQ(few.backgroundCode(DDTTYColor::fromBytes(120, 130, 125)), "\033[1;40m");
}

TEST(DDTTYPaletteTest, TerminalIsToldByTheEnvironment) {
    struct Case {
        const char *term, *console, *code;  // for pure red
    };
    for (const Case& tested :
         {Case{"xterm-256color", nullptr, "\033[38;5;9m"}, Case{"XTERM-Color", nullptr, "\033[1;31m"},
          Case{"dumb", nullptr, ""}, Case{"vt256", "YES", ""}, Case{nullptr, "YES", "\033[fg255,0,0;"},
          Case{nullptr, "NO", ""}, Case{nullptr, nullptr, ""}}) {
        tested.term ? ::setenv("TERM", tested.term, 1) : ::unsetenv("TERM");
        tested.console ? ::setenv("XcodeColors", tested.console, 1) : ::unsetenv("XcodeColors");
        EXPECT_EQ(DDTTYPalette::fromEnvironment().foregroundCode({1, 0, 0}), tested.code);
        EXPECT_EQ(DDTTYPalette::fromEnvironment().resetCode().empty(), *tested.code == '\0');
    }
    ::unsetenv("XcodeColors");
}

}  // namespace
