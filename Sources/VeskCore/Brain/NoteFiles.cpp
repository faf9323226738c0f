// The files that a note shows, and putting back those that a rewrite lost.
#include <algorithm>
#include <array>
#include <cstdint>
#include <set>
#include <unordered_map>

#include "VeskCore/Brain/NoteRefinement.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk::NoteRefinement {

namespace {

constexpr std::size_t npos = std::string_view::npos;
constexpr std::size_t telling = 12;  // characters of a line that still tell it when more was added behind it

/// The next of some characters at or behind a place, looked for once however often it is asked while the
/// places go up.
class NextOf {
public:
    NextOf(std::string_view text, std::string_view set) : text_(text), set_(set) {}
    std::size_t operator()(std::size_t from) {
        if (from > found_ || !known_) {
            found_ = text_.find_first_of(set_, from);
            known_ = true;
        }
        return found_;
    }

private:
    std::string_view text_, set_;
    std::size_t found_ = 0;
    bool known_ = false;
};

bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::size_t skipBlanks(std::string_view line, std::size_t at) {
    while (at < line.size() && isBlank(line[at])) ++at;
    return at;
}

/// Reads what stands in one line.
class LineReader {
public:
    LineReader(std::string_view line, std::size_t number, std::vector<FileReference>& found)
        : line_(line), number_(number), found_(found) {}

    void read() {
        readLinks();
        readEmbeds();
    }

private:
    /// [label](target "title"), "!" in front for a picture.
    void readLinks() {
        NextOf closing(line_, "]"), targetEnd(line_, ") \t\v\f\r>");
        for (std::size_t open = line_.find('['); open != npos;) {
            const auto close = closing(open);
            if (close == npos) return;
            std::size_t next = close + 1;
            if (line_.substr(next).starts_with('(')) {
                auto start = skipBlanks(line_, next + 1);
                if (line_.substr(start).starts_with('<') && targetEnd(start + 1) != start + 1) ++start;
                const auto end = targetEnd(start);
                const auto after = end == npos || end == start ? npos : behindTarget(end);
                if (after != npos) {
                    addLink(line_.substr(start, end - start), open > 0 && line_[open - 1] == '!');
                    next = after;
                }
            }
            open = line_.find('[', next);
        }
    }

    /// Behind the parenthesis that ends a link; npos if something else follows the target. The answer for the
    /// last place is kept, since many unfinished links may share it.
    std::size_t behindTarget(std::size_t end) {
        if (end == askedEnd_) return answer_;
        askedEnd_ = end;
        auto at = end;
        if (line_[at] == '>') ++at;
        const auto gap = skipBlanks(line_, at);
        if (gap > at && line_.substr(gap).starts_with('"')) {
            const auto quote = line_.find('"', gap + 1);
            if (quote == npos) return answer_ = npos;
            at = skipBlanks(line_, quote + 1);
        } else {
            at = gap;
        }
        return answer_ = line_.substr(at).starts_with(')') ? at + 1 : npos;
    }

    void addLink(std::string_view target, bool isImage) {
        static constexpr std::array<std::string_view, 3> elsewhere{"http://", "https://", "mailto:"};
        const bool leaves = std::any_of(elsewhere.begin(), elsewhere.end(),
                                        [&](std::string_view scheme) { return target.starts_with(scheme); });
        if (isImage || (!leaves && Vault::isNonNoteFileTarget(target))) add(target);
    }

    /// ![[target#part|label]]
    void readEmbeds() {
        NextOf targetEnd(line_, "]|#"), closing(line_, "]");
        for (std::size_t open = line_.find("![["); open != npos;) {
            const auto start = open + 3;
            const auto end = targetEnd(start);
            const auto close = end == npos ? npos : closing(end);
            if (close == npos) return;
            std::size_t next = open + 1;
            if (end > start && line_.substr(close).starts_with("]]")) {
                add(line_.substr(start, end - start));
                next = close + 2;
            }
            open = line_.find("![[", next);
        }
    }

