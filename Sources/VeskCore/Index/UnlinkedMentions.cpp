// Plain mentions of a note's names in other notes, and what a link in the place of one would read.
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>

#include "VeskCore/Index/LinkQueries.h"
#include "VeskCore/Index/QueryText.h"
#include "VeskCore/Markdown/MarkdownScanner.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Pattern.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

using Units = std::u16string_view;
constexpr auto none = Units::npos;
/// Of a line longer than this only the part around the mention is kept: many may stand in one long line.
constexpr std::size_t longestContext = 2000, contextBefore = 400;  // UTF-16 units

void blank(std::u16string& text, std::size_t from, std::size_t to) {
    std::fill(text.begin() + static_cast<std::ptrdiff_t>(from),
              text.begin() + static_cast<std::ptrdiff_t>(to), u' ');
}

/// One line of the text that is being masked.
class MaskedLine {
public:
    MaskedLine(std::u16string& text, std::size_t start, std::size_t end)
        : text_(text), start_(start), end_(end) {}

    bool isFence() const {
        const auto line = view();
        const auto first = line.find_first_not_of(u" \t");
        return first != none &&
               (line.substr(first).starts_with(u"```") || line.substr(first).starts_with(u"~~~"));
    }
    void blankAll() { blank(text_, start_, end_); }

    /// A run of backticks is closed by the next one of its length.
    void blankCode() {
        if (view().find(u'`') == none) return;
        struct Run {
            std::size_t start, length, partner;
        };
        std::vector<Run> runs;
        for (auto at = start_; at < end_;) {
            if (text_[at] != u'`') {
                ++at;
                continue;
            }
            const auto start = at;
            while (at < end_ && text_[at] == u'`') ++at;
            runs.push_back({start, at - start, none});
        }
        std::unordered_map<std::size_t, std::size_t> nextOfLength;
        for (auto i = runs.size(); i-- > 0;) {
            if (const auto next = nextOfLength.find(runs[i].length); next != nextOfLength.end())
                runs[i].partner = next->second;
            nextOfLength[runs[i].length] = i;
        }
        for (std::size_t i = 0; i < runs.size(); ++i) {
            if (runs[i].partner == none) continue;
            const auto& close = runs[runs[i].partner];
            const auto next = runs[i].partner;
            blank(text_, runs[i].start, close.start + close.length);
            i = next;
        }
    }

    void blankWikilinks() {
        for (auto at = find(u"[[", start_); at != none;) {
            const auto close = find(u"]]", at + 2);
            if (close == none) return;
            blankLink(at, close + 2);
            at = find(u"[[", close + 2);
        }
    }

    void blankMarkdownLinks() {
        if (view().find(u"](") == none) return;
        // Where each parenthesis closes, by pairs, so that many open ones are walked once.
        std::unordered_map<std::size_t, std::size_t> closing;
        std::vector<std::size_t> open;
        for (auto at = start_; at < end_; ++at) {
            if (text_[at] == u'(') {
                open.push_back(at);
            } else if (text_[at] == u')' && !open.empty()) {
                closing[open.back()] = at;
                open.pop_back();
            }
        }
        std::vector<std::size_t> brackets;
        std::vector<TextRange> links;
        for (auto at = start_; at < end_; ++at) {
            if (text_[at] == u'[') {
                brackets.push_back(at);
            } else if (text_[at] == u']' && !brackets.empty()) {
                const auto start = brackets.back();
                brackets.pop_back();
                if (at + 1 >= end_ || text_[at + 1] != u'(') continue;
                const auto close = closing.find(at + 1);
                if (close == closing.end()) continue;
                // What stands in a link goes with it.
                while (!links.empty() && links.back().location > start) links.pop_back();
                links.push_back({start, close->second + 1 - start});
                at = close->second;
            }
        }
        for (const auto& link : links) blankLink(link.location, link.end());
    }

private:
    Units view() const { return Units(text_).substr(start_, end_ - start_); }
    std::size_t find(Units wanted, std::size_t from) const {
        const auto at = Units(text_).substr(0, end_).find(wanted, from);
        return at;
    }
    void blankLink(std::size_t from, std::size_t to) {
        if (from > start_ && text_[from - 1] == u'!') --from;
        blank(text_, from, to);
    }

    std::u16string& text_;
    std::size_t start_, end_;
};

