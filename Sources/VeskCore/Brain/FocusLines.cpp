#include "VeskCore/Brain/FocusLines.h"

#include <algorithm>
#include <array>
#include <set>
#include <unordered_set>

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::FocusLines {

namespace {

constexpr std::size_t mostKeywordsOfLookup = 4;
constexpr std::size_t mostLines = 10, tooManyLines = 9;
constexpr std::size_t mostLineCharacters = 200;

// Words that most questions share.
constexpr std::array<std::string_view, 99> stopWords{
    "a",      "an",     "the",   "my",    "me",    "i",      "you",   "your",  "our",   "we",    "it",
    "its",    "is",     "are",   "was",   "were",  "be",     "been",  "do",    "does",  "did",   "have",
    "has",    "had",    "of",    "for",   "in",    "on",     "to",    "at",    "by",    "and",   "or",
    "with",   "about",  "from",  "as",    "this",  "that",   "these", "those", "there", "here",  "what",
    "whats",  "which",  "who",   "whom",  "how",   "when",   "where", "why",   "can",   "could", "would",
    "should", "will",   "shall", "may",   "might", "please", "tell",  "give",  "show",  "find",  "get",
    "got",    "need",   "want",  "know",  "look",  "up",     "again", "now",   "any",   "some",  "all",
    "one",    "number", "note",  "notes", "vault", "mine",   "s",     "t",     "re",    "m",     "ll",
    "ve",     "d",      "just",  "also",  "so",    "if",     "then",  "than",  "not",   "no",    "yes"};

// Questions that want more than one fact.
constexpr std::array<std::string_view, 12> broad{
    "summar",           "explain",    "describe",    "overview", "everything", "tell me about",
    "what do my notes", "what did i", "what have i", "list ",    "how do i",   "why "};

bool isWordPart(char32_t codePoint) {
    return isLetter(codePoint) || isNumber(codePoint);
}

/// The last code point before a place.
char32_t codePointBefore(std::string_view text, std::size_t offset) {
    std::size_t start = offset - 1;
    while (start > 0 && (static_cast<unsigned char>(text[start]) & 0xC0U) == 0x80U) --start;
    return nextCodePoint(text, start);
}

/// Whether a word stands in the text with neither letter nor digit at its edges; both case folded.
bool holdsWord(std::string_view folded, std::string_view word) {
    for (auto at = folded.find(word); at != folded.npos; at = folded.find(word, at + 1)) {
        auto end = at + word.size();
        const bool startsWord = at == 0 || !isWordPart(codePointBefore(folded, at));
        if (startsWord && (end == folded.size() || !isWordPart(nextCodePoint(folded, end)))) return true;
    }
    return false;
}

bool holdsAny(std::string_view folded, const std::vector<std::string>& words) {
    return std::any_of(words.begin(), words.end(),
                       [&](const std::string& word) { return holdsWord(folded, word); });
}

/// The keywords that the fewest passages hold, case folded.
std::vector<std::string> rarestOf(const std::vector<std::string>& words,
                                  const std::vector<RetrievedChunk>& chunks) {
    std::vector<std::string> folded;
    for (const auto& word : words) folded.push_back(caseFolded(word));
    std::vector<std::size_t> counts(words.size());
    for (const auto& chunk : chunks) {
        const auto text = caseFolded(chunk.text), title = caseFolded(chunk.noteTitle);
        for (std::size_t i = 0; i < folded.size(); ++i) {
            if (holdsWord(text, folded[i]) || holdsWord(title, folded[i])) ++counts[i];
        }
    }
    const auto fewest = *std::min_element(counts.begin(), counts.end());
    std::vector<std::string> rarest;
    for (std::size_t i = 0; i < folded.size(); ++i) {
        if (counts[i] == fewest) rarest.push_back(folded[i]);
    }
    return rarest;
}

bool isPictureOrRule(std::string_view line) {
    return line.starts_with("![") || line.starts_with("|--") || line.starts_with("| ---");
}

/// Whether a note that was found by its title may lend this line.
bool isLendable(std::string_view line, std::string_view title) {
    if (!containsLetterOrNumber(line) || equalsIgnoringCase(line, title)) return false;
    const auto lowered = lowercased(line);
    if (lowered.starts_with(lowercased(title) + " > ")) return false;
    const auto last = lowered.rfind(" > ");
    const auto component =
        last == std::string::npos ? std::string_view(lowered) : std::string_view(lowered).substr(last + 3);
    return trimCharacters(component, "#-*_ ") != "attachments";
}

}  // namespace

std::vector<std::string> keywords(std::string_view question) {
    const auto text = replaceAll(replaceAll(lowercased(question), "’", "'"), "'", " ");
    std::vector<std::string> found;
    std::unordered_set<std::string> seen;
    std::string word;
    const auto finish = [&] {
        const bool isStopWord = std::find(stopWords.begin(), stopWords.end(), word) != stopWords.end();
        if (characterCount(word) > 1 && !isStopWord && seen.insert(word).second) found.push_back(word);
        word.clear();
    };
    for (std::size_t offset = 0; offset < text.size();) {
        const auto start = offset;
        const char32_t codePoint = nextCodePoint(text, offset);
        const bool belongs = isWordPart(codePoint) || (!word.empty() && joinsCharacterBefore(codePoint));
        belongs ? void(word.append(text, start, offset - start)) : finish();
    }
    finish();
    return found;
}

bool isLookup(std::string_view question) {
    const auto text = lowercased(question);
    const bool isBroad = std::any_of(broad.begin(), broad.end(), [&](std::string_view part) {
        return text.find(part) != std::string::npos;
    });
    const auto count = keywords(question).size();
    return !isBroad && count >= 1 && count <= mostKeywordsOfLookup;
}

std::vector<Line> extract(std::string_view question, const std::vector<RetrievedChunk>& chunks,
                          std::size_t maxLines, std::size_t maxLineLength) {
    std::vector<Line> found;
    const auto words = keywords(question);
    if (words.empty() || maxLines == 0) return found;
    const auto rarest = rarestOf(words, chunks);
    std::set<std::string_view> lent;
    std::set<std::string> taken;
    for (const auto& chunk : chunks) {
        bool mayLend = !lent.contains(chunk.notePath) && holdsAny(caseFolded(chunk.noteTitle), rarest);
        for (const auto whole : split(chunk.text, '\n')) {
            const auto line = trimHorizontal(whole);
            if (line.empty() || isPictureOrRule(line)) continue;
            if (mayLend && isLendable(line, chunk.noteTitle)) {
                lent.insert(chunk.notePath);
                mayLend = false;
            } else if (!holdsAny(caseFolded(line), rarest)) {
                continue;
            }
            const auto prefix = characterPrefix(line, maxLineLength);
            const auto shown = std::string(prefix) + (prefix.size() < line.size() ? "…" : "");
            if (!taken.insert(lowercased(shown)).second) continue;
            found.push_back({.title = chunk.noteTitle, .text = shown});
            if (found.size() == maxLines) return found;
        }
    }
    return found;
}

std::optional<std::string> block(std::string_view question, const std::vector<RetrievedChunk>& chunks) {
    if (!isLookup(question)) return std::nullopt;
    const auto lines = extract(question, chunks, mostLines, mostLineCharacters);
    if (lines.empty() || lines.size() >= tooManyLines) return std::nullopt;
    std::string text = "Lines in the excerpts above that mention the question's key words (" +
                       join(keywords(question), ", ") + "):\n";
    for (const auto& line : lines) text += "- " + line.title + ": " + line.text + "\n";
    return text +
           "If the answer is in these lines, read it out from them, with the note's title. When the question "
           "asks for the user's own (\"my\"), a line labelled with a company, fund or other organisation's "
           "name is that organisation's value, not the user's — prefer the line without such a label.";
}

}  // namespace vesk::FocusLines
