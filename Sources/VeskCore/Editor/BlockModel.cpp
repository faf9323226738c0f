#include "VeskCore/Editor/BlockModel.h"

#include <algorithm>
#include <limits>
#include <map>

#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Editor/MarkdownTable.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

using Kind = MarkdownBlock::Kind;
using Plain = Kind::Plain;

namespace {

std::u16string decimal(std::int64_t number) {
    const std::string digits = std::to_string(number);
    return {digits.begin(), digits.end()};
}

constexpr bool isBlankUnit(char16_t c) {
    return c == u' ' || c == u'\t';
}

std::u16string_view withoutIndent(std::u16string_view line) {
    while (!line.empty() && isBlankUnit(line.front())) line.remove_prefix(1);
    return line;
}

struct OrderedMarker {
    std::int64_t number = 0;
    std::size_t length = 0;  ///< digits and the sign behind them
};

/// The number that begins a trimmed line, with its "." or ")" and a space or the line's end behind it.
std::optional<OrderedMarker> orderedMarker(std::u16string_view line) {
    OrderedMarker marker;
    std::size_t at = 0;
    for (; at < line.size() && line[at] >= u'0' && line[at] <= u'9'; ++at) {
        const int digit = line[at] - u'0';
        if (marker.number > (std::numeric_limits<std::int64_t>::max() - digit) / 10) return std::nullopt;
        marker.number = marker.number * 10 + digit;
    }
    if (at == 0 || at == line.size() || (line[at] != u'.' && line[at] != u')')) return std::nullopt;
    marker.length = at + 1;
    if (marker.length < line.size() && line[marker.length] != u' ') return std::nullopt;
    return marker;
}

struct Checkbox {
    bool done = false;
    std::size_t length = 0;
};

/// "[", one character, "]" at the start of an item's text.
std::optional<Checkbox> checkbox(std::u16string_view rest) {
    if (rest.size() < 3 || rest[0] != u'[') return std::nullopt;
    constexpr char16_t firstCombining = 0x0300;
    // Without a mark on any of the three each unit is a character.
    if (rest[1] < 0x80 && rest[2] < firstCombining && (rest.size() == 3 || rest[3] < firstCombining)) {
        if (rest[2] != u']') return std::nullopt;
        return Checkbox{rest[1] != u' ', 3};
    }
    const std::string bytes = utf8(rest);
    CharacterCursor cursor(bytes);
    if (cursor.next() != "[" || cursor.atEnd()) return std::nullopt;
    const std::string_view sign = cursor.next();
    if (cursor.atEnd() || cursor.next() != "]") return std::nullopt;
    return Checkbox{sign != " ", utf16Length(std::string_view(bytes).substr(0, cursor.offset()))};
}

/// A line of a text that is split at LF. A CR before the LF belongs to the end.
struct SplitLine {
    std::u16string_view content, end;
};

std::vector<SplitLine> splitAtLineFeeds(std::u16string_view text) {
    std::vector<SplitLine> lines;
    for (std::size_t start = 0;;) {
        const std::size_t feed = text.find(u'\n', start);
        if (feed == text.npos) {
            lines.push_back({text.substr(start), {}});
            return lines;
        }
        const std::size_t end = feed > start && text[feed - 1] == u'\r' ? feed - 1 : feed;
        lines.push_back({text.substr(start, end - start), text.substr(end, feed + 1 - end)});
        start = feed + 1;
    }
}

/// The three signs of the fence that the line opens, or empty. Such a line is one of the spans' fences too.
std::u16string_view fenceSigns(const SplitLine& line) {
    if (line.content.size() + line.end.size() > MarkdownSpans::longLineLimit) return {};
    const std::u16string_view shown = EditorLines::trimmedBlanks(line.content);
    return EditorLines::beginsWithFence(shown) ? shown.substr(0, 3) : std::u16string_view();
}

/// Behind the last line of the fence that `first` opens.
std::size_t fenceEnd(const std::vector<SplitLine>& lines, std::size_t first) {
    const std::u16string_view signs = fenceSigns(lines[first]);
    std::size_t end = first + 1;
    while (end < lines.size() && fenceSigns(lines[end]) != signs) ++end;
    return std::min(end + 1, lines.size());
}

/// From a table's first line to its last, for tables that begin with a line of this split.
std::map<std::size_t, std::size_t> tableLines(std::u16string_view text, const std::vector<SplitLine>& lines) {
    std::map<std::size_t, std::size_t> result;
    if (text.find(u'|') == text.npos) return result;
    std::vector<std::size_t> starts;
    std::size_t at = 0;
    for (const SplitLine& line : lines) {
        starts.push_back(at);
        at += line.content.size() + line.end.size();
    }
    const auto holding = [&](std::size_t offset) {
        return static_cast<std::size_t>(std::upper_bound(starts.begin(), starts.end(), offset) -
                                        starts.begin() - 1);
    };
    const auto frontmatter = MarkdownSpans::frontmatterRange(text);
    for (const MarkdownTable& table : MarkdownTable::tables(text, {}, frontmatter, false)) {
        const std::size_t first = holding(table.range.location);
        if (starts[first] != table.range.location) continue;
        result.emplace(first, holding(table.lastRow().line.location));
    }
    return result;
}

std::u16string joined(const std::vector<SplitLine>& lines) {
    std::u16string text;
    for (const SplitLine& line : lines) (text += line.content) += line.end;
    return text;
}

const MarkdownBlock* blockHolding(const std::vector<MarkdownBlock>& blocks, std::size_t line) {
    const auto found = std::find_if(blocks.begin(), blocks.end(), [&](const MarkdownBlock& block) {
        return block.lineRange.contains(line);
    });
    return found == blocks.end() ? nullptr : &*found;
}

}  // namespace