    void add(std::string_view target) { found_.push_back({.target = std::string(target), .line = number_}); }

    std::string_view line_;
    std::size_t number_;
    std::vector<FileReference>& found_;
    std::size_t askedEnd_ = npos, answer_ = npos;
};

/// Finds many texts in another in one pass over it (Aho and Corasick): a rewrite may have lost thousands.
class ManyTexts {
public:
    /// Returns the number to ask for.
    std::size_t add(std::string_view text) {
        std::size_t node = 0;
        for (const char c : text) {
            const auto [child, isNew] = children_.try_emplace(key(node, c), nodes_.size());
            if (isNew) nodes_.push_back({.parent = node, .byte = c});
            node = child->second;
        }
        return node;
    }

    void lookIn(std::string_view text) {
        linkFallbacks();
        std::size_t node = 0;
        for (const char c : text) {
            node = step(node, c);
            nodes_[node].seen = true;
        }
        // Where a text ends, every text that it ends with ends too.
        for (auto it = order_.rbegin(); it != order_.rend(); ++it) {
            if (nodes_[*it].seen) nodes_[nodes_[*it].fallback].seen = true;
        }
    }
    bool isThere(std::size_t number) const { return nodes_[number].seen; }

private:
    struct Node {
        std::size_t parent = 0, fallback = 0;
        char byte = 0;
        bool seen = false;
    };

    static std::uint64_t key(std::size_t node, char c) {
        return (static_cast<std::uint64_t>(node) << 8) | static_cast<unsigned char>(c);
    }
    std::size_t step(std::size_t node, char c) const {
        while (true) {
            if (const auto child = children_.find(key(node, c)); child != children_.end())
                return child->second;
            if (node == 0) return 0;
            node = nodes_[node].fallback;
        }
    }
    /// A node's fallback is the longest other text in the tree that it ends with; that is shorter, so nodes
    /// are linked by their depth.
    void linkFallbacks() {
        std::vector<std::vector<std::size_t>> childrenOf(nodes_.size());
        for (std::size_t i = 1; i < nodes_.size(); ++i) childrenOf[nodes_[i].parent].push_back(i);
        order_ = childrenOf[0];
        for (std::size_t i = 0; i < order_.size(); ++i) {
            auto& node = nodes_[order_[i]];
            if (node.parent != 0) node.fallback = step(nodes_[node.parent].fallback, node.byte);
            order_.insert(order_.end(), childrenOf[order_[i]].begin(), childrenOf[order_[i]].end());
        }
    }

    std::vector<Node> nodes_ = std::vector<Node>(1);
    std::unordered_map<std::uint64_t, std::size_t> children_;
    std::vector<std::size_t> order_;  // by depth, without the root
};

bool isHeading(std::string_view trimmedLine) {
    return trimmedLine.starts_with('#');
}

/// The lines of a rewrite with others put between them. Places are numbers of the rewrite's own lines: what
/// is put at place p stands before line p.
class Restored {
public:
    explicit Restored(const std::vector<std::string_view>& lines) : lines_(lines), put_(lines.size() + 1) {
        trimmed_.reserve(lines.size());
        for (const auto line : lines) trimmed_.push_back(trim(line));
        paragraphEnd_.resize(lines.size() + 1, lines.size());
        for (std::size_t i = lines.size(); i-- > 0;) {
            paragraphEnd_[i] = trimmed_[i].empty() || isHeading(trimmed_[i]) ? i : paragraphEnd_[i + 1];
            last_.try_emplace(trimmed_[i], i);
        }
        for (const auto& [line, index] : last_) sorted_.emplace_back(line, index);
        std::sort(sorted_.begin(), sorted_.end());
    }