std::vector<std::size_t> lineStartOffsets(Units text) {
    std::vector<std::size_t> starts{0};
    for (auto at = text.find(u'\n'); at != none; at = text.find(u'\n', at + 1)) starts.push_back(at + 1);
    return starts;
}

std::size_t lineIndex(std::size_t offset, const std::vector<std::size_t>& starts) {
    return static_cast<std::size_t>(std::upper_bound(starts.begin(), starts.end(), offset) - starts.begin()) -
           1;
}

/// Whether a character begins at the offset as far as the unit before and at it tell.
bool splitsPair(Units text, std::size_t offset) {
    return offset > 0 && offset < text.size() && text[offset] >= 0xDC00 && text[offset] <= 0xDFFF;
}

/// The part of a line that is shown around a mention.
TextRange contextAround(Units text, TextRange line, TextRange mention) {
    if (line.length <= longestContext) return line;
    auto start = mention.location - std::min(mention.location - line.location, contextBefore);
    if (splitsPair(text, start)) ++start;
    auto end = std::min(line.end(), std::max(start + longestContext, mention.end()));
    if (splitsPair(text, end)) ++end;
    return {start, end - start};
}

/// The text with `with` in place of `old`, which must stand at a place of the body.
std::optional<std::string> replacedInBody(std::string_view text, std::size_t unit, std::string_view old,
                                          std::string_view with, bool mustBeUnlinked) {
    const FrontmatterDoc doc(text);
    const auto& body = doc.body();
    const auto units = utf16(body);
    const auto wanted = utf16(old);
    if (unit > units.size() || Units(units).substr(unit, wanted.size()) != wanted) return {};
    if (splitsPair(units, unit)) return {};
    if (mustBeUnlinked && Units(LinkQueries::maskedForMentions(units)).substr(unit, wanted.size()) != wanted)
        return {};
    const auto at = utf8(Units(units).substr(0, unit)).size();
    // What stands before the body is kept as it is, also where it would be written otherwise.
    if (text.ends_with(body))
        return std::string(text).replace(text.size() - body.size() + at, old.size(), with);
    auto changed = doc;
    changed.setBody(std::string(body).replace(at, old.size(), with));
    return changed.serialized();
}

using Patterns = std::vector<const Pattern*>;

std::vector<TextRange> matchesOf(const Patterns& patterns, Units masked) {
    std::vector<TextRange> found;
    for (const auto* pattern : patterns)
        for (const auto& match : pattern->matches(masked)) found.push_back(match.range());
    std::sort(found.begin(), found.end(), [](const TextRange& one, const TextRange& other) {
        return one.location != other.location ? one.location < other.location : one.length > other.length;
    });
    std::size_t end = 0;
    std::erase_if(found, [&](const TextRange& range) {
        if (range.empty() || range.location < end) return true;
        end = range.end();
        return false;
    });
    return found;
}

}  // namespace

LinkQueries::Terms LinkQueries::mentionTerms(std::string_view path) const {
    std::vector<std::string> candidates;
    if (auto title = index_.title(path)) candidates.push_back(std::move(*title));
    candidates.push_back(decodedText(std::string(stem(path))));
    index_.query(
        "SELECT value_text FROM properties\n"
        "WHERE note_path = ? AND key IN ('alias', 'aliases') AND value_text IS NOT NULL",
        {SQLValue::text(path)}, [&](const Row& row) { candidates.push_back(row.text(0)); });
    Terms result;
    std::set<std::string> known;
    for (const auto& candidate : candidates) {
        const auto term = trim(candidate);
        if (term.empty() || !known.insert(normalisedNfc(lowercased(term))).second) continue;
        if (characterCount(term) < shortestTerm) {
            result.skipped.emplace_back(term);
        } else if (result.terms.size() < mostTerms) {
            result.terms.emplace_back(term);
        }
    }
    return result;
}

