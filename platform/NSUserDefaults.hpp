#pragma once

#include "platform/PropertyList.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

/// The user's preferences. Any thread.
class NSUserDefaults {
  public:
    virtual ~NSUserDefaults() = default;

    /// The value under the key; nothing when it is absent.
    virtual std::optional<PropertyList> objectForKey(const std::string& key) const = 0;

    /// True for a true boolean, a non-zero number, and the texts "YES" and "true" in any case; else false.
    virtual bool boolForKey(const std::string& key) const = 0;

    /// A number, a boolean as 0 or 1, a text's leading integer; else 0.
    virtual std::int64_t integerForKey(const std::string& key) const = 0;

    /// One application's whole domain; empty when it has none.
    virtual PropertyList::Dictionary persistentDomainForName(const std::string& domain) const = 0;

    /// Replaces a whole domain on disk, or leaves the old one in place.
    /// @return false when it could not be written; the old contents are still there
    virtual bool setPersistentDomain(const PropertyList::Dictionary& contents, const std::string& domain) = 0;
};

}  // namespace platform
