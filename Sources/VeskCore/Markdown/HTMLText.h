// Whole saved pages and stylesheets reduced to plain text for the index. Linear, no DOM, never fails. Pure;
// any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vesk {

struct HTMLExtract {
    struct Heading {
        int level = 1;
        std::string text;
        bool operator==(const Heading&) const = default;
    };
    std::optional<std::string> title;
    std::string text;
    std::vector<Heading> headings;
    bool operator==(const HTMLExtract&) const = default;
};

namespace HTMLText {

/// A change of the extraction raises it: the index then reads every document again.
inline constexpr int version = 2;
inline constexpr std::size_t maxRawBytes = 2'000'000;  ///< files above it are indexed by title only
inline constexpr std::size_t maxPageTextBytes = 256'000;
inline constexpr std::size_t titlePrefixBytes = 65'536;
inline constexpr std::size_t maxLineCharacters = 1'000;

/// The bytes of a page as text: UTF-8 if they are, else by the declared charset, else Windows-1252.
std::string decode(std::string_view data);
/// The bytes without a UTF-8 sequence that the end cuts off.
std::string_view withoutPartialUTF8(std::string_view data);
/// `scriptingEnabled`: "noscript" content does not count.
HTMLExtract extract(std::string_view text, bool scriptingEnabled);
/// At most `maxBytes` bytes, cut at the last line feed or, without one, at a character's edge.
std::string_view capped(std::string_view text, std::size_t maxBytes);
/// The page's title as far as its first titlePrefixBytes bytes tell.
std::optional<std::string> title(std::string_view prefix);

}  // namespace HTMLText

namespace CSSText {

inline constexpr std::size_t maxStylesheetTextBytes = 64'000;

/// A stylesheet for the index: no comments, no inline data, one rule per line.
std::string indexable(std::string_view text);

}  // namespace CSSText
}  // namespace vesk
