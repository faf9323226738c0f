// Completing a wikilink or a tag while it is typed: what stands at the caret, which candidates fit, best
// first, and the edit that puts the chosen one in. Pure; a Candidates is immutable: any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Editor/TextEdit.h"

namespace vesk::Completion {

struct Prefix {
    enum class Kind { note, heading, tag };
    Kind kind = Kind::note;
    std::u16string typed;  ///< between the opening signs and the caret
    std::u16string note;   ///< of a heading: the note before the "#", empty for the note being edited
    TextRange replaced;    ///< what the chosen candidate takes the place of
    bool closed = false;   ///< a link that has its "]]" already
    bool operator==(const Prefix&) const = default;
};

/// What is being typed at the caret. None in code, frontmatter, an alias or a block reference, and at the "#"
/// that begins a line.
std::optional<Prefix> prefixAt(std::u16string_view text, std::size_t caret);

/// Puts the candidate in. A link is closed unless it is; its alias stays. The caret goes behind.
TextEdit insertion(std::u16string_view text, const Prefix& prefix, std::u16string_view chosen);

struct Candidate {
    std::string text;          ///< what is matched and put in
    std::int64_t recency = 0;  ///< greater is more recent; decides among equally good matches
    bool operator==(const Candidate&) const = default;
};

/// Candidates prepared for being matched at every keystroke.
class Candidates {
public:
    explicit Candidates(std::vector<Candidate> candidates);

    /// The best `limit`, as indices into what was given: the same text, then those that begin with what is
    /// typed, then those with a word that does, then those that hold its letters in order. Case and accents
    /// don't matter. Nothing typed fits all.
    std::vector<std::size_t> matching(std::string_view typed, std::size_t limit) const;
    const Candidate& operator[](std::size_t index) const { return candidates_[index]; }
    std::size_t size() const { return candidates_.size(); }

private:
    std::vector<Candidate> candidates_;
    std::vector<std::u32string> folded_;
};

}  // namespace vesk::Completion
