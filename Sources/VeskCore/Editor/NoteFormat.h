// Putting a note's source in order: numbers of ordered lists and padding of tables, nothing else. Frontmatter
// and fenced code stay as they are. Linear in its input. Pure; any thread.
#pragma once

#include <string>
#include <string_view>

namespace vesk::NoteFormat {

/// Formatting twice changes nothing more.
std::u16string formatted(std::u16string_view text);

}  // namespace vesk::NoteFormat
