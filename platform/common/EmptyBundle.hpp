#pragma once

#include "platform/NSBundle.hpp"

#include <optional>
#include <string>
#include <vector>

namespace platform {

/// A bundle without files: no texts, no resources. A program that has none says at most who it is. Any thread.
class EmptyBundle : public NSBundle {
  public:
    std::string bundleIdentifier() const override { return {}; }
    const PropertyList::Dictionary& infoDictionary() const override { return mInfo; }
    std::vector<std::string> preferredLocalizations() const override { return {}; }
    std::string localizedStringForKey(const std::string& key, const std::string& value,
                                      const std::string&) const override {
        return value.empty() ? key : value;
    }
    std::optional<std::string> pathForResource(const std::string&, const std::string&,
                                               const std::string&) const override {
        return std::nullopt;
    }

  protected:
    PropertyList::Dictionary mInfo;  ///< set before others see the bundle
};

}  // namespace platform
