#include "VeskLinux/SentenceModel/Tokeniser.h"

#include <algorithm>
#include <string>

#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::sentencemodel {

namespace {

constexpr char32_t wordStart = U'\u2581';  // stands before every word, in the place of the space
constexpr std::uint16_t unknown = 0;

const TrieNode* child(std::span<const TrieNode> trie, const TrieNode& node, char32_t codePoint) {
    const auto children = trie.subspan(node.firstChild, node.childCount);
    const auto found = std::lower_bound(
        children.begin(), children.end(), codePoint,
        [](const TrieNode& candidate, char32_t wanted) { return candidate.codePoint < wanted; });
    return found != children.end() && found->codePoint == codePoint ? &*found : nullptr;
}

}  // namespace

std::string prepared(std::string_view given) {
    const std::string repaired = isValidUtf8(given) ? std::string() : repairedUtf8(given);
    const std::string_view text = repaired.empty() ? given : std::string_view(repaired);
    std::string spaced;
    spaced.reserve(text.size());
    for (std::size_t offset = 0; offset < text.size();) {
        const std::size_t start = offset;
        if (!isSpaceOrNewline(nextCodePoint(text, offset))) {
            spaced.append(text, start, offset - start);
        } else if (!spaced.empty() && spaced.back() != ' ') {
            spaced += ' ';
        }
    }
    if (spaced.ends_with(' ')) spaced.pop_back();
    return lowercased(spaced);
}

std::vector<std::uint16_t> pieceIds(std::string_view prepared, const ModelFile& model) {
    if (prepared.empty()) return {};
    const std::string normal = normalisedNfkc(prepared);
    std::u32string symbols{wordStart};
    for (std::size_t offset = 0; offset < normal.size();) {
        const char32_t symbol = nextCodePoint(normal, offset);
        symbols += symbol == U' ' ? wordStart : symbol;
    }

    // The best way to each place between symbols: its score, and the length and id of its last piece. Like
    // the programs the model was trained with, a score of exactly 0 counts as none.
    struct Way {
        float score = 0;
        std::uint16_t length = 1, piece = unknown;
    };
    std::vector<Way> ways(symbols.size() + 1);
    const auto offer = [&](std::size_t start, std::size_t length, std::uint16_t piece, float pieceScore) {
        Way& way = ways[start + length];
        const float score = ways[start].score + pieceScore;
        if (way.score == 0 || score >= way.score) way = {score, static_cast<std::uint16_t>(length), piece};
    };
    const auto trie = model.trie();
    for (std::size_t start = 0; start < symbols.size(); ++start) {
        bool found = false;
        const TrieNode* node = &trie[0];
        for (std::size_t end = start; end < symbols.size(); ++end) {
            node = child(trie, *node, symbols[end]);
            if (node == nullptr) break;
            if (node->piece == noPiece) continue;
            offer(start, end + 1 - start, node->piece, model.scores()[node->piece]);
            found = true;
        }
        if (!found) offer(start, 1, unknown, 0);
    }

    std::vector<std::uint16_t> ids;
    for (std::size_t place = symbols.size(); place > 0; place -= ways[place].length) {
        const std::uint16_t piece = ways[place].piece;
        if (piece != unknown || ids.empty() || ids.back() != unknown) ids.push_back(piece);
    }
    std::reverse(ids.begin(), ids.end());
    return ids;
}

}  // namespace vesk::sentencemodel
