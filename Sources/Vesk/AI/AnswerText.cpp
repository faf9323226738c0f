#include "Vesk/AI/AnswerText.h"

#include <algorithm>
#include <array>
#include <utility>

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/LinkAt.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Editor/MarkdownTable.h"
#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

using Plain = MarkdownSpans::Style::Plain;
using BlockKind = MarkdownBlock::Kind;
using EditorLines::piece;

constexpr int mostIndent = 6;

/// What a label can show: a NUL would end it.
std::string shown(std::u16string_view text) {
    auto copy = utf8(text);
    for (std::size_t at = copy.find('\0'); at != copy.npos; at = copy.find('\0', at))
        copy.replace(at, 1, "\uFFFD");
    return copy;
}

std::optional<AnswerLink> linkAt(std::u16string_view line, std::size_t offset) {
    const auto found = LinkAt::at(line, offset);
    if (!found) return std::nullopt;
    const auto address = [](std::string target) -> std::optional<AnswerLink> {
        if (!NoteIndex::hasURIScheme(target)) return AnswerLink{AnswerLink::Kind::note, std::move(target)};
        for (const std::string_view scheme : {"http:", "https:", "mailto:"})
            if (equalsIgnoringCase(std::string_view(target).substr(0, scheme.size()), scheme))
                return AnswerLink{AnswerLink::Kind::address, std::move(target)};
        return std::nullopt;  // what a model writes starts no program
    };
    return match(
        found->value,
        [](const LinkAt::Wikilink& link) -> std::optional<AnswerLink> {
            if (link.target.empty()) return std::nullopt;
            return AnswerLink{AnswerLink::Kind::note, shown(link.target)};
        },
        [&](const LinkAt::Link& link) { return address(shown(link.target)); },
        [&](const LinkAt::Address& link) { return address(shown(link.url)); },
        [](const LinkAt::Tag&) -> std::optional<AnswerLink> { return std::nullopt; });
}

/// Reads one line's styles into an AnswerLine, more lines behind it.
class LineReader {
public:
    explicit LineReader(AnswerLine& out) : out_(out) {}

    void read(std::u16string_view line, const std::vector<MarkdownSpans::Span>& spans) {
        changes_.clear();
        links_.clear();
        for (const auto& span : spans) note(line, span);
        std::stable_sort(changes_.begin(), changes_.end(),
                         [](const Change& one, const Change& other) { return one.at < other.at; });
        std::array<int, styleCount> depth{};
        std::size_t at = 0, link = 0;
        for (const auto& change : changes_) {
            add(line, at, change.at, depth, link);
            at = std::max(at, change.at);
            depth[change.style] += change.step;
            if (change.style == linkStyle && change.step > 0) link = change.link;
        }
        add(line, at, line.size(), depth, link);
    }

private:
    enum : std::size_t { bold, italic, struck, highlighted, code, linkStyle, hidden, styleCount };
    struct Change {
        std::size_t at = 0, style = 0;
        int step = 0;
        std::size_t link = 0;
    };

    void mark(TextRange range, std::size_t style, std::size_t link = 0) {
        changes_.push_back({range.location, style, 1, link});
        changes_.push_back({range.end(), style, -1, link});
    }

    void note(std::u16string_view line, const MarkdownSpans::Span& span) {
        const auto* plain = std::get_if<Plain>(&span.style.value);
        if (!plain) return;
        switch (*plain) {
            case Plain::bold:
                mark(span.range, bold);
                break;
            case Plain::italic:
                mark(span.range, italic);
                break;
            case Plain::strikethrough:
                mark(span.range, struck);
                break;
            case Plain::highlight:
                mark(span.range, highlighted);
                break;
            case Plain::code:
                mark(span.range, code);
                break;
            case Plain::link:
                links_.push_back(linkAt(line, span.range.location));
                mark(span.range, linkStyle, links_.size() - 1);
                hideAlias(line, span);
                break;
            case Plain::fence:
            case Plain::codeBlock:
            case Plain::tag:
            case Plain::quote:
            case Plain::listMarker:
            case Plain::divider:
            case Plain::frontmatter:
            case Plain::htmlMarkup:
            case Plain::htmlInert:
                return;
        }
        for (const auto& marker : span.markers) mark(marker, hidden);
    }

