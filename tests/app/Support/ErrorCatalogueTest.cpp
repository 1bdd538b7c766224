// The table of causes, the page that people look ids up on, and the English texts. check_causes.py looks for the ids.
#include "app/Support/ErrorCatalogue.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/settings/Bundle.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>

TEST(ErrorCatalogue, IsWhatThePageAndTheEnglishTextsSay) {
    platform::Bundle bundle(TROVIK_SOURCES "/resources", {"en"});
    const platform::PlatformScope scope({.mainBundle = &bundle});
    const std::string page = support::ReadFile(TROVIK_SOURCES "/docs/USING.md");
    for (const CatalogueEntry& entry : ErrorCatalogue::entries()) {
        SCOPED_TRACE(entry.id);
        std::string row;
        for (const std::string_view cell : {entry.id, entry.sentence, entry.remedy})
            row.append("| ").append(cell) += ' ';
        EXPECT_THAT(page, testing::HasSubstr("\n" + row + "|\n"));
        EXPECT_EQ(bundle.localizedStringForKey(entry.sentenceKey(), "none", ""), entry.sentence);
        EXPECT_EQ(ErrorCatalogue::localizedRemedy(entry.cause), entry.remedy);
        const std::string line = ErrorCatalogue::completed(std::string(entry.id) + " Seen.");
        EXPECT_EQ(ErrorCatalogue::completed(line), ErrorCatalogue::logLine(entry.cause, "Seen."));
    }
}
