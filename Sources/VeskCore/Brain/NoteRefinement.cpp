#include "VeskCore/Brain/NoteRefinement.h"

#include <algorithm>
#include <array>

#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

std::string_view rawValue(NoteRefinementKind kind) {
    switch (kind) {
        case NoteRefinementKind::clarify:
            return "clarify";
        case NoteRefinementKind::deepen:
            return "deepen";
    }
    return {};
}

namespace NoteRefinement {

namespace {

constexpr std::string_view fence = "```";
constexpr std::size_t mostChatterLines = 2;
constexpr std::size_t mostChatterCharacters = 160;

/// "1. " or "2) ".
bool beginsNumbered(std::string_view line) {
    std::size_t at = 0;
    for (std::size_t next = 0; next < line.size() && isNumber(nextCodePoint(line, next)); at = next) {
    }
    if (at == 0 || at == line.size() || (line[at] != '.' && line[at] != ')')) return false;
    const auto next = firstCodePoint(line.substr(at + 1));
    return next && isSpaceOrNewline(*next);
}

/// Prose about the answer, not a part of the note.
bool isChatter(const std::vector<std::string_view>& lines, std::size_t from) {
    std::size_t count = 0;
    for (std::size_t i = from; i < lines.size(); ++i) {
        const auto line = trimHorizontal(lines[i]);
        if (line.empty()) continue;
        if (++count > mostChatterLines || characterCount(line) > mostChatterCharacters) return false;
        if (line.find("](") != line.npos || line.find('`') != line.npos) return false;
        if (std::string_view("#-*+>|").find(line.front()) != std::string_view::npos) return false;
        if (line.starts_with("![") || beginsNumbered(line)) return false;
    }
    return true;
}

/// The line that closes a fence around the whole answer, behind which there is only chatter.
std::optional<std::size_t> enclosingClose(const std::vector<std::string_view>& lines) {
    for (std::size_t i = lines.size(); i-- > 1;) {
        if (trimHorizontal(lines[i]) != fence) continue;
        return isChatter(lines, i + 1) ? std::optional(i) : std::nullopt;
    }
    return std::nullopt;
}

bool isLineBreakAt(std::string_view text, std::size_t offset, std::size_t& end) {
    end = offset;
    return isNewline(nextCodePoint(text, end));
}

std::string_view leadingBreaks(std::string_view text) {
    std::size_t at = 0;
    for (std::size_t end = 0; at < text.size() && isLineBreakAt(text, at, end);) at = end;
    return text.substr(0, at);
}

}  // namespace

std::string_view title(NoteRefinementKind kind) {
    switch (kind) {
        case NoteRefinementKind::clarify:
            return marked("Rewrite Clearly");
        case NoteRefinementKind::deepen:
            return marked("Add Depth");
    }
    return {};
}

std::string_view symbol(NoteRefinementKind kind) {
    switch (kind) {
        case NoteRefinementKind::clarify:
            return "text.badge.checkmark";
        case NoteRefinementKind::deepen:
            return "text.badge.plus";
    }
    return {};
}

std::string_view summary(NoteRefinementKind kind) {
    switch (kind) {
        case NoteRefinementKind::clarify:
            return "Same meaning, clearer words. You approve the result before it is saved.";
        case NoteRefinementKind::deepen:
            return "Context, detail and examples added around what you wrote. You approve first.";
    }
    return {};
}

std::string_view instruction(NoteRefinementKind kind) {
    switch (kind) {
        case NoteRefinementKind::clarify:
            return "Rewrite the Markdown the user gives you so it reads clearly: shorter sentences, plain "
                   "words, "
                   "fixed grammar and punctuation. Keep every fact, every heading and its heading level, "
                   "every "
                   "link, list item, task checkbox state, image embed (`![](…)` lines), tag, table and code "
                   "block "
                   "exactly as they are. Keep the author's voice and the note's language. Never add "
                   "information "
                   "and never drop any. Reply with the rewritten Markdown only — no preamble, no "
                   "explanation, no "
                   "code fence.";
        case NoteRefinementKind::deepen:
            return "Expand the Markdown the user gives you with depth: context, explanations, concrete "
                   "examples, "
                   "definitions, open questions and next steps, wherever they genuinely help a reader. Keep "
                   "every "
                   "word, heading, link, list item, image embed and code block the user wrote — you may add, "
                   "never"
                   " remove or reorder. Put new material under the existing headings, or under new \"##\" "
                   "headings. Do NOT invent facts about the user's own life, numbers, dates, names, prices "
                   "or "
                   "identifiers — add general knowledge only, and append \"(check)\" after any claim you are "
                   "not "
                   "sure of. Keep the note's language and the author's voice. Reply with the complete "
                   "expanded "
                   "Markdown only — no preamble, no code fence.";
    }
    return {};
}

std::pair<std::string_view, std::string_view> split(std::string_view text) {
    const FrontmatterDoc doc(text);
    const std::string_view body = doc.body();
    if (!text.ends_with(body)) return {text.substr(0, 0), text};
    const auto prefix = text.size() - body.size();
    return {text.substr(0, prefix), text.substr(prefix)};
}

std::string userMessage(std::string_view text) {
    return "Apply that to this note:\n\n" + std::string(text);
}

std::optional<std::string> proposal(std::string_view reply, std::string_view original) {
    const auto restored = restoringFiles(clean(reply), original);
    if (restored.empty() || restored == trim(original)) return std::nullopt;
    return rewrap(restored, original);
}

std::string clean(std::string_view reply) {
    const auto text = trim(reply);
    auto lines = splitLines(text);
    if (lines.size() < 2 || !lines.front().starts_with(fence)) return std::string(text);
    static constexpr std::array<std::string_view, 5> plain{"", "markdown", "md", "text", "txt"};
    const auto information = asciiLowercased(trim(lines.front().substr(fence.size())));
    if (std::find(plain.begin(), plain.end(), information) == plain.end()) return std::string(text);
    const auto close =
        trimHorizontal(lines.back()) == fence ? std::optional(lines.size() - 1) : enclosingClose(lines);
    if (!close) return std::string(text);
    lines.resize(*close);
    lines.erase(lines.begin());
    return std::string(trim(join(lines, "\n")));
}

std::string rewrap(std::string_view text, std::string_view original) {
    const auto leading = leadingBreaks(original);
    const auto rest = original.substr(leading.size());
    const auto trailing = rest.substr(trimTrailingNewlines(rest).size());
    return std::string(leading) + std::string(text) + std::string(trailing);
}

}  // namespace NoteRefinement
}  // namespace vesk