std::string MarkdownBlock::Kind::displayName() const {
    return match(
        *this, [](const Heading& heading) { return "Heading " + std::to_string(heading.level); },
        [](const Ordered&) { return std::string("Numbered list"); },
        [](const Task&) { return std::string("To-do list"); },
        [](const Callout&) { return std::string("Callout"); },
        [](const Code&) { return std::string("Code"); },
        [](const Plain& plain) -> std::string {
            switch (plain) {
                case Plain::paragraph:
                    return "Text";
                case Plain::bullet:
                    return "Bulleted list";
                case Plain::quote:
                    return "Quote";
                case Plain::divider:
                    return "Divider";
                case Plain::table:
                    return "Table";
                case Plain::blank:
                    return "Empty";
            }
            return "";
        });
}

std::u16string MarkdownBlock::Kind::marker(std::int64_t number) const {
    return match(
        *this,
        [](const Heading& heading) {
            return std::u16string(static_cast<std::size_t>(std::clamp(heading.level, 1, 6)), u'#') + u" ";
        },
        [&](const Ordered&) { return decimal(number) + u". "; },
        [](const Task& task) { return std::u16string(task.done ? u"- [x] " : u"- [ ] "); },
        [](const Callout& callout) { return u"> [!" + callout.type + u"] "; },
        [](const Code&) { return std::u16string(); },
        [](const Plain& plain) -> std::u16string {
            if (plain == Plain::bullet) return u"- ";
            if (plain == Plain::quote) return u"> ";
            return u"";
        });
}

