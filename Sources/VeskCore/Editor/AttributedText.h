// The attributed text that the highlighter styles: the seam between it and a text view. Attributes are values
// of the theme's vocabulary, never a toolkit's. Offsets are UTF-16 units over the whole text. Main thread.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>
#include <variant>
#include <vector>

#include "VeskCore/Markdown/HTMLStyle.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk {

struct TextAttributes {
    enum class FontFamily { body, mono };
    enum class FontWeight { regular, semibold, bold };
    struct Font {
        FontFamily family = FontFamily::body;
        double size = 14;  ///< in points
        FontWeight weight = FontWeight::regular;
        bool italic = false;
        bool operator==(const Font&) const = default;
    };
    enum class ColorRole { text, faint, accent, clear, codeBackground, highlight };
    /// A colour of the theme, or one that the note itself names.
    using Color = std::variant<ColorRole, CSSColor>;

    Font font;
    Color color = ColorRole::text;
    std::optional<Color> background;
    bool strikethrough = false;
    bool underline = false;
    double baselineOffset = 0;  ///< in points, upwards
    /// Indent of a paragraph's first and following lines in points; the one attribute of paragraph style.
    double indent = 0;

    /// Text below one point is not there for the reader.
    bool isHidden() const { return font.size < 1; }
    bool operator==(const TextAttributes&) const = default;
};

struct AttributeRun {
    TextRange range;
    TextAttributes attributes;
    bool operator==(const AttributeRun&) const = default;
};

/// Holds characters and their attributes. The highlighter borrows it and never changes a character.
class AttributedText {
public:
    /// The range of the text after an edit that replaced characters, and by how much the text grew.
    using DidEdit = std::function<void(TextRange edited, std::ptrdiff_t delta)>;

    virtual ~AttributedText() = default;

    /// Good until the next edit.
    virtual std::u16string_view text() const = 0;
    /// The runs that cover the range, clipped to it, in order, neighbours with equal attributes merged.
    virtual std::vector<AttributeRun> attributes(TextRange range) const = 0;
    /// One batch: `runs` cover `range` whole and in order. Only what differs need be touched. With
    /// `preservingIndent` the indents that stand stay, whatever the runs say.
    virtual void setAttributes(TextRange range, const std::vector<AttributeRun>& runs,
                               bool preservingIndent) = 0;
    /// Spelling marks under text that nobody sees.
    virtual void clearSpellingMarks(TextRange range) = 0;
    /// Called after each edit of characters, before anything is drawn; never for attributes alone.
    virtual void setDidEdit(DidEdit didEdit) = 0;

    /// The whole lines that the range touches.
    TextRange paragraphRange(TextRange range) const;
};

}  // namespace vesk
