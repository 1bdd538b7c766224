#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Replaces what tells who somebody is or which device it is by marks such as <user-1>, equal values by equal marks:
/// in text, as whole words and whatever the case; and in the bytes of hex dumps, also where a value goes on in the next
/// row. Marks tell nothing about a value but its kind. One thread at a time.
///
///     0000: 14 00 ** ** ** 0a                                  ..***.  <user-1>
class Masker {
  public:
    enum class Kind { User, Host, Home, Serial };

    /// Has a value replaced from now on; an empty one is none. A serial number of three characters or less is left
    /// alone: it is shared by many devices, and its digits stand in every line. One that is a number of at least
    /// kSmallestNumber is also found in hexadecimal and as four bytes of either order.
    void hide(Kind kind, std::string_view value);
    static constexpr unsigned long kSmallestNumber = 0x10000;

    /// Hides what a line calls a serial number or a unit id: the word after "serial", "serial number" or "unit id".
    void learn(std::string_view line);

    /// The mark of a value, which is hidden from now on; a serial number of any length has one here.
    [[nodiscard]] std::string markOf(Kind kind, std::string_view value);

    /// One line, or part of one, that is not of a dump.
    [[nodiscard]] std::string maskedText(std::string_view text) const;

    /// Masks a text line by line. A dump's rows wait until its end. Of a packet that tells a unit id all data is
    /// masked, known or not.
    class Lines {
      public:
        /// @param take  gets each masked line, without line end
        Lines(const Masker& masker, std::function<void(const std::string&)> take)
            : mMasker(masker), mTake(std::move(take)) {}
        void add(std::string line);
        void finish();  ///< hands over what waits; once, at the end

        /// Whether a line shows bytes of a dump.
        [[nodiscard]] static bool isRow(std::string_view line);

      private:
        struct Row {
            std::string line;
            std::size_t offset = 0;        ///< of its first byte, as it says
            std::vector<std::size_t> hex;  ///< where each byte's two digits stand in the line
            std::size_t characters = 0;    ///< where its text column begins; may be behind the line's end
            std::string bytes;
        };
        static bool parse(std::string_view line, Row& row);

        const Masker& mMasker;
        std::function<void(const std::string&)> mTake;
        std::vector<Row> mRows;
        std::size_t mBytes = 0;  ///< of the waiting rows
    };

    /// Each mark with what it stands for, such as "<user-1>: account name".
    [[nodiscard]] std::vector<std::string> legend() const;

  private:
    struct Secret {
        Kind kind = Kind::User;
        std::string value;  ///< in small letters
        std::string mark;
    };
    struct Pattern {
        std::string text;  ///< in small letters
        bool isWord = false;
        std::size_t secret = 0;
    };
    struct Match {
        std::size_t begin = 0;
        std::size_t end = 0;
        std::size_t secret = 0;
    };
    /// What to look for, by the first byte.
    using Patterns = std::array<std::vector<Pattern>, 256>;

    std::size_t secretOf(Kind kind, std::string value);
    static void addPattern(Patterns& patterns, std::string text, bool isWord, std::size_t secret);
    void addBytes(const std::string& bytes, bool isWord, std::size_t secret);
    /// In order, none overlapping another; of those that do, the longest gives its mark to all of them.
    static std::vector<Match> matches(const Patterns& patterns, std::string_view text);

    std::vector<Secret> mSecrets;
    Patterns mText;
    Patterns mBytes;
};
