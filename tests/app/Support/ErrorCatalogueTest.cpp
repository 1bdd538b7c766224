// The table of causes, the page that people look ids up on, and the ids that lie elsewhere in the sources.
#include "app/Support/ErrorCatalogue.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/settings/Bundle.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <regex>
#include <set>

namespace {

namespace fs = std::filesystem;

const fs::path kSources = TROVIK_SOURCES;

// How a line about a failure begins in the sources, and how it may: with an id, with what a caller has put one to, in
// words that people's scripts know, or about something that has been put right.
const std::regex kFailure(R"rx((?:NSLog|DDLogWarn|DDLogError)\(\s*"([^"]*)")rx");
const std::regex kNamedOrGiven(
    "^(TRV-|%s|DDFileLogger\\.|DDLogFileInfo: |Error creating Usb|Exception: |Stack:|Unknown "
    "exception|Attach events were lost; all)");

/// Every "TRV-nnn" in a text.
std::set<std::string> idsIn(const std::string& text) {
    std::set<std::string> ids;
    for (std::size_t at = 0; (at = text.find("TRV-", at)) != std::string::npos; at += 4) {
        if (text.find_first_of("0123456789", at) == at + 4) ids.insert(text.substr(at, 7));
    }
    return ids;
}

TEST(ErrorCatalogue, IsWhatThePageAndTheEnglishTextsSayAndHasEveryIdOfTheSources) {
    platform::Bundle bundle(kSources / "resources", {"en"});
    const platform::PlatformScope scope({.mainBundle = &bundle});
    const std::string page = support::ReadFile(kSources / "docs/USING.md");
    std::set<std::string> ids;
    for (const CatalogueEntry& entry : ErrorCatalogue::entries()) {
        SCOPED_TRACE(entry.id);
        EXPECT_TRUE(ids.insert(std::string(entry.id)).second) << "it is another cause's already";
        std::string row;
        for (const std::string_view cell : {entry.id, entry.sentence, entry.remedy})
            row.append("| ").append(cell) += ' ';
        EXPECT_THAT(page, testing::HasSubstr("\n" + row + "|\n"));
        EXPECT_EQ(bundle.localizedStringForKey(entry.sentenceKey(), "none", ""), entry.sentence);
        EXPECT_EQ(ErrorCatalogue::localizedRemedy(entry.cause), entry.remedy);
        const std::string line = ErrorCatalogue::completed(std::string(entry.id) + " Seen.");
        EXPECT_EQ(ErrorCatalogue::completed(line), ErrorCatalogue::logLine(entry.cause, "Seen."));
    }
    EXPECT_EQ(idsIn(page), ids);

    std::size_t files = 0;
    for (const char* const folder : {"app", "cli", "platform", "libs"}) {
        for (const auto& file : fs::recursive_directory_iterator(kSources / folder)) {
            if (file.path().extension() != ".cpp" || !++files) continue;
            const std::string text = support::ReadFile(file.path());
            for (const std::string& id : idsIn(text)) EXPECT_TRUE(ids.contains(id)) << file << id;
            if (folder == std::string("libs")) continue;  // what it says is named by the cause that follows
            for (std::sregex_iterator line(text.begin(), text.end(), kFailure), end; line != end; ++line)
                EXPECT_TRUE(std::regex_search((*line)[1].str(), kNamedOrGiven)) << file << (*line)[0];
        }
    }
    EXPECT_GT(files, 100U) << "the sources were found";
}

}  // namespace
