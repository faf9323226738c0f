// Characters as a user perceives them: extended grapheme clusters (UAX #29). CR LF, a letter with its
// accents, a family emoji and a flag are one each. Every limit that counts characters counts these. ASCII
// takes a fast path.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace vesk {

std::size_t characterCount(std::string_view text);

/// The first `count` characters, or the whole text if it has fewer.
std::string_view characterPrefix(std::string_view text, std::size_t count);

/// The longest prefix of whole characters that takes at most `maxBytes` bytes.
std::string_view characterPrefixFitting(std::string_view text, std::size_t maxBytes);

/// The characters in order, each a view into `text`.
std::vector<std::string_view> characters(std::string_view text);

/// The byte offsets at which the characters of `text` begin, and its size as the last entry.
std::vector<std::size_t> characterBoundaries(std::string_view text);

/// Walks a text character by character without building a list.
class CharacterCursor {
public:
    explicit CharacterCursor(std::string_view text) : text_(text) {}

    bool atEnd() const { return offset_ >= text_.size(); }
    std::size_t offset() const { return offset_; }
    /// The character that begins here, and the step behind it. Not at the end.
    std::string_view next();

private:
    std::string_view text_;
    std::size_t offset_ = 0;
};

}  // namespace vesk
