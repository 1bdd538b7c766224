#pragma once

#include "platform/PropertyList.hpp"

#include <optional>
#include <string>
#include <vector>

namespace platform {

/// The application's resources: its information dictionary and its string tables. Any thread.
class NSBundle {
  public:
    virtual ~NSBundle() = default;

    /// "CFBundleIdentifier"; empty when the bundle has none.
    virtual std::string bundleIdentifier() const = 0;

    /// The dictionary of Info.plist; empty when there is none.
    virtual const PropertyList::Dictionary& infoDictionary() const = 0;

    /// The string under a key of that dictionary; `fallback` where it holds none.
    [[nodiscard]] std::string infoText(const std::string& key, const std::string& fallback = {}) const {
        const std::string* const text = stringIn(infoDictionary(), key);
        return text ? *text : fallback;
    }

    /// The languages that texts are looked up in, most wanted first, such as "pt_BR", "en". The first is the language
    /// that the application speaks; empty when the bundle has no texts.
    virtual std::vector<std::string> preferredLocalizations() const = 0;

    /// The string under the key in the user's language, else in English, else `value`, else the key itself.
    /// @param key    as in the string tables
    /// @param value  may be empty
    /// @param table  name without extension; empty for the default table
    virtual std::string localizedStringForKey(const std::string& key, const std::string& value,
                                              const std::string& table) const = 0;

    /// Path of a resource file; empty when there is none.
    virtual std::optional<std::string> pathForResource(const std::string& name, const std::string& type,
                                                       const std::string& folder) const = 0;
};

}  // namespace platform