    /// Puts line `number` of the original below the nearest line above it that is still there.
    void restore(const std::vector<std::string_view>& original, std::size_t number) {
        const auto line = trim(original[number]);
        const Line restored{
            .text = line,
            .afterBlank = number > 0 && trim(original[number - 1]).empty(),
            .beforeBlank = number + 1 < original.size() && trim(original[number + 1]).empty()};
        bool isFirst = true;
        for (std::size_t i = number; i-- > 0;) {
            const auto above = trim(original[i]);
            if (above.empty()) continue;
            isFirst = false;
            if (const auto known = putBefore_.find(above); known != putBefore_.end()) {
                return put(restored, isHeading(above) ? known->second : paragraphEnd_[known->second]);
            }
            if (const auto anchor = find(above)) {
                if (!isHeading(above)) return put(restored, paragraphEnd_[*anchor + 1]);
                put_[*anchor + 1].insert(put_[*anchor + 1].begin(), restored);
                putBefore_.insert_or_assign(line, *anchor + 1);
                return;
            }
        }
        put(restored, isFirst ? 0 : lines_.size());
    }

    std::string text() const {
        std::vector<std::string_view> all;
        for (std::size_t i = 0; i <= lines_.size(); ++i) {
            for (std::size_t j = 0; j < put_[i].size(); ++j) {
                const auto& line = put_[i][j];
                if (line.afterBlank && !all.empty() && !trim(all.back()).empty()) all.emplace_back();
                all.push_back(line.text);
                const bool blankFollows =
                    j + 1 == put_[i].size() && (i == lines_.size() || trimmed_[i].empty());
                if (line.beforeBlank && !blankFollows) all.emplace_back();
            }
            if (i < lines_.size()) all.push_back(lines_[i]);
        }
        return join(all, "\n");
    }

private:
    struct Line {
        std::string_view text;
        bool afterBlank = false, beforeBlank = false;
    };

    void put(const Line& line, std::size_t place) {
        put_[place].push_back(line);
        putBefore_.insert_or_assign(line.text, place);
    }

    /// The last line of the rewrite that equals a line, or begins with it.
    std::optional<std::size_t> find(std::string_view line) {
        const auto [known, isNew] = found_.try_emplace(line);
        if (!isNew) return known->second;
        auto& best = known->second;
        if (const auto same = last_.find(line); same != last_.end()) best = same->second;
        if (characterCount(line) < telling) return best;
        for (auto at = std::lower_bound(sorted_.begin(), sorted_.end(), std::pair(line, std::size_t{0}));
             at != sorted_.end() && at->first.starts_with(line); ++at) {
            if (!best || at->second > *best) best = at->second;
        }
        return best;
    }

    const std::vector<std::string_view>& lines_;
    std::vector<std::string_view> trimmed_;
    std::vector<std::size_t> paragraphEnd_;  // the first blank line or heading at or below each line
    std::vector<std::vector<Line>> put_;
    std::unordered_map<std::string_view, std::size_t> last_, putBefore_;
    std::vector<std::pair<std::string_view, std::size_t>> sorted_;
    std::unordered_map<std::string_view, std::optional<std::size_t>> found_;
};

}  // namespace

std::vector<FileReference> fileReferences(std::string_view text) {
    std::vector<FileReference> found;
    const auto lines = splitLines(text);
    for (std::size_t i = 0; i < lines.size(); ++i) LineReader(lines[i], i, found).read();
    return found;
}

std::string restoringFiles(std::string_view rewritten, std::string_view original) {
    const auto references = fileReferences(original);
    ManyTexts targets;
    std::vector<std::size_t> numbers;
    for (const auto& reference : references) numbers.push_back(targets.add(reference.target));
    targets.lookIn(rewritten);
    std::set<std::size_t> lost;
    for (std::size_t i = 0; i < references.size(); ++i) {
        if (!targets.isThere(numbers[i])) lost.insert(references[i].line);
    }
    if (lost.empty()) return std::string(rewritten);
    const auto originalLines = splitLines(original);
    const auto rewrittenLines = rewritten.empty() ? std::vector<std::string_view>() : splitLines(rewritten);
    Restored restored(rewrittenLines);
    for (const auto number : lost) restored.restore(originalLines, number);
    return restored.text();
}

}  // namespace vesk::NoteRefinement
