// Character references of HTML (WHATWG HTML, "Named character references").
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vesk::HTMLEntities {

/// Named, decimal and hexadecimal references to text; what is no reference stays. In an attribute a legacy name
/// without a semicolon that is followed by "=" or an alphanumeric stays as it is.
std::string decode(std::string_view text, bool inAttribute);

/// The text of a name without "&" and ";" ("amp"), one or two code points; none if there is no such name.
std::optional<std::u32string_view> scalar(std::string_view named);
/// The code point of a numeric reference, with the standard's replacements (Windows-1252 for 0x80 to 0x9F, U+FFFD for
/// 0, surrogates and values above 0x10FFFF).
char32_t scalar(std::uint64_t codePoint);

}  // namespace vesk::HTMLEntities
