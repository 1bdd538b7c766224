#include "platform/PropertyList.hpp"

#include "platform/common/PropertyListScan.hpp"

#include <plist/plist.h>

#include <cstdlib>
#include <locale.h>
#include <memory>
#include <new>

namespace platform {
namespace {

constexpr int kDeepestNesting = 256;

struct NodeDeleter {
    void operator()(void* node) const { plist_free(node); }
};
struct TextDeleter {
    void operator()(char* text) const { plist_to_xml_free(text); }
};
using Node = std::unique_ptr<void, NodeDeleter>;  // plist_t is a void pointer
using Text = std::unique_ptr<char, TextDeleter>;  // strings come from the library's malloc

PropertyList fromNode(plist_t node);

PropertyList::Array arrayFrom(plist_t node) {
    PropertyList::Array array;
    const auto count = plist_array_get_size(node);
    array.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) array.push_back(fromNode(plist_array_get_item(node, i)));
    return array;
}

PropertyList::Dictionary dictionaryFrom(plist_t node) {
    PropertyList::Dictionary entries;
    plist_dict_iter rawIterator = nullptr;
    plist_dict_new_iter(node, &rawIterator);
    const std::unique_ptr<void, decltype(&std::free)> iterator(rawIterator, &std::free);
    for (;;) {
        char* rawKey = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iterator.get(), &rawKey, &item);
        const Text key(rawKey);
        if (!item) return entries;
        entries.insert_or_assign(key ? key.get() : "", fromNode(item));
    }
}

PropertyList fromNode(plist_t node) {
    switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            std::uint8_t value = 0;
            plist_get_bool_val(node, &value);
            return {value != 0};
        }
        case PLIST_UINT: {
            std::uint64_t value = 0;  // two's complement: negative integers come through it as well
            plist_get_uint_val(node, &value);
            return {static_cast<std::int64_t>(value)};
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            return {value};
        }
        case PLIST_STRING: {
            char* value = nullptr;
            plist_get_string_val(node, &value);
            const Text owned(value);
            return {std::string(value ? value : "")};
        }
        case PLIST_DATA: {
            char* value = nullptr;
            std::uint64_t length = 0;
            plist_get_data_val(node, &value, &length);
            const Text owned(value);
            return {value ? PropertyList::Data(value, value + length) : PropertyList::Data()};
        }
        case PLIST_DATE: {
            PropertyList::Date value;
            std::int32_t microseconds = 0;  // XML has none
            plist_get_date_val(node, &value.seconds, &microseconds);
            return {value};
        }
        case PLIST_ARRAY:
            return {arrayFrom(node)};
        case PLIST_DICT:
            return {dictionaryFrom(node)};
        case PLIST_UID:  // only in binary lists
        case PLIST_KEY:
        case PLIST_NONE:
            break;
    }
    return {};
}

struct NodeMaker {
    plist_t operator()(const std::string& value) const { return plist_new_string(value.c_str()); }
    plist_t operator()(bool value) const { return plist_new_bool(value ? 1 : 0); }
    plist_t operator()(std::int64_t value) const { return plist_new_uint(static_cast<std::uint64_t>(value)); }
    plist_t operator()(double value) const { return plist_new_real(value); }
    plist_t operator()(const PropertyList::Data& value) const {
        return plist_new_data(reinterpret_cast<const char*>(value.data()), value.size());
    }
    plist_t operator()(const PropertyList::Date& value) const { return plist_new_date(value.seconds, 0); }
    plist_t operator()(const PropertyList::Array& value) const {
        Node array(plist_new_array());
        for (const auto& item : value) plist_array_append_item(array.get(), std::visit(*this, item.value));
        return array.release();
    }
    plist_t operator()(const PropertyList::Dictionary& value) const {
        Node dictionary(plist_new_dict());
        for (const auto& [key, item] : value) {
            plist_dict_set_item(dictionary.get(), key.c_str(), std::visit(*this, item.value));
        }
        return dictionary.release();
    }
};

}  // namespace

std::optional<PropertyList> parsePropertyList(const std::string& bytes) {
    if (bytes.size() > kLargestPropertyList) return std::nullopt;
    const auto depth = scanPropertyList(bytes);
    if (!depth || *depth > kDeepestNesting) return std::nullopt;
    // The length is passed without the terminating zero that the parser would otherwise take for content.
    plist_t root = nullptr;
    // The parser reads real numbers by the locale, which a window toolkit sets; some have a decimal comma.
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    const locale_t previous = uselocale(plain);
    plist_from_xml(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
    uselocale(previous);
    const Node owned(root);
    if (!root) return std::nullopt;
    return fromNode(root);
}

std::string formatPropertyList(const PropertyList& list) {
    const Node root(std::visit(NodeMaker{}, list.value));
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(root.get(), &xml, &length);
    const Text owned(xml);
    if (!xml) throw std::bad_alloc();
    return {xml, length};
}

}  // namespace platform
