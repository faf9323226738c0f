// A reply as the assistant's panel shows it: its Markdown taken apart into blocks, the signs taken away.
// While a reply comes in, only what can still change is read again. Pure; one thread at a time.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Support/TextRange.h"

namespace vesk {

struct AnswerLink {
    enum class Kind { note, address };
    Kind kind = Kind::note;
    std::string target;  ///< a note's name or path, or an address of http, https or mailto
    bool operator==(const AnswerLink&) const = default;
};

/// A stretch in one style.
struct AnswerRun {
    TextRange range;  ///< in bytes of the text
    bool bold = false, italic = false, struck = false, highlighted = false, code = false;
    std::optional<AnswerLink> link;
    bool operator==(const AnswerRun&) const = default;
};

struct AnswerLine {
    std::string text;             ///< without Markdown's signs, without NUL
    std::vector<AnswerRun> runs;  ///< in order and apart; what lies between them is plain
    bool operator==(const AnswerLine&) const = default;
};

struct AnswerBlock {
    enum class Kind { paragraph, heading, item, quote, code, table, divider };
    Kind kind = Kind::paragraph;
    int level = 0;                              ///< of a heading from 1, the indent of an item from 0
    std::string marker;                         ///< of an item: "•", "3."
    std::optional<bool> done;                   ///< of a task
    AnswerLine line;                            ///< lines of one paragraph or quote stay apart by a line feed
    std::vector<std::vector<AnswerLine>> rows;  ///< of a table, its head first
    bool continues = false;  ///< goes on from the block before, without a gap: code in pieces
    bool operator==(const AnswerBlock&) const = default;
};

class AnswerText {
public:
    /// A longer piece of code stands in several blocks, so that what comes in changes a short one.
    static constexpr int codeLinesInBlock = 40;

    /// Takes the whole text as it is now; the index of the first block that may differ from before.
    std::size_t update(std::string_view text);
    const std::vector<AnswerBlock>& blocks() const { return blocks_; }

private:
    /// Where reading can start again: nothing before it changes by what follows.
    struct Place {
        std::size_t offset = 0, blocks = 0;
        bool inFence = false, codeBegun = false;
    };

    std::string settled_;  ///< the text before `place_`
    Place place_;
    std::vector<AnswerBlock> blocks_;
};

}  // namespace vesk