namespace BlockModel {

Classified classify(std::u16string_view line) {
    const std::u16string_view text = EditorLines::trimmed(line);
    if (text.empty()) return {{Plain::blank}, {}};
    if (text == u"---" || text == u"***" || text == u"___") return {{Plain::divider}, {}};

    const std::size_t level = std::min(text.find_first_not_of(u'#'), text.size());
    if (level >= 1 && level <= 6 && level < text.size() && text[level] == u' ') {
        return {{Kind::Heading{static_cast<int>(level)}}, text.substr(level + 1)};
    }
    if (text.front() == u'-' || text.front() == u'*' || text.front() == u'+') {
        if (text.size() == 1) return {{Plain::bullet}, {}};
        if (text[1] == u' ') {
            const std::u16string_view rest = text.substr(2);
            if (const auto box = checkbox(rest)) {
                return {{Kind::Task{box->done}}, EditorLines::trimmed(rest.substr(box->length))};
            }
            return {{Plain::bullet}, rest};
        }
    }
    if (const auto marker = orderedMarker(text)) {
        return {{Kind::Ordered{marker->number}}, text.substr(std::min(marker->length + 1, text.size()))};
    }
    if (text.front() != u'>') return {{Plain::paragraph}, text};

    std::u16string_view rest = text.substr(1);
    rest.remove_prefix(std::min(rest.find_first_not_of(u' '), rest.size()));
    if (rest.starts_with(u"[!")) {
        if (const std::size_t close = rest.find(u']'); close != rest.npos) {
            return {{Kind::Callout{std::u16string(rest.substr(2, close - 2))}},
                    EditorLines::trimmed(rest.substr(close + 1))};
        }
    }
    return {{Plain::quote}, rest};
}

bool isParagraph(std::u16string_view line) {
    return classify(line).kind == Kind{Plain::paragraph};
}

std::vector<MarkdownBlock> blocks(std::u16string_view text) {
    const std::vector<SplitLine> lines = splitAtLineFeeds(text);
    const std::map<std::size_t, std::size_t> tables = tableLines(text, lines);
    std::vector<MarkdownBlock> result;
    for (std::size_t at = 0; at < lines.size();) {
        const std::u16string_view line = lines[at].content;
        MarkdownBlock block;
        block.indent = indentLevel(line);
        std::size_t end = at + 1;
        if (!fenceSigns(lines[at]).empty()) {
            const std::u16string_view language =
                EditorLines::trimmed(EditorLines::trimmedBlanks(line).substr(3));
            Kind::Code code;
            if (!language.empty()) code.language = std::u16string(language);
            block.kind = {code};
            end = fenceEnd(lines, at);
            const bool closed = end - at > 1 && fenceSigns(lines[end - 1]) == fenceSigns(lines[at]);
            const std::size_t contentEnd = closed ? end - 1 : end;
            for (std::size_t i = at + 1; i < contentEnd; ++i) {
                block.content += lines[i].content;
                if (i + 1 < contentEnd) block.content += lines[i].end;
            }
        } else if (const auto table = tables.find(at); table != tables.end()) {
            block.kind = {Plain::table};
            block.content = EditorLines::trimmedBlanks(line);
            end = table->second + 1;
        } else {
            const Classified classified = classify(line);
            block.kind = classified.kind;
            block.content = classified.content;
        }
        block.lineRange = {at, end - at};
        result.push_back(std::move(block));
        at = end;
    }
    return result;
}

int indentLevel(std::u16string_view line) {
    std::size_t width = 0;
    for (const char16_t c : line) {
        if (!isBlankUnit(c)) break;
        width += c == u'\t' ? 2 : 1;
    }
    return static_cast<int>(width / 2);
}

std::u16string indentString(int level) {
    return std::u16string(static_cast<std::size_t>(std::max(level, 0)) * 2, u' ');
}

std::u16string turnInto(std::u16string_view line, const Kind& kind, std::int64_t number) {
    const std::u16string content(classify(line).content);
    if (std::holds_alternative<Kind::Code>(kind.value)) return u"```\n" + content + u"\n```";
    if (kind == Kind{Plain::blank}) return {};
    if (kind == Kind{Plain::divider}) return u"---";
    return indentString(indentLevel(line)) + kind.marker(number) + content;
}

std::optional<std::u16string> continuation(std::u16string_view line) {
    const Classified classified = classify(line);
    if (classified.content.empty()) return std::nullopt;
    const auto marker = match(
        classified.kind, [](const Kind::Heading&) { return std::u16string(); },
        [](const Kind::Ordered& ordered) {
            const bool last = ordered.number == std::numeric_limits<std::int64_t>::max();
            return decimal(last ? ordered.number : ordered.number + 1) + u". ";
        },
        [](const Kind::Task&) { return std::u16string(u"- [ ] "); },
        [](const Kind::Callout&) { return std::u16string(u"> "); },
        [](const Kind::Code&) { return std::u16string(); },
        [](const Plain& plain) { return Kind{plain}.marker(1); });
    if (marker.empty()) return std::nullopt;
    return indentString(indentLevel(line)) + marker;
}

bool shouldExitList(std::u16string_view line) {
    const Classified classified = classify(line);
    return classified.content.empty() && (std::holds_alternative<Kind::Ordered>(classified.kind.value) ||
                                          std::holds_alternative<Kind::Task>(classified.kind.value) ||
                                          classified.kind == Kind{Plain::bullet});
}

std::u16string indent(std::u16string_view line) {
    return indentString(indentLevel(line) + 1).append(withoutIndent(line));
}

std::u16string outdent(std::u16string_view line) {
    return indentString(indentLevel(line) - 1).append(withoutIndent(line));
}

std::u16string renumberOrderedLists(std::u16string_view text) {
    const auto frontmatter = MarkdownSpans::frontmatterRange(text);
    const std::size_t bodyStart = frontmatter ? frontmatter->end() : 0;
    std::u16string result(text.substr(0, bodyStart));
    result.reserve(text.size() + text.size() / 8);
    const std::vector<SplitLine> lines = splitAtLineFeeds(text.substr(bodyStart));
    std::map<int, std::int64_t> counters;
    for (std::size_t at = 0; at < lines.size(); ++at) {
        const SplitLine& line = lines[at];
        if (!fenceSigns(line).empty()) {
            counters.clear();
            const std::size_t end = fenceEnd(lines, at);
            for (; at < end; ++at) (result += lines[at].content) += lines[at].end;
            --at;
            continue;
        }
        const Kind kind = classify(line.content).kind;
        if (std::holds_alternative<Kind::Ordered>(kind.value)) {
            const int level = indentLevel(line.content);
            counters.erase(counters.upper_bound(level), counters.end());
            const std::u16string_view item = withoutIndent(line.content);
            const std::size_t digits = std::min(item.find_first_of(u"0123456789"), item.size());
            const std::size_t sign = item.find_first_of(u".)", digits);
            std::u16string_view rest = item.substr(sign + 1);
            if (rest.starts_with(u' ')) rest.remove_prefix(1);
            result.append(indentString(level)).append(item.substr(0, digits));
            result.append(decimal(++counters[level])).append(u". ").append(rest);
        } else {
            if (kind != Kind{Plain::bullet} && !std::holds_alternative<Kind::Task>(kind.value))
                counters.clear();
            result += line.content;
        }
        result += line.end;
    }
    return result;
}

std::optional<Edit> moveBlock(std::u16string_view text, std::size_t containingLine, bool up) {
    const std::vector<MarkdownBlock> all = blocks(text);
    const MarkdownBlock* moved = blockHolding(all, containingLine);
    if (!moved || moved == (up ? &all.front() : &all.back())) return std::nullopt;
    const TextRange first = up ? (moved - 1)->lineRange : moved->lineRange;
    const TextRange second = up ? moved->lineRange : (moved + 1)->lineRange;

    std::vector<SplitLine> lines = splitAtLineFeeds(text);
    std::vector<std::u16string_view> ends;
    for (const SplitLine& line : lines) ends.push_back(line.end);
    const auto at = [&](std::size_t line) { return lines.begin() + static_cast<std::ptrdiff_t>(line); };
    std::rotate(at(first.location), at(second.location), at(second.end()));
    for (std::size_t i = 0; i < lines.size(); ++i) lines[i].end = ends[i];
    const std::size_t now = up ? first.location : first.location + second.length;
    return Edit{joined(lines), {now, moved->lineRange.length}};
}

std::optional<Edit> duplicateBlock(std::u16string_view text, std::size_t containingLine) {
    const std::vector<MarkdownBlock> all = blocks(text);
    const MarkdownBlock* block = blockHolding(all, containingLine);
    if (!block) return std::nullopt;
    std::vector<SplitLine> lines = splitAtLineFeeds(text);
    const auto at = [&](std::size_t line) { return lines.begin() + static_cast<std::ptrdiff_t>(line); };
    const std::vector<SplitLine> copy(at(block->lineRange.location), at(block->lineRange.end()));
    lines.insert(at(block->lineRange.end()), copy.begin(), copy.end());
    // The text's last line has no end; in the middle it takes the one that the text uses.
    SplitLine& joint = lines[block->lineRange.end() - 1];
    if (joint.end.empty()) joint.end = lines.front().end.empty() ? u"\n" : lines.front().end;
    return Edit{joined(lines), {block->lineRange.end(), block->lineRange.length}};
}

}  // namespace BlockModel
}  // namespace vesk
