// The images that a note shows in place, and where each spells its target. Offsets are UTF-16 units over the
// whole text. Linear in its input. Pure; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Support/TextRange.h"

namespace vesk {

struct ImageEmbed {
    TextRange range;                         ///< the embed's syntax
    TextRange lineRange;                     ///< its whole line
    std::string target;                      ///< as the note spells it
    std::optional<int> maxWidth, maxHeight;  ///< in pixels
    std::optional<std::string> alt;
    bool operator==(const ImageEmbed&) const = default;
};

namespace MarkdownSpans {

std::vector<ImageEmbed> imageEmbeds(std::u16string_view text);

/// True of a relative path to an attachment that stays inside the vault: no address, nothing that leads
/// upwards.
bool isEmbeddable(std::string_view target);

/// Where the first embed of `target` spells it. None without such an embed, and where `newTarget` can't be
/// written there because it holds the sign that would end it.
std::optional<TextRange> spelledTarget(std::string_view target, std::string_view newTarget,
                                       std::u16string_view text);

}  // namespace MarkdownSpans
}  // namespace vesk