    /// Of "[[Note|name]]" the name is read, of "[[Folder/Note]]" all.
    void hideAlias(std::u16string_view line, const MarkdownSpans::Span& span) {
        if (span.markers.empty() || span.markers.front().length < 2) return;
        const auto bar = piece(line, span.range).find(u'|');
        const auto inner = std::u16string_view::npos;
        const auto start = span.markers.front().end();
        if (bar != inner && span.range.location + bar >= start)
            mark({start, span.range.location + bar + 1 - start}, hidden);
    }

    void add(std::u16string_view line, std::size_t from, std::size_t to,
             const std::array<int, styleCount>& depth, std::size_t link) {
        if (to <= from || depth[hidden] > 0) return;
        AnswerRun run{.range = {out_.text.size(), 0},
                      .bold = depth[bold] > 0,
                      .italic = depth[italic] > 0,
                      .struck = depth[struck] > 0,
                      .highlighted = depth[highlighted] > 0,
                      .code = depth[code] > 0,
                      .link = depth[linkStyle] > 0 ? links_[link] : std::nullopt};
        out_.text += shown(line.substr(from, to - from));
        run.range.length = out_.text.size() - run.range.location;
        if (run.bold || run.italic || run.struck || run.highlighted || run.code || run.link)
            out_.runs.push_back(std::move(run));
    }

    AnswerLine& out_;
    std::vector<Change> changes_;
    std::vector<std::optional<AnswerLink>> links_;
};

AnswerLine readLine(std::u16string_view line, AnswerLine out = {}) {
    if (!out.text.empty()) out.text += '\n';
    LineReader(out).read(line, line.size() > MarkdownSpans::longLineLimit
                                   ? std::vector<MarkdownSpans::Span>()
                                   : MarkdownSpans::inlineSpans(line, 0, /*wholeLine=*/false));
    return out;
}

AnswerLine readCell(std::u16string_view text, const MarkdownTable::Cell& cell) {
    std::u16string content;
    std::size_t at = cell.content.location;
    for (const auto& escape : cell.escapes) {
        content += text.substr(at, escape.location - at);
        at = escape.end();
    }
    content += text.substr(at, cell.content.end() - at);
    AnswerLine out;
    LineReader(out).read(content, MarkdownSpans::inlineSpans(content, 0));
    return out;
}

AnswerBlock tableBlock(std::u16string_view text, const MarkdownTable& table) {
    AnswerBlock block{.kind = AnswerBlock::Kind::table};
    for (const auto& row : table.rows) {
        if (row.kind == TableRowKind::delimiter) continue;
        auto& cells = block.rows.emplace_back(table.columnCount());
        for (const auto& cell : row.cells)
            if (cell.column < cells.size()) cells[cell.column] = readCell(text, cell);
    }
    return block;
}

/// The number as it is written, with its sign.
std::string orderedMarker(std::u16string_view line) {
    const auto start = line.find_first_not_of(u" \t");
    const auto end = line.find_first_of(u".)", start);
    return shown(line.substr(start, end + 1 - start));
}

