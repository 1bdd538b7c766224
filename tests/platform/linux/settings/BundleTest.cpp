#include "platform/linux/settings/Bundle.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <tuple>

namespace platform {
namespace {

using Languages = std::vector<std::string>;

class BundleTest : public ::testing::Test {
  protected:
    support::TemporaryFolder folder;

    void Table(const std::string& path, const PropertyList::Dictionary& entries) {
        support::WriteFile(folder / path, formatPropertyList({entries}));
    }
};

TEST_F(BundleTest, TextsComeInTheWantedLanguageThenInEnglishThenAsTheValueThenAsTheKey) {
    Table("en.lproj/Localizable.strings", {{"a", {std::string("a-en")}}, {"b", {std::string("b-en")}}});
    Table("en.lproj/Other.strings", {{"a", {std::string("other-en")}}});
    Table("de.lproj/Localizable.strings", {{"a", {std::string("a-de")}}, {"b", {std::int64_t{7}}}});
    Table("de_AT.lproj/Localizable.strings", {});
    support::WriteFile(folder / "fr.lproj/Localizable.strings", "damaged");
    const std::tuple<Languages, const char*, const char*, const char*, const char*> cases[] = {
        {{"de_AT", "de"}, "a", "", "", "a-de"}, {{"de"}, "b", "", "", "b-en"},  // a number is no text
        {{"de"}, "a", "", "Other", "other-en"}, {{"fr"}, "a", "", "", "a-en"},
        {{}, "a", "", "Localizable", "a-en"},   {{"en", "de"}, "a", "", "", "a-en"},
        {{"de"}, "c", "value", "", "value"},    {{"de"}, "c", "", "", "c"},
        {{"de"}, "a", "", "Nowhere", "a"}};
    for (const auto& [languages, key, value, table, text] : cases)
        EXPECT_EQ(Bundle(folder.path(), languages).localizedStringForKey(key, value, table), text) << key << table;
}

TEST_F(BundleTest, LanguagesFollowTheEnvironment) {
    const std::tuple<const char*, const char*, const char*, const char*, Languages> cases[] = {
        {"", "", "de_AT.UTF-8@euro", "", {"de_AT", "de"}},
        {"", "fr_FR", "de_DE", "", {"fr_FR", "fr"}},
        {"", "", "de_DE", "pt_BR:fr", {"pt_BR", "pt", "fr", "de_DE", "de"}},
        {"", "", "pt_PT.UTF-8", "", {"pt_PT", "pt", "pt_BR"}},
        {"", "", "en_SG.UTF-8", "zh-Hans:zh_SG", {"zh-Hans", "zh", "zh_CN", "zh_SG", "en_SG", "en"}},
        {"", "", "zh_TW.UTF-8", "zh_TW:zh", {"zh_TW", "zh"}},
        {"C.UTF-8", "", "de_DE", "fr", {}},
        {"", "", "POSIX", "", {}},
        {"", "", "../../etc", "", {}},
        {"", "", "de_DE", "x/../../etc:fr", {"fr", "de_DE", "de"}}};
    for (const auto& [lcAll, lcMessages, lang, language, expected] : cases) {
        setenv("LC_ALL", lcAll, 1);
        setenv("LC_MESSAGES", lcMessages, 1);
        setenv("LANG", lang, 1);
        setenv("LANGUAGE", language, 1);
        EXPECT_EQ(Bundle::userLanguages(), expected) << lcAll << lcMessages << lang << language;
    }
}

TEST_F(BundleTest, InformationAndResourcesAreThoseOfTheFolder) {
    Table("Info.plist", {{"CFBundleIdentifier", {std::string("org.example.App")}}, {"n", {std::int64_t{3}}}});
    support::WriteFile(folder / "Scripts/ErrorReport.scpt", "x");
    support::WriteFile(folder / "de.lproj/page.html", "x");
    const Bundle bundle(folder.path(), {"de"});
    EXPECT_EQ(bundle.bundleIdentifier(), "org.example.App");
    EXPECT_EQ(bundle.preferredLocalizations(), Languages{"de"});
    EXPECT_EQ(bundle.infoDictionary().at("n"), PropertyList{std::int64_t{3}});
    EXPECT_EQ(bundle.pathForResource("ErrorReport", "scpt", "Scripts"), folder / "Scripts/ErrorReport.scpt");
    EXPECT_EQ(bundle.pathForResource("page", "html", ""), folder / "de.lproj/page.html");
    EXPECT_FALSE(bundle.pathForResource("ErrorReport", "txt", "Scripts"));
    EXPECT_EQ(Bundle(folder / "nowhere", {}).bundleIdentifier(), "");
}

}  // namespace
}  // namespace platform
