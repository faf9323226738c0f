#include "Vesk/AI/Citations.h"

#include <algorithm>
#include <map>

#include "Vesk/AI/AnswerText.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk::Citations {

namespace {

constexpr std::size_t longestExcerpt = 160;  // characters
constexpr std::size_t longestTrail = 120;    // bytes
constexpr std::size_t mostRead = 2000;       // bytes
constexpr std::size_t leastTelling = 12;     // bytes of a line that stands for its passage

/// What a passage says, in one line without Markdown's signs: its first words that are no heading. It may
/// begin with the trail of its headings, a short line by itself.
std::string excerptOf(std::string_view passage) {
    const auto trailEnd = passage.find("\n\n");
    if (trailEnd != passage.npos && trailEnd > 0 && trailEnd <= longestTrail &&
        std::string_view(".!?:;").find(passage[trailEnd - 1]) == std::string_view::npos)
        if (const auto rest = trim(passage.substr(trailEnd)); !rest.empty()) passage = rest;
    AnswerText text;
    text.update(characterPrefixFitting(passage, mostRead));
    std::string heading;
    for (const auto& block : text.blocks()) {
        const auto line = block.line.text.substr(0, block.line.text.find('\n'));
        if (!containsLetterOrNumber(line)) continue;
        if (block.kind != AnswerBlock::Kind::heading)
            return std::string(characterPrefix(line, longestExcerpt));
        if (heading.empty()) heading = line;
    }
    return heading;
}

std::optional<TextRange> standing(std::string_view text, std::string_view piece) {
    if (piece.empty()) return std::nullopt;
    const auto at = text.find(piece);
    if (at == text.npos) return std::nullopt;
    return TextRange{utf16Length(text.substr(0, at)), utf16Length(piece)};
}

}  // namespace

std::vector<CitedNote> notes(const std::vector<RetrievedChunk>& chunks) {
    std::vector<CitedNote> found;
    std::map<std::string_view, std::size_t> places;
    for (const auto& chunk : chunks) {
        if (!Vault::indexedKind(chunk.notePath)) continue;
        const auto [place, isNew] = places.try_emplace(chunk.notePath, found.size());
        if (isNew)
            found.push_back({.path = chunk.notePath,
                             .title = chunk.noteTitle,
                             .excerpt = excerptOf(chunk.text),
                             .passage = chunk.text,
                             .documentLabel = chunk.documentLabel()});
        ++found[place->second].passages;
    }
    return found;
}

std::optional<TextRange> passage(std::string_view noteText, std::string_view passage) {
    passage = trim(passage);
    if (const auto all = standing(noteText, passage)) return all;
    // Without the headings that lead to it.
    const auto afterTrail = passage.find('\n');
    if (afterTrail != passage.npos)
        if (const auto rest = standing(noteText, trim(passage.substr(afterTrail)))) return rest;
    // The note has changed since, or the passage was cut: its first line that still stands there.
    for (std::size_t at = 0; at < passage.size();) {
        const auto end = std::min(passage.find('\n', at), passage.size());
        const auto line = trim(passage.substr(at, end - at));
        at = end + 1;
        if (line.size() < leastTelling) continue;
        if (const auto place = standing(noteText, line)) return place;
    }
    return std::nullopt;
}

}  // namespace vesk::Citations
