#include "app/Support/Masker.hpp"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t kLongestDump = 1u << 20;  ///< bytes of one dump; packets are far shorter
constexpr std::size_t kShortestSerial = 4;      ///< characters
constexpr std::size_t kShortestInBytes = 4;     ///< a value that is found in bytes wherever it stands
constexpr std::size_t kRowBytes = 16;           ///< of a whole row
constexpr std::size_t kFewestOffsetDigits = 4;  ///< of a row
constexpr std::size_t kIdOffset = 4;            ///< of a USB packet: two bytes
constexpr std::size_t kDataOffset = 12;
constexpr char kSessionStarted = 6;  ///< the ids of the two packets whose data is a unit id
constexpr char kUnitId = 38;

char small(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string inSmallLetters(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), small);
    return result;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// What a word is made of. "_" parts words, since names of device files put it around serial numbers.
bool isOfWord(char c) {
    return isDigit(c) || (small(c) >= 'a' && small(c) <= 'z');
}

/// The value of a hexadecimal digit; negative for another character.
int digitValue(char c) {
    if (isDigit(c)) return c - '0';
    const char letter = small(c);
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

std::string hexOf(std::string_view bytes, std::string_view separator) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        if (!text.empty()) text += separator;
        text += kDigits[value >> 4];
        text += kDigits[value & 0xF];
    }
    return text;
}

std::optional<std::uint32_t> numberOf(std::string_view text, int base) {
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc{} || end != text.data() + text.size() || number < Masker::kSmallestNumber)
        return std::nullopt;
    return number;
}

/// One name for one number, however it is written; anything else in small letters.
std::string nameOfSerial(std::string_view value) {
    std::string text = inSmallLetters(value);
    if (const auto number = numberOf(text, 10)) return std::to_string(*number);
    if (text.starts_with("0x")) {
        if (const auto number = numberOf(std::string_view(text).substr(2), 16)) return std::to_string(*number);
    }
    return text;
}

/// Whether these bytes are one of the two packets whose data is a unit id. Which layer the packet says is not looked
/// at: that may be what made it a bad one.
bool isOfUnitId(std::string_view packet) {
    return packet.size() > kDataOffset && (packet[kIdOffset] == kSessionStarted || packet[kIdOffset] == kUnitId) &&
           packet[kIdOffset + 1] == 0;
}

std::string_view nameOfKind(Masker::Kind kind) {
    switch (kind) {
        case Masker::Kind::User:
            return "user";
        case Masker::Kind::Host:
            return "host";
        case Masker::Kind::Home:
            return "home";
        case Masker::Kind::Serial:
            return "serial";
    }
    return "";
}

std::string_view meaningOfKind(Masker::Kind kind) {
    switch (kind) {
        case Masker::Kind::User:
            return "a user's name";
        case Masker::Kind::Host:
            return "a name of this computer";
        case Masker::Kind::Home:
            return "a user's home folder";
        case Masker::Kind::Serial:
            return "a serial number or unit id";
    }
    return "";
}

}  // namespace

void Masker::addPattern(Patterns& patterns, std::string text, bool isWord, std::size_t secret) {
    auto& bucket = patterns[static_cast<unsigned char>(text.front())];
    bucket.push_back({std::move(text), isWord, secret});
}

/// Bytes as they stand in dumps, and as other programs print them within a line.
void Masker::addBytes(const std::string& bytes, bool isWord, std::size_t secret) {
    addPattern(mBytes, inSmallLetters(bytes), isWord, secret);
    if (isWord) return;
    for (const std::string_view separator : {"", " ", ":", "-"})
        addPattern(mText, hexOf(bytes, separator), false, secret);
}

std::size_t Masker::secretOf(Kind kind, std::string value) {
    const auto known = std::ranges::find_if(
        mSecrets, [&](const Secret& secret) { return secret.kind == kind && secret.value == value; });
    if (known != mSecrets.end()) return static_cast<std::size_t>(known - mSecrets.begin());
    const auto number = 1 + std::ranges::count(mSecrets, kind, &Secret::kind);
    mSecrets.push_back(
        {kind, std::move(value), '<' + std::string(nameOfKind(kind)) + '-' + std::to_string(number) + '>'});
    return mSecrets.size() - 1;
}

