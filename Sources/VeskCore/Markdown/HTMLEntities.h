// Character references of HTML (WHATWG HTML, "Named character references").
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vesk::HTMLEntities {

/// Named, decimal and hexadecimal references to text; what is no reference stays. In an attribute a legacy
/// name without a semicolon that is followed by "=" or an alphanumeric stays as it is.
std::string decode(std::string_view text, bool inAttribute);

/// The text of a name without "&" and ";" ("amp"), one or two code points; none if there is no such name.
std::optional<std::u32string_view> scalar(std::string_view named);
/// The code point of a numeric reference, with the standard's replacements (Windows-1252 for 0x80 to 0x9F,
/// U+FFFD for 0, surrogates and values above 0x10FFFF).
char32_t scalar(std::uint64_t codePoint);

/// A reference where it stands in a text.
struct Reference {
    std::size_t length = 0;  ///< in bytes, "&" and ";" included
    char32_t first = 0;
    char32_t second = 0;  ///< 0 when there is but one
};
/// The reference that begins with the "&" at `offset`; none if there is none. Reads a bounded number of
/// bytes, but for the digits of a number.
std::optional<Reference> reference(std::string_view text, std::size_t offset, bool inAttribute);

}  // namespace vesk::HTMLEntities
