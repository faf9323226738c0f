// Inline HTML in one line of a note: which stretches are styled, which are markup. Offsets are UTF-16 units
// within the line. No DOM, no state between lines. Linear in the line. Pure; any thread.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "VeskCore/Markdown/HTMLStyle.h"
#include "VeskCore/Markdown/MarkdownSpan.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk::HTMLSpans {

struct Tag {
    TextRange range;
    std::string name;  ///< lower-cased
    bool isClose = false, selfClosing = false;
    std::vector<std::pair<std::string, std::string>> attributes;  ///< in source order, values decoded
    std::map<std::string, TextRange> valueRanges;                 ///< of each attribute's value in the line
    bool operator==(const Tag&) const = default;
};

struct Comment {
    TextRange range;
    bool operator==(const Comment&) const = default;
};

using Token = std::variant<Tag, Comment>;

struct LineScan {
    std::vector<MarkdownSpans::Span> spans;
    std::vector<TextRange> mask;  ///< what the note scanner blanks
    bool markupOnly = false;      ///< nothing but markup stands on the line
    bool operator==(const LineScan&) const = default;
};

/// `contentLength` is the line's length without its terminator; `codeRanges` are its inline code, in order.
LineScan scan(std::u16string_view line, std::size_t contentLength, const std::vector<TextRange>& codeRanges);

/// The ranges of tags and comments outside code.
std::vector<TextRange> markupRanges(std::u16string_view line, const std::vector<TextRange>& code);

/// Tags and comments in order, outside code.
std::vector<Token> tokens(std::u16string_view line, std::size_t contentLength,
                          const std::vector<TextRange>& codeRanges);

/// The recognised declarations of a `style` attribute, or none.
std::optional<HTMLStyle> parseStyleAttribute(std::string_view value);

}  // namespace vesk::HTMLSpans