void Masker::hide(Kind kind, std::string_view value) {
    if (kind == Kind::Home) {
        while (value.ends_with('/')) value.remove_suffix(1);
    }
    if (value.empty() || (kind == Kind::Serial && value.size() < kShortestSerial)) return;
    const std::string name = kind == Kind::Serial ? nameOfSerial(value) : inSmallLetters(value);
    const std::size_t before = mSecrets.size();
    const std::size_t secret = secretOf(kind, name);
    const std::string written = inSmallLetters(value);
    const auto isKnown = [&](const Pattern& pattern) { return pattern.text == written && pattern.secret == secret; };
    if (secret < before && std::ranges::any_of(mText[static_cast<unsigned char>(written.front())], isKnown)) return;

    addPattern(mText, written, true, secret);
    addBytes(std::string(value), value.size() < kShortestInBytes, secret);
    if (kind == Kind::Serial && value != written) addBytes(written, false, secret);
    std::string wide;
    for (const char c : value) wide.append({c, '\0'});
    addBytes(wide, wide.size() < kShortestInBytes, secret);
    if (const auto number = kind == Kind::Serial ? numberOf(name, 10) : std::nullopt) {
        std::string bytes;
        for (unsigned shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(*number >> shift & 0xFF);
        addBytes(bytes, false, secret);
        std::ranges::reverse(bytes);
        addBytes(bytes, false, secret);
        addPattern(mText, std::to_string(*number), true, secret);
        std::string digits = hexOf(bytes, "");
        digits.erase(0, digits.find_first_not_of('0'));
        addPattern(mText, "0x" + digits, true, secret);
    }
}

std::string Masker::markOf(Kind kind, std::string_view value) {
    hide(kind, value);
    return mSecrets[secretOf(kind, kind == Kind::Serial ? nameOfSerial(value) : inSmallLetters(value))].mark;
}

void Masker::learn(std::string_view line) {
    const std::string text = inSmallLetters(line);
    for (const std::string_view word : {"serial", "unit id", "unitid", "unit_id"}) {
        for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at)) {
            at += word.size();
            std::size_t begin = at;
            for (const std::string_view filler : {" number", "number", "_short"}) {
                if (text.compare(begin, filler.size(), filler) == 0) begin += filler.size();
            }
            begin = text.find_first_not_of(" :=\"'#", begin);
            if (begin == std::string::npos || begin == at) continue;
            const auto end = std::find_if_not(text.begin() + static_cast<std::ptrdiff_t>(begin), text.end(),
                                              [](char c) { return isOfWord(c) || c == '-' || c == '_' || c == '.'; });
            std::string_view value(text.data() + begin, static_cast<std::size_t>(end - text.begin()) - begin);
            while (value.ends_with('.')) value.remove_suffix(1);
            if (std::ranges::any_of(value, isDigit)) hide(Kind::Serial, line.substr(begin, value.size()));
        }
    }
}

std::vector<Masker::Match> Masker::matches(const Patterns& patterns, std::string_view text) {
    const std::string smallText = inSmallLetters(text);
    std::vector<Match> found;
    std::size_t longest = 0;  // of those that made the last one
    for (std::size_t at = 0; at < smallText.size(); ++at) {
        for (const Pattern& pattern : patterns[static_cast<unsigned char>(smallText[at])]) {
            const std::size_t size = pattern.text.size();
            if (smallText.compare(at, size, pattern.text) != 0) continue;
            const auto continues = [&](std::size_t inside, std::size_t outside) {
                return isOfWord(smallText[inside]) && outside < smallText.size() && isOfWord(smallText[outside]);
            };
            if (pattern.isWord && (continues(at, at - 1) || continues(at + size - 1, at + size))) continue;
            if (!found.empty() && at < found.back().end) {
                Match& last = found.back();
                last.end = std::max(last.end, at + size);
                if (size > longest) last.secret = pattern.secret;
            } else {
                found.push_back({at, at + size, pattern.secret});
                longest = 0;
            }
            longest = std::max(longest, size);
        }
    }
    return found;
}