UnlinkedMentionScan LinkQueries::unlinkedMentions(std::string_view path, const std::stop_token& stop) const {
    UnlinkedMentionScan scan;
    try {
        auto [terms, skipped] = mentionTerms(path);
        scan.terms = std::move(terms);
        scan.skipped = std::move(skipped);
        std::vector<Pattern> patterns;
        for (const auto& term : scan.terms) {
            auto pattern =
                Pattern::compile("(?<![\\p{L}\\p{N}_])" + Pattern::escaped(term) + "(?![\\p{L}\\p{N}_])",
                                 Pattern::Case::insensitive);
            if (!pattern) {
                scan.failure = localised("Vesk couldn't build a search for this note's name.");
                return scan;
            }
            patterns.push_back(std::move(*pattern));
        }
        std::map<std::string, Patterns> candidates;
        for (std::size_t i = 0; i < patterns.size() && !stop.stop_requested(); ++i) {
            index_.query(
                "SELECT note_path FROM note_text\n"
                "WHERE note_path <> ? AND body LIKE ? ESCAPE '\\' AND " +
                    Vault::sqlIsNote("note_path"),
                {SQLValue::text(path), SQLValue::text("%" + likeEscaped(scan.terms[i]) + "%")},
                [&](const Row& row) { candidates[row.text(0)].push_back(&patterns[i]); });
        }
        scan.candidateNotes = static_cast<int>(candidates.size());
        for (const auto& [source, wanted] : candidates) {
            if (stop.stop_requested()) return scan;
            const auto body = index_.body(source);
            if (!body) continue;
            ++scan.searchedNotes;
            const auto text = utf16(*body);
            const auto found = matchesOf(wanted, maskedForMentions(text));
            if (found.empty()) continue;
            const auto title = index_.title(source).value_or(std::string(stem(source)));
            const auto starts = lineStartOffsets(text);
            for (const auto& range : found) {
                if (scan.mentions.size() == mostMentions) {
                    scan.truncated = true;
                    return scan;
                }
                const auto number = lineIndex(range.location, starts);
                auto lineEnd = number + 1 < starts.size() ? starts[number + 1] - 1 : text.size();
                if (lineEnd > range.end() && text[lineEnd - 1] == u'\r') --lineEnd;
                // A name of several words may go over a line's end.
                lineEnd = std::max(lineEnd, range.end());
                const auto context = contextAround(text, {starts[number], lineEnd - starts[number]}, range);
                scan.mentions.push_back(
                    {.id = fmt::format("{}:{}", source, range.location),
                     .sourcePath = source,
                     .sourceTitle = title,
                     .line = static_cast<int>(number),
                     .context = utf8(Units(text).substr(context.location, context.length)),
                     .column = static_cast<int>(range.location - context.location),
                     .matchedText = utf8(Units(text).substr(range.location, range.length)),
                     .range = range});
            }
        }
    } catch (const IndexError&) {
        scan.failure = localised(
            "Vesk couldn't read its index just now, so this list is not an answer about the note. Your notes "
            "are untouched — the index is only a cache, and reopening the vault rebuilds it.");
    }
    return scan;
}

std::u16string LinkQueries::maskedForMentions(std::u16string_view body) {
    std::u16string text(body);
    bool isFenced = false;
    for (std::size_t start = 0; start < text.size();) {
        const auto end = std::min(text.find(u'\n', start), text.size());
        MaskedLine line(text, start, end);
        start = end + 1;
        const bool isFence = line.isFence();
        if (isFence || isFenced) {
            line.blankAll();
        } else {
            line.blankCode();
            line.blankWikilinks();
            line.blankMarkdownLinks();
        }
        if (isFence) isFenced = !isFenced;
    }
    return text;
}

std::optional<std::string> PendingLink::insertedInto(std::string_view text) const {
    return replacedInBody(text, mention.range.location, mention.matchedText, replacement, true);
}

std::optional<std::string> PendingLink::takenOutOf(std::string_view text) const {
    return replacedInBody(text, mention.range.location, replacement, mention.matchedText, false);
}

PendingLink PendingLink::of(const UnlinkedMention& mention, std::string_view target) {
    PendingLink pending{.id = mention.id, .mention = mention, .replacement = "[[", .after = {}};
    pending.replacement += target;
    if (mention.matchedText != target) pending.replacement.append("|").append(mention.matchedText);
    pending.replacement += "]]";

    NoteScan read;
    MarkdownScanner::extractWikilinks(pending.replacement, 0, read);
    pending.previewAvailable =
        read.wikilinks.size() == 1 && read.wikilinks.front().target == target &&
        !read.wikilinks.front().heading && !read.wikilinks.front().blockID &&
        read.wikilinks.front().range == TextRange{0, characterCount(pending.replacement)};

    const auto line = utf16(mention.context);
    const auto column = std::min(static_cast<std::size_t>(std::max(mention.column, 0)), line.size());
    const auto end = std::min(column + mention.range.length, line.size());
    pending.after = utf8(Units(line).substr(0, column)) + pending.replacement + utf8(Units(line).substr(end));
    return pending;
}

}  // namespace vesk
