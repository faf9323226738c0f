#include "VeskCore/Editor/NoteFormat.h"

#include <algorithm>
#include <vector>

#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/ListNumbering.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Editor/MarkdownTable.h"
#include "VeskCore/Editor/TableEditing.h"

namespace vesk::NoteFormat {

using EditorLines::piece;
using Replacement = TextDraft::Replacement;

namespace {

/// Follows fenced code in every way in which a reader of Markdown might: any fence closes any other, as the
/// editor shows it; the same three signs close; a run of the same sign at least as long closes. Only what is
/// outside of code for all of them may be changed.
class Fences {
public:
    /// Whether the line stands in code for anyone, or is a fence itself.
    bool holds(std::u16string_view line) {
        const std::u16string_view shown = EditorLines::trimmed(line);
        bool held = any_ || !same_.empty() || length_ > 0;
        if (!EditorLines::beginsWithFence(shown)) return held;
        if (EditorLines::isFence(line)) {
            any_ = !any_;
            if (same_.empty()) {
                same_ = shown.substr(0, 3);
            } else if (same_ == shown.substr(0, 3)) {
                same_ = {};
            }
        }
        const std::size_t run = std::min(shown.find_first_not_of(shown.front()), shown.size());
        if (length_ == 0) {
            if (shown.front() == u'~' || shown.find(u'`', run) == shown.npos) {
                length_ = run;
                sign_ = shown.front();
            }
        } else if (shown.front() == sign_ && run >= length_ && run == shown.size()) {
            length_ = 0;
        }
        return true;
    }

private:
    bool any_ = false;
    std::u16string_view same_;
    std::size_t length_ = 0;
    char16_t sign_ = 0;
};

}  // namespace

std::u16string formatted(std::u16string_view text) {
    const auto frontmatter = MarkdownSpans::frontmatterRange(text);
    const std::size_t bodyStart = frontmatter ? frontmatter->end() : 0;
    const std::vector<MarkdownTable> tables = MarkdownTable::tables(text, {}, frontmatter, false);
    auto table = tables.begin();
    std::vector<Replacement> pieces;
    Fences fences;
    ListNumbering numbering;
    for (std::size_t at = bodyStart; at < text.size();) {
        const EditorLines::Line line = EditorLines::lineFrom(text, at);
        at = line.full.end();
        if (fences.holds(piece(text, line.full))) {
            numbering.reset();
            continue;
        }
        while (table != tables.end() && table->range.location < line.full.location) ++table;
        if (table != tables.end() && table->range.location == line.full.location) {
            // No row is a fence, so what holds for the first line holds for all.
            pieces.push_back({table->range, TableEditing::tidied(*table, text)});
            at = table->range.end();
            numbering.reset();
            continue;
        }
        if (auto digits = numbering.next(piece(text, line.content), line.content.location))
            pieces.push_back(*std::move(digits));
    }
    std::u16string result;
    result.reserve(text.size() + text.size() / 8);
    std::size_t copied = 0;
    for (const Replacement& one : pieces) {
        result.append(text.substr(copied, one.range.location - copied)).append(one.text);
        copied = one.range.end();
    }
    return result.append(text.substr(copied));
}

}  // namespace vesk::NoteFormat