std::string Masker::maskedText(std::string_view text) const {
    std::string result;
    std::size_t done = 0;
    for (const Match& match : matches(mText, text)) {
        result.append(text, done, match.begin - done).append(mSecrets[match.secret].mark);
        done = match.end;
    }
    return result.append(text, done, std::string_view::npos);
}

std::vector<std::string> Masker::legend() const {
    std::vector<std::string> lines;
    for (const Secret& secret : mSecrets) lines.push_back(secret.mark + ": " + std::string(meaningOfKind(secret.kind)));
    return lines;
}

bool Masker::Lines::parse(std::string_view line, Row& row) {
    for (std::size_t colon = line.find(": "); colon != std::string_view::npos; colon = line.find(": ", colon + 1)) {
        std::size_t begin = colon;
        while (begin > 0 && digitValue(line[begin - 1]) >= 0) --begin;
        if (colon - begin < kFewestOffsetDigits) continue;
        const std::size_t first = colon + 2;
        row.hex.clear();
        row.bytes.clear();
        for (std::size_t at = first; row.hex.size() < kRowBytes && at + 1 < line.size(); at += 3) {
            const int high = digitValue(line[at]);
            const int low = digitValue(line[at + 1]);
            if (high < 0 || low < 0 || (at + 2 < line.size() && line[at + 2] != ' ')) break;
            row.hex.push_back(at);
            row.bytes += static_cast<char>(high * 16 + low);
        }
        if (row.hex.empty()) continue;
        row.offset = 0;
        for (const char digit : line.substr(begin, colon - begin))
            row.offset = row.offset * 16 + static_cast<std::size_t>(digitValue(digit));
        row.characters = first + 3 * kRowBytes + 2;
        row.line = line;
        return true;
    }
    return false;
}

bool Masker::Lines::isRow(std::string_view line) {
    Row row;
    return parse(line, row);
}

void Masker::Lines::add(std::string line) {
    Row row;
    const bool isRow = parse(line, row);
    const bool goesOn = isRow && !mRows.empty() && row.offset == mRows.back().offset + mRows.back().bytes.size();
    if (!goesOn) finish();
    if (!isRow) return mTake(mMasker.maskedText(line));
    mBytes += row.bytes.size();
    if (mBytes > kLongestDump) return;  // without its beginning a value could not be known any more
    mRows.push_back(std::move(row));
}

void Masker::Lines::finish() {
    std::string bytes;
    std::vector<std::pair<std::size_t, std::size_t>> places;  // of each byte: its row, and its number in the row
    for (std::size_t i = 0; i < mRows.size(); ++i) {
        bytes += mRows[i].bytes;
        for (std::size_t byte = 0; byte < mRows[i].bytes.size(); ++byte) places.emplace_back(i, byte);
    }
    std::vector<std::string> marks(mRows.size());
    const auto hideByte = [&](std::size_t at) {
        const auto& [index, byte] = places[at];
        Row& row = mRows[index];
        row.line.replace(row.hex[byte], 2, "**");
        if (row.characters + byte < row.line.size()) row.line[row.characters + byte] = '*';
    };
    for (const Match& match : matches(mMasker.mBytes, bytes)) {
        for (std::size_t at = match.begin; at < match.end; ++at) {
            hideByte(at);
            if (const auto [index, byte] = places[at]; at == match.begin || byte == 0)
                marks[index] += "  " + mMasker.mSecrets[match.secret].mark;
        }
    }
    // Such data is known by its place, also where no line has told the unit id, or where the packet lacks a part of it.
    if (!mRows.empty() && mRows.front().offset == 0 && isOfUnitId(bytes)) {
        for (std::size_t at = kDataOffset; at < bytes.size(); ++at) hideByte(at);
    }
    // The marks come behind the row's text, which may hold their words as values.
    for (std::size_t i = 0; i < mRows.size(); ++i) mTake(mMasker.maskedText(mRows[i].line) + marks[i]);
    if (mBytes > kLongestDump) mTake("[the rest of this dump is left out]");
    mRows.clear();
    mBytes = 0;
}
