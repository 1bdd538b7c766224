// Any bytes as a settings file or a string table: they are read or refused, within bounds. What is counted before the
// parser sees a text is compared with what the parser makes of it.

#include "fuzz/Input.hpp"
#include "platform/Platform.hpp"
#include "platform/PropertyList.hpp"
#include "platform/common/PropertyListScan.hpp"
#include "platform/linux/settings/Bundle.hpp"

#include <plist/plist.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Random = std::minstd_rand;

void require(bool condition, const char* what, std::string_view text) {
    if (condition) return;
    std::fprintf(stderr, "%s: %.*s\n", what, static_cast<int>(text.size()), text.data());
    std::abort();
}

/// How many containers stand in one another in what the parser has read.
int depthOf(plist_t node) {
    const plist_type type = plist_get_node_type(node);
    if (type != PLIST_ARRAY && type != PLIST_DICT) return 0;
    int deepest = 0;
    if (type == PLIST_ARRAY) {
        for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i) {
            deepest = std::max(deepest, depthOf(plist_array_get_item(node, i)));
        }
    } else {
        plist_dict_iter iterator = nullptr;
        plist_dict_new_iter(node, &iterator);
        const std::unique_ptr<void, decltype(&std::free)> owned(iterator, &std::free);
        plist_t item = nullptr;
        do {
            plist_dict_next_item(node, iterator, nullptr, &item);
            if (item) deepest = std::max(deepest, depthOf(item));
        } while (item);
    }
    return deepest + 1;
}

/// -1 when the parser gives up.
int depthByTheParser(const std::string& xml) {
    plist_t root = nullptr;
    plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &root);
    const std::unique_ptr<void, decltype(&plist_free)> owned(root, &plist_free);
    return root ? depthOf(root) : -1;
}

/// A text that the parser gives up shows nothing of what it has read so far, and how deep that was. Closed by the right
/// number of tags it does; these add no depth.
void compareDepths(const std::string& xml) {
    const auto counted = platform::scanPropertyList(xml);
    if (!counted) return;  // the parser never sees it, and might not survive it
    std::string closed = xml;
    int depth = -1;
    for (auto most = std::count(xml.begin(), xml.end(), '<'); depth < 0 && most >= 0; --most, closed += "</array>") {
        depth = depthByTheParser(closed);
    }
    require(depth <= *counted, "the parser sees more containers than were counted", xml);
}

void read(const std::string& bytes) {
    const auto list = platform::parsePropertyList(bytes);
    if (!list) return;
    const std::string written = platform::formatPropertyList(*list);
    const auto again = platform::parsePropertyList(written);
    require(again && platform::formatPropertyList(*again) == written, "a list is not what it was written from", bytes);
}

void readAsStringTable(const std::string& bytes) {
    static const fs::path folder = [] {
        std::string pattern = (fs::temp_directory_path() / "trovik-fuzz-XXXXXX").string();
        require(mkdtemp(pattern.data()) != nullptr, "no temporary folder", pattern);
        static const struct Remover {
            fs::path path;
            ~Remover() { fs::remove_all(path); }
        } remover{pattern};
        fs::create_directory(remover.path / "en.lproj");
        return remover.path;
    }();
    std::ofstream(folder / "en.lproj/Localizable.strings", std::ios::binary) << bytes;
    platform::Bundle(folder, {}).localizedStringForKey("k", "", "");
}

/// Nested arrays, and between them whatever may hide markup from the parser or from the count.
std::string nested(Random& random) {
    static constexpr std::string_view kUnits[] = {"<array>",
                                                  "<array>",
                                                  "<array>",
                                                  "<array>",
                                                  "<array a=\"*\">",
                                                  "<array a='*'>",
                                                  "<array *>",
                                                  "</array>",
                                                  "</array *>",
                                                  "<array/>",
                                                  "<array */>",
                                                  "<!--*-->",
                                                  "<![CDATA[*]]>",
                                                  "<string><![CDATA[*]]></string>",
                                                  "<string>a<!--*-->b</string>",
                                                  "<!DOCTYPE plist *>",
                                                  "<!DOCTYPE plist \"*\">",
                                                  "<!DOCTYPE plist [*]>",
                                                  "<?x *?>",
                                                  "<?x \"*\"?>",
                                                  "<?*>",
                                                  "<dict><key>*</key><true/></dict>",
                                                  "<integer>*</integer>",
                                                  "<plist>"};
    static constexpr std::string_view kHidden[] = {"</array>", "</array>", "</array>", "<array>", ">",    ">",  ">",
                                                   "/",        "/>",       "\"",       "'",       "--",   "<",  "<!--",
                                                   "]]>",      "-->",      "[",        "?",       "&lt;", "12", " "};
    std::string text;
    for (auto units = random() % 12; units > 0; --units) {
        std::string unit(kUnits[random() % std::size(kUnits)]);
        if (const auto star = unit.find('*'); star != std::string::npos) {
            std::string hidden;
            for (auto pieces = random() % 4; pieces > 0; --pieces) hidden += kHidden[random() % std::size(kHidden)];
            unit.replace(star, 1, hidden);
        }
        text += unit;
    }
    return text;
}

/// A sound list with damage: some bytes replaced by a piece of the list, by a random byte or by nothing.
std::string damaged(Random& random) {
    using List = platform::PropertyList;
    static const std::string whole = platform::formatPropertyList({List::Dictionary{
        {" key & <tag> ", {true}},
        {"array", {List::Array{{false}, {std::string("x")}, {List::Array{}}, {List::Dictionary{}}}}},
        {"bytes", {List::Data{0, 1, 254, 255}}},
        {"date", {List::Date{700000000}}},
        {"number", {std::int64_t{-12}}},
        {"real", {-1.0 / 3}},
        {"text", {std::string("  a<&>\"'\n\xC3\xA4 ")}},
    }});
    std::string bytes = whole;
    for (auto changes = random() % 4 + 1; changes > 0; --changes) {
        const std::string piece = random() % 2 ? whole.substr(random() % whole.size(), random() % 30)
                                               : std::string(random() % 2, static_cast<char>(random() % 256));
        bytes.replace(random() % (bytes.size() + 1), random() % 8 ? random() % 20 : std::string::npos, piece);
    }
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const platform::PlatformScope quiet({.log = [](const std::string&) {}});
    fuzz::Input input(data, size);
    const auto seed = std::hash<std::string_view>()({reinterpret_cast<const char*>(data), size});
    Random random(static_cast<Random::result_type>(seed));
    const auto rest = input.rest();
    for (int i = 0; i < 20; ++i) compareDepths(nested(random));
    for (const std::string& bytes : {std::string(rest.begin(), rest.end()), damaged(random)}) {
        compareDepths(bytes);
        read(bytes);
        readAsStringTable(bytes);
    }
    return 0;
}
