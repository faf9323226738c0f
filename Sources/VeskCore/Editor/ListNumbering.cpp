#include "VeskCore/Editor/ListNumbering.h"

#include <limits>
#include <string>

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditorLines.h"

namespace vesk {

namespace {

using Kind = MarkdownBlock::Kind;

}  // namespace

std::optional<TextDraft::Replacement> ListNumbering::next(std::u16string_view line, std::size_t lineStart,
                                                          std::optional<std::int64_t> opening) {
    const Kind kind = BlockModel::classify(line).kind;
    if (!isItem(kind)) {
        reset();
        return std::nullopt;
    }
    const int level = BlockModel::indentLevel(line);
    counters_.erase(counters_.upper_bound(level), counters_.end());
    const auto* ordered = std::get_if<Kind::Ordered>(&kind.value);
    if (ordered == nullptr) return std::nullopt;

    const auto counter = counters_.find(level);
    std::int64_t number = opening.value_or(ordered->number);
    if (counter != counters_.end()) {
        const bool last = counter->second == std::numeric_limits<std::int64_t>::max();
        number = last ? counter->second : counter->second + 1;
    }
    counters_[level] = number;
    if (number == ordered->number) return std::nullopt;
    const std::size_t digits = line.find_first_of(u"0123456789");
    const std::size_t sign = line.find_first_of(u".)", digits);
    const std::string written = std::to_string(number);
    return TextDraft::Replacement{{lineStart + digits, sign - digits}, {written.begin(), written.end()}};
}

void ListNumbering::note(std::u16string_view line) {
    const Kind kind = BlockModel::classify(line).kind;
    if (!isItem(kind)) return reset();
    const int level = BlockModel::indentLevel(line);
    counters_.erase(counters_.upper_bound(level), counters_.end());
    if (const auto* ordered = std::get_if<Kind::Ordered>(&kind.value)) counters_[level] = ordered->number;
}

bool ListNumbering::isItem(const MarkdownBlock::Kind& kind) {
    return std::holds_alternative<Kind::Ordered>(kind.value) ||
           std::holds_alternative<Kind::Task>(kind.value) || kind == Kind{Kind::Plain::bullet};
}

void ListNumbering::renumber(TextDraft& draft, std::u16string_view text, const Touched& touched) {
    ListNumbering numbering;
    // What stands before decides where the counting goes on. An ordered item at the outermost level hides
    // everything before it.
    std::vector<std::size_t> before;
    for (std::size_t at = touched.lines.location; at > 0;) {
        at = EditorLines::lineStart(text, at - 1);
        const std::u16string_view line = EditorLines::piece(text, EditorLines::lineFrom(text, at).content);
        const Kind kind = BlockModel::classify(line).kind;
        if (!isItem(kind)) break;
        before.push_back(at);
        if (std::holds_alternative<Kind::Ordered>(kind.value) && BlockModel::indentLevel(line) == 0) break;
    }
    for (auto at = before.rbegin(); at != before.rend(); ++at) {
        numbering.note(EditorLines::piece(text, EditorLines::lineFrom(text, *at).content));
    }

    std::vector<TextDraft::Replacement> pieces;
    const std::u16string lines = draft.text(touched.lines);
    for (std::size_t at = 0; at < lines.size();) {
        const EditorLines::Line line = EditorLines::lineFrom(lines, at);
        const std::u16string_view shown = EditorLines::piece(lines, line.content);
        if (at == 0 && touched.keepsFirst) {
            numbering.note(shown);
        } else {
            const auto opening = touched.openings.find(BlockModel::indentLevel(shown));
            auto digits = numbering.next(
                shown, touched.lines.location + at,
                opening == touched.openings.end() ? std::nullopt : std::optional(opening->second));
            if (digits) pieces.push_back(*std::move(digits));
        }
        at = line.full.end();
    }
    const auto growth = static_cast<std::size_t>(draft.growth());
    for (std::size_t at = touched.lines.end() - growth; at < text.size();) {
        const EditorLines::Line line = EditorLines::lineFrom(text, at);
        const std::u16string_view shown = EditorLines::piece(text, line.content);
        const Kind kind = BlockModel::classify(shown).kind;
        const int lineLevel = BlockModel::indentLevel(shown);
        if (!isItem(kind) || lineLevel < touched.level) break;
        auto digits = numbering.next(shown, at + growth);
        // An item that is right already leaves nothing to do for those that follow it.
        if (!digits && lineLevel == touched.level && std::holds_alternative<Kind::Ordered>(kind.value)) break;
        if (digits) pieces.push_back(*std::move(digits));
        at = line.full.end();
    }
    draft.replace(pieces);
}

}  // namespace vesk
