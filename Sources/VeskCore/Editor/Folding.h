// What of a note can be folded away: the text under a heading, fenced code, frontmatter, the lines below a
// list item. UTF-16 offsets. Linear in its input. Pure; any thread.
#pragma once

#include <string_view>
#include <vector>

#include "VeskCore/Support/TextRange.h"

namespace vesk {

struct Fold {
    enum class Kind { frontmatter, heading, fence, list };
    Kind kind = Kind::heading;
    TextRange line;    ///< the line that stays, without its end
    TextRange hidden;  ///< from that line's end to the end of the last line, whose own end stays
    bool operator==(const Fold&) const = default;

    /// In order of their lines. Blank lines at the end of a fold stay outside it.
    static std::vector<Fold> folds(std::u16string_view text);
};

}  // namespace vesk
