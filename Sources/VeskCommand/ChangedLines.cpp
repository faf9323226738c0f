#include "VeskCommand/ChangedLines.h"

#include <utility>

#include "VeskCore/Brain/WordDiff.h"
#include "VeskCore/Support/Text.h"

namespace vesk::command {

std::vector<std::string> changedLines(const Terminal& terminal, std::string_view before,
                                      std::string_view after) {
    std::vector<std::string> changed;
    std::string line;
    bool differs = false;
    const auto endLine = [&] {
        if (differs) changed.push_back(std::move(line));
        line.clear();
        differs = false;
    };
    using WordDiff::Kind;
    for (const auto& run : WordDiff::compare(before, after).runs) {
        const auto pieces = splitLines(run.text);
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            if (i > 0) endLine();
            const bool endsHere = i + 1 < pieces.size();
            differs = differs || (run.kind != Kind::same && (endsHere || !pieces[i].empty()));
            if (pieces[i].empty()) continue;
            const auto text = printable(pieces[i]);
            line += run.kind == Kind::same      ? text
                    : run.kind == Kind::removed ? terminal.styled("[-" + text + "-]", Tone::bad)
                                                : terminal.styled("{+" + text + "+}", Tone::good);
        }
    }
    endLine();
    return changed;
}

}  // namespace vesk::command
