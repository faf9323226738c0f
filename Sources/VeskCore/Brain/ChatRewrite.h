// A replacement text in a reply of the conversation: asked for in a fenced block, taken out of it again.
// Pure.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vesk::ChatRewrite {

/// Added to the system prompt where the reply may replace the text.
extern const std::string_view instructions;
/// Added where the reply may also move, rename, tag or trash the note.
extern const std::string_view noteFileInstructions;

bool looksLikeReplacement(std::string_view text);
/// What the first replacement block holds; none without one that is closed.
std::optional<std::string> extract(std::string_view text);
/// The text around the block, as the transcript shows it. A block that was cut off goes too.
std::string removing(std::string_view text);

}  // namespace vesk::ChatRewrite
