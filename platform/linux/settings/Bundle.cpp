#include "platform/linux/settings/Bundle.hpp"

#include "platform/Platform.hpp"
#include "platform/linux/settings/PropertyListFile.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

namespace platform {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDefaultTable = "Localizable";
constexpr const char* kEnglish = "en";
constexpr int kMostLanguages = 32;  // each is looked for in the languages before it and on the disk

std::string_view variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

PropertyList::Dictionary load(const std::string& path) {
    auto file = readPropertyListFile(path);
    switch (file.state) {
        case PropertyListFile::State::Read:
        case PropertyListFile::State::Absent:
            break;
        case PropertyListFile::State::Damaged:
        case PropertyListFile::State::Unreadable:
            NSLog("TRV-504 %s can't be read as a property list.\n", path.c_str());
            break;
    }
    return std::move(file.contents);
}

bool isTraditionalChinese(std::string_view name) {
    const auto has = [name](const char* part) { return name.find(part) != std::string_view::npos; };
    return name.starts_with("zh") && (has("TW") || has("HK") || has("MO") || has("Hant"));
}

/// The region whose texts readers of a language's other regions are glad of too; empty for none. Readers of
/// traditional Chinese are not served by simplified one.
std::string_view regionFor(std::string_view name, std::string_view language) {
    if (language == "pt") return "pt_BR";
    if (language == "zh" && !isTraditionalChinese(name)) return "zh_CN";
    return {};
}

/// Adds "de_AT" and "de" for "de_AT.UTF-8@euro", "pt_PT", "pt" and "pt_BR" for "pt_PT"; nothing for the C locale.
void addLanguage(std::vector<std::string>& languages, std::string_view locale) {
    const std::string_view name = locale.substr(0, locale.find_first_of(".@"));
    if (name.empty() || name == "C" || name == "POSIX") return;
    const std::string_view language = name.substr(0, name.find_first_of("_-"));
    // "zh_TW:zh" asks for traditional Chinese twice, not for simplified as well.
    if (name == "zh" && std::ranges::any_of(languages, isTraditionalChinese)) return;
    for (const auto candidate : {name, language, regionFor(name, language)}) {
        // A locale's name becomes part of a path, so it must not lead elsewhere.
        if (candidate.empty() || candidate.find('/') != std::string_view::npos) return;
        if (std::ranges::find(languages, candidate) == languages.end()) languages.emplace_back(candidate);
    }
}

}  // namespace

Bundle::Bundle(std::string resources, std::vector<std::string> languages)
    : mFolder(resources.empty() ? findResources() : std::move(resources)) {
    if (mFolder.empty()) return;
    mInfo = load(mFolder + "/Info.plist");
    if (std::ranges::find(languages, kEnglish) == languages.end()) languages.emplace_back(kEnglish);
    for (const auto& language : languages) loadLanguage(language);
}

void Bundle::loadLanguage(const std::string& language) {
    const std::string folder = mFolder + '/' + language + ".lproj";
    std::error_code error;
    fs::directory_iterator files(folder, error);
    if (error) return;
    Tables tables;
    for (; files != fs::directory_iterator(); files.increment(error)) {
        const fs::path& path = files->path();
        if (path.extension() == ".strings") tables.emplace(path.stem().string(), load(path.string()));
        if (error) break;
    }
    mLocalizations.push_back(language);
    mLanguageFolders.push_back(folder);
    mTables.push_back(std::move(tables));
}

std::string Bundle::bundleIdentifier() const {
    return infoText("CFBundleIdentifier");
}

std::string Bundle::localizedStringForKey(const std::string& key, const std::string& value,
                                          const std::string& table) const {
    for (const auto& tables : mTables) {
        const auto entries = tables.find(table.empty() ? kDefaultTable : table);
        if (entries == tables.end()) continue;
        if (const std::string* text = stringIn(entries->second, key)) return *text;
    }
    return value.empty() ? key : value;
}

std::optional<std::string> Bundle::pathForResource(const std::string& name, const std::string& type,
                                                   const std::string& folder) const {
    std::string file = folder.empty() ? name : folder + '/' + name;
    if (!type.empty()) file.append(1, '.').append(type);
    std::vector<std::string> places = mLanguageFolders;
    if (!mFolder.empty()) places.insert(places.begin(), mFolder);
    for (const auto& place : places) {
        std::error_code error;
        std::string path = place;
        path.append(1, '/').append(file);
        if (fs::is_regular_file(path, error)) return path;
    }
    return std::nullopt;
}

std::string Bundle::findResources() {
    std::error_code error;
    const fs::path executable = fs::read_symlink("/proc/self/exe", error);
    if (error) return {};
    const fs::path folder = executable.parent_path().parent_path() / "share" / "trovik-reset-tool";
    return fs::is_directory(folder, error) ? folder.string() : std::string();
}

std::vector<std::string> Bundle::userLanguages() {
    std::string_view locale = variable("LC_ALL");
    if (locale.empty()) locale = variable("LC_MESSAGES");
    if (locale.empty()) locale = variable("LANG");
    std::vector<std::string> ofLocale;
    addLanguage(ofLocale, locale);
    if (ofLocale.empty() && !locale.empty()) return {};  // the C locale, whatever LANGUAGE says
    std::vector<std::string> languages;
    std::string_view list = variable("LANGUAGE");
    for (int count = 0; count < kMostLanguages && !list.empty(); ++count) {
        const auto colon = std::min(list.find(':'), list.size());
        addLanguage(languages, list.substr(0, colon));
        list.remove_prefix(std::min(colon + 1, list.size()));
    }
    addLanguage(languages, locale);
    return languages;
}

}  // namespace platform