AnswerBlock lineBlock(std::u16string_view line) {
    using Kind = AnswerBlock::Kind;
    const auto classified = BlockModel::classify(line);
    const auto content = [&] { return readLine(classified.content); };
    const int indent = std::min(BlockModel::indentLevel(line), mostIndent);
    return match(
        classified.kind,
        [&](const BlockKind::Heading& heading) {
            return AnswerBlock{.kind = Kind::heading, .level = heading.level, .line = content()};
        },
        [&](const BlockKind::Ordered&) {
            return AnswerBlock{
                .kind = Kind::item, .level = indent, .marker = orderedMarker(line), .line = content()};
        },
        [&](const BlockKind::Task& task) {
            return AnswerBlock{.kind = Kind::item, .level = indent, .done = task.done, .line = content()};
        },
        [&](const BlockKind::Callout&) { return AnswerBlock{.kind = Kind::quote, .line = content()}; },
        [&](const BlockKind::Code&) { return AnswerBlock{.line = content()}; },
        [&](const BlockKind::Plain& plain) {
            switch (plain) {
                case BlockKind::Plain::bullet:
                    return AnswerBlock{.kind = Kind::item, .level = indent, .marker = "•", .line = content()};
                case BlockKind::Plain::quote:
                    return AnswerBlock{.kind = Kind::quote, .line = content()};
                case BlockKind::Plain::divider:
                    return AnswerBlock{.kind = Kind::divider};
                case BlockKind::Plain::paragraph:
                case BlockKind::Plain::table:
                case BlockKind::Plain::blank:
                    break;
            }
            return AnswerBlock{.line = readLine(line)};
        });
}

}  // namespace

std::size_t AnswerText::update(std::string_view whole) {
    if (!whole.starts_with(settled_)) {
        settled_.clear();
        place_ = {};
    }
    blocks_.resize(place_.blocks);
    const auto firstChanged = place_.blocks;
    const auto text = utf16(whole.substr(place_.offset));
    auto place = place_;
    std::size_t placeUnit = 0;  // of `place` in `text`
    bool inFence = place.inFence, codeBegun = place.codeBegun, isApart = true;
    int codeLines = 0;

    const auto settle = [&](std::size_t unit) {
        placeUnit = unit;
        place = {.blocks = blocks_.size(), .inFence = inFence, .codeBegun = codeBegun};
    };
    const bool hasTables = MarkdownTable::mightContainTable(text, {0, text.size()});
    const auto tables = hasTables ? MarkdownTable::tables(text, TextRange{0, text.size()}, {}, inFence)
                                  : std::vector<MarkdownTable>();
    auto table = tables.begin();
    for (std::size_t at = 0; at < text.size();) {
        const auto line = EditorLines::lineFrom(text, at);
        const auto content = piece(text, line.content);
        const bool isWhole = line.full.length > line.content.length;
        at = line.full.end();
        if (EditorLines::isFence(piece(text, line.full))) {
            inFence = !inFence;
            codeBegun = false;
            codeLines = 0;
            isApart = true;
            // The line of a fence that still comes in may yet turn out to be text.
            if (isWhole && !inFence) settle(at);
            continue;
        }
        if (inFence) {
            if (codeLines == 0) blocks_.push_back({.kind = AnswerBlock::Kind::code, .continues = codeBegun});
            auto& code = blocks_.back().line.text;
            if (codeLines > 0) code += '\n';
            code += shown(content);
            codeBegun = true;
            if (++codeLines == codeLinesInBlock && isWhole) {
                codeLines = 0;
                settle(at);
            }
            continue;
        }
        while (table != tables.end() && table->range.end() <= line.full.location) ++table;
        if (table != tables.end() && line.full.location >= table->range.location) {
            blocks_.push_back(tableBlock(text, *table));
            at = std::max(at, table->rows.back().fullLine.end());
            isApart = true;
            continue;
        }
        if (EditorLines::trimmed(content).empty()) {
            isApart = true;
            if (isWhole) settle(at);
            continue;
        }
        auto block = lineBlock(content);
        const bool joins =
            !isApart && !blocks_.empty() && blocks_.back().kind == block.kind &&
            (block.kind == AnswerBlock::Kind::paragraph || block.kind == AnswerBlock::Kind::quote);
        if (joins) {
            auto& before = blocks_.back().line;
            const auto shift = before.text.size() + 1;
            before.text += '\n' + block.line.text;
            for (auto& run : block.line.runs) {
                run.range.location += shift;
                before.runs.push_back(std::move(run));
            }
        } else {
            blocks_.push_back(std::move(block));
        }
        isApart = false;
    }
    if (placeUnit > 0) {
        place.offset = place_.offset + utf8(std::u16string_view(text).substr(0, placeUnit)).size();
        settled_ = whole.substr(0, place.offset);
        place_ = place;
    }
    return firstChanged;
}

}  // namespace vesk
