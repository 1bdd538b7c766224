#pragma once

#include <map>
#include <string>

/// Key of an error's text in its user information.
inline constexpr const char* NSLocalizedDescriptionKey = "NSLocalizedDescription";

/// What went wrong, as a value. A default-constructed one stands for no error. Texts are UTF-8.
struct Error {
    std::string domain;
    long code = 0;
    std::map<std::string, std::string> userInfo;

    /// The text for a reader; empty when there is none.
    std::string description() const {
        const auto text = userInfo.find(NSLocalizedDescriptionKey);
        return text == userInfo.end() ? std::string() : text->second;
    }

    bool operator==(const Error&) const = default;
};
