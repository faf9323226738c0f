// What a command of the editor wants to happen to the text: one replacement, which is one undo step, and the
// selection behind it. Offsets are UTF-16 units. Pure; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Support/TextRange.h"

namespace vesk {

struct TextEdit {
    TextRange range;             ///< replaced; empty for a pure insertion or where only the caret moves
    std::u16string replacement;  ///< empty for a deletion or where only the caret moves
    TextRange selection;         ///< in the text after the edit; empty for a caret
    bool operator==(const TextEdit&) const = default;

    /// True when only the selection changes: no undo step.
    bool onlySelects() const { return range.empty() && replacement.empty(); }
    /// The text after the edit.
    std::u16string applied(std::u16string_view text) const;
};

/// A command on its way to a TextEdit: pieces of the text are replaced in one or more rounds, and the
/// selection follows. Only the part of the text that changes is ever copied.
class TextDraft {
public:
    struct Replacement {
        TextRange range;
        std::u16string text;
    };

    /// `text` is borrowed. The selection is taken as `snapped` gives it.
    TextDraft(std::u16string_view text, TextRange selection);

    /// One round: replacements in order and apart, in offsets of the text as the last round left it. An end
    /// of the selection that stands where something is inserted goes behind it when its flag is set.
    void replace(const std::vector<Replacement>& pieces, bool startGoesBehind = true,
                 bool endGoesBehind = true);
    void select(TextRange selection) { selection_ = selection; }

    TextRange selection() const { return selection_; }
    /// A stretch of the text as it now stands.
    std::u16string text(TextRange range) const;
    /// How much longer the text has become; negative when shorter.
    std::ptrdiff_t growth() const;

    /// The least replacement that does it; none if neither text nor selection would change.
    std::optional<TextEdit> finish() const;

    /// Inside the text, and no end within a surrogate pair or between CR and LF: those are widened over.
    static TextRange snapped(std::u16string_view text, TextRange selection);

private:
    std::u16string_view base_;
    TextRange given_, selection_;
    TextRange changed_;   // of the base: what `now_` stands for
    std::u16string now_;  // the text in the place of `changed_`
    bool touched_ = false;
};

}  // namespace vesk
