// One styled stretch of a line in the editor. Offsets are UTF-16 units over the whole text.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "VeskCore/Markdown/HTMLStyle.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk {

/// What a row of a pipe table is.
enum class TableRowKind { header, delimiter, body };

namespace MarkdownSpans {

struct Style {
    struct Heading {
        int level = 1;
        bool operator==(const Heading&) const = default;
    };
    struct Callout {
        std::string type;
        bool operator==(const Callout&) const = default;
    };
    struct Task {
        bool done = false;
        bool operator==(const Task&) const = default;
    };
    struct HtmlStyled {
        HTMLStyle style;
        bool operator==(const HtmlStyled&) const = default;
    };
    struct Table {
        TableRowKind kind = TableRowKind::body;
        bool operator==(const Table&) const = default;
    };
    enum class Plain {
        bold,
        italic,
        strikethrough,
        highlight,
        code,
        fence,
        codeBlock,
        link,
        tag,
        quote,
        listMarker,
        divider,
        frontmatter,
        htmlMarkup,
        htmlInert,
    };
    std::variant<Heading, Callout, Task, HtmlStyled, Table, Plain> value = Plain::code;
    bool operator==(const Style&) const = default;
};

struct Span {
    TextRange range;
    Style style;
    std::vector<TextRange> markers;  ///< the syntax characters that the editor dims or hides
    bool operator==(const Span&) const = default;
};

}  // namespace MarkdownSpans
}  // namespace vesk
