#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace platform {

/// A property-list value: what bundle information, string tables and preferences are made of. A plain value; copying
/// is deep. A list that was read and is written back keeps its values: what this type can't hold is refused while
/// reading.
struct PropertyList {
    /// The kinds of value; strings and keys are UTF-8.
    /// @{
    using Data = std::vector<unsigned char>;
    using Array = std::vector<PropertyList>;
    using Dictionary = std::map<std::string, PropertyList>;
    /// @}

    /// A moment in whole seconds.
    struct Date {
        std::int32_t seconds = 0;                      ///< since 2001-01-01 00:00:00 UTC
        bool operator==(const Date&) const = default;  ///< @plain
    };
    /// One value of any kind.
    using Value = std::variant<std::string, bool, std::int64_t, double, Data, Date, Array, Dictionary>;

    Value value;  ///< an empty string at first

    bool operator==(const PropertyList&) const = default;  ///< the same kind and value, all the way down

    /// The value where it is of this kind, else null.
    /// @{
    const Dictionary* dictionary() const { return std::get_if<Dictionary>(&value); }
    const std::string* string() const { return std::get_if<std::string>(&value); }
    /// @}

    /// The entry under a key; null when this is no dictionary or has no such key.
    const PropertyList* find(const std::string& key) const;
};

/// What a dictionary holds under a key, and the string that it holds there. Null where it holds none.
/// @{
inline const PropertyList* valueIn(const PropertyList::Dictionary& dictionary, const std::string& key) {
    const auto it = dictionary.find(key);
    return it == dictionary.end() ? nullptr : &it->second;
}
inline const std::string* stringIn(const PropertyList::Dictionary& dictionary, const std::string& key) {
    const PropertyList* const value = valueIn(dictionary, key);
    return value ? value->string() : nullptr;
}
/// @}

inline const PropertyList* PropertyList::find(const std::string& key) const {
    return dictionary() ? valueIn(*dictionary(), key) : nullptr;
}

constexpr std::size_t kLargestPropertyList = 4u << 20;  ///< bytes

/// Reads an XML property list; empty when the bytes are none, hold a zero character, a number, a date or data that
/// would be read as another value, a NaN or an internal subset of the document type, nest more than 256 containers or
/// are more than kLargestPropertyList. Binary lists are not read. Any thread.
[[nodiscard]] std::optional<PropertyList> parsePropertyList(const std::string& bytes);

/// Writes an XML property list, keys in order. Any thread.
[[nodiscard]] std::string formatPropertyList(const PropertyList& list);

}  // namespace platform
