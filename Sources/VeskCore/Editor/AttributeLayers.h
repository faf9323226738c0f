// The styles of one line on their way to runs: each layer changes some attributes of its range, later layers
// on top of earlier ones. Offsets are UTF-16 units over the whole text.
#pragma once

#include <cstddef>
#include <vector>

#include "VeskCore/Editor/AttributedText.h"
#include "VeskCore/Editor/HighlighterTheme.h"
#include "VeskCore/Markdown/HTMLStyle.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk {

class AttributeLayers {
public:
    enum class Change {
        bold,
        italic,
        strikethrough,
        highlight,
        code,
        cellCode,  ///< the row's colour does not carry over
        mono,
        accent,
        faint,
        done,    ///< of a task
        quoted,  ///< faint and indented
        hidden,
    };

    /// `runs` receives what the lines come to, neighbours with equal attributes as one run; `hidden` the
    /// stretches that nobody sees.
    AttributeLayers(const HighlighterTheme& theme, std::vector<AttributeRun>& runs,
                    std::vector<TextRange>& hidden);

    void add(TextRange range, Change change);
    void addHeading(TextRange range, int level);
    void addHtml(TextRange range, const HTMLStyle& style);
    /// A syntax marker: dimmed where the caret is, elsewhere hidden.
    void addMarker(TextRange range, bool revealed) { add(range, revealed ? Change::faint : Change::hidden); }

    /// Turns the layers into the runs of the line, which follows the one before, and forgets them. Layers
    /// outside the line are cut.
    void finishLine(TextRange line);

private:
    enum class Kind { change, heading, html };
    struct Layer {
        std::size_t start, end;
        Kind kind;
        int value;  ///< a Change, a level, or an index into htmlStyles_
    };
    struct Edge {
        std::size_t offset;
        std::size_t layer;
        bool isEnd;
    };

    void push(TextRange range, Kind kind, int value);
    void apply(const Layer& layer, TextAttributes& attributes) const;
    void apply(Change change, TextAttributes& attributes) const;
    void apply(const HTMLStyle& style, TextAttributes& attributes) const;
    /// A run of the range under these layers.
    void append(TextRange range, const std::vector<std::size_t>& active);

    const HighlighterTheme& theme_;
    const TextAttributes base_;
    std::vector<AttributeRun>& runs_;
    std::vector<TextRange>& hidden_;
    // Of the current line; kept between lines for their storage.
    std::vector<Layer> layers_;
    std::vector<HTMLStyle> htmlStyles_;
    std::vector<Edge> edges_;
    std::vector<std::size_t> active_;
};

}  // namespace vesk
