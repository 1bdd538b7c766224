#pragma once

#include "platform/NSBundle.hpp"

#include <map>
#include <string>
#include <vector>

namespace platform {

/// The resources folder: Info.plist, and in each <language>.lproj/ the string tables <Table>.strings, all XML property
/// lists. Everything is read when the bundle is made and never changes. What can't be read is left out with a line in
/// the system log. Any thread.
class Bundle : public NSBundle {
  public:
    /// @param resources  the folder; empty for findResources()
    /// @param languages  most wanted first, such as "de_AT", "de"; English is always added at the end
    explicit Bundle(std::string resources = {}, std::vector<std::string> languages = userLanguages());

    std::string bundleIdentifier() const override;
    const PropertyList::Dictionary& infoDictionary() const override { return mInfo; }
    std::vector<std::string> preferredLocalizations() const override { return mLocalizations; }
    std::string localizedStringForKey(const std::string& key, const std::string& value,
                                      const std::string& table) const override;
    std::optional<std::string> pathForResource(const std::string& name, const std::string& type,
                                               const std::string& folder) const override;

    /// The folder ../share/trovik-reset-tool beside the executable's own folder; the build lays its tree out the same
    /// way. Empty when it isn't there.
    static std::string findResources();

    /// The languages of the environment's locale (LC_ALL, LC_MESSAGES, LANG; the first 32 of LANGUAGE refine them),
    /// each followed by itself without its region, and then by the region that stands for the whole language where the
    /// tool speaks only that one. Empty for the C locale.
    static std::vector<std::string> userLanguages();

  private:
    using Tables = std::map<std::string, PropertyList::Dictionary>;

    void loadLanguage(const std::string& language);

    std::string mFolder;
    PropertyList::Dictionary mInfo;
    std::vector<std::string> mLocalizations;    ///< those that exist, most wanted first
    std::vector<std::string> mLanguageFolders;  ///< in the same order, as are the tables
    std::vector<Tables> mTables;
};

}  // namespace platform
