#include "VeskCore/Editor/Folding.h"

#include <algorithm>

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/ListNumbering.h"
#include "VeskCore/Editor/MarkdownSpans.h"

namespace vesk {

using EditorLines::piece;
using Kind = MarkdownBlock::Kind;

namespace {

/// Walks the lines once, with the headings and items that are still open on a stack each.
class FoldWalk {
public:
    explicit FoldWalk(std::u16string_view text) : text_(text) {}

    std::vector<Fold> walk() {
        std::size_t at = 0;
        if (const auto frontmatter = MarkdownSpans::frontmatterRange(text_)) {
            const std::size_t last = EditorLines::lineStart(text_, frontmatter->end() - 1);
            close({Fold::Kind::frontmatter, EditorLines::lineFrom(text_, 0).content, 0},
                  EditorLines::lineFrom(text_, last).content.end());
            at = frontmatter->end();
        }
        while (at < text_.size()) {
            const EditorLines::Line line = EditorLines::lineFrom(text_, at);
            at = line.full.end();
            take(line);
        }
        if (fence_) close(*fence_, lastText_);
        closeItems(0);
        closeHeadings(1);
        std::sort(folds_.begin(), folds_.end(),
                  [](const Fold& a, const Fold& b) { return a.line.location < b.line.location; });
        return std::move(folds_);
    }

private:
    struct Open {
        Fold::Kind kind;
        TextRange line;
        int level;  // of a heading, or an item's indent
    };

    void take(const EditorLines::Line& line) {
        const std::u16string_view shown = piece(text_, line.content);
        if (EditorLines::isFence(piece(text_, line.full))) {
            if (fence_) {
                close(*fence_, line.content.end());
                fence_.reset();
            } else {
                closeItems(BlockModel::indentLevel(shown));
                fence_ = Open{Fold::Kind::fence, line.content, 0};
            }
            lastText_ = line.content.end();
            return;
        }
        if (fence_) {
            lastText_ = line.content.end();
            return;
        }
        if (EditorLines::trimmed(shown).empty()) return;
        const Kind kind = BlockModel::classify(shown).kind;
        const int level = BlockModel::indentLevel(shown);
        closeItems(level);
        if (const auto* heading = std::get_if<Kind::Heading>(&kind.value)) {
            closeItems(0);
            closeHeadings(heading->level);
            headings_.push_back({Fold::Kind::heading, line.content, heading->level});
        } else if (ListNumbering::isItem(kind)) {
            items_.push_back({Fold::Kind::list, line.content, level});
        }
        lastText_ = line.content.end();
    }

    void close(const Open& open, std::size_t end) {
        if (end > open.line.end())
            folds_.push_back({open.kind, open.line, {open.line.end(), end - open.line.end()}});
    }
    void closeItems(int level) {
        for (; !items_.empty() && items_.back().level >= level; items_.pop_back())
            close(items_.back(), lastText_);
    }
    void closeHeadings(int level) {
        for (; !headings_.empty() && headings_.back().level >= level; headings_.pop_back())
            close(headings_.back(), lastText_);
    }

    std::u16string_view text_;
    std::vector<Open> headings_, items_;
    std::optional<Open> fence_;
    std::size_t lastText_ = 0;  // end of the last line that isn't blank
    std::vector<Fold> folds_;
};

}  // namespace

std::vector<Fold> Fold::folds(std::u16string_view text) {
    return FoldWalk(text).walk();
}

}  // namespace vesk
