#include "VeskCommand/EditorJson.h"

#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::command {
namespace {

using Style = MarkdownSpans::Style;
using Kind = MarkdownBlock::Kind;

Json tagged(std::string_view name, std::initializer_list<Json::Member> payload = {}) {
    return Json::object({{std::string(name), Json::object(payload)}});
}

template <class Enumeration, std::size_t n>
std::string_view nameOf(Enumeration value, const std::string_view (&names)[n]) {
    return names[static_cast<std::size_t>(value)];
}

Json toJson(const CSSColor& color) {
    return Json::object(
        {{"red", color.red}, {"green", color.green}, {"blue", color.blue}, {"alpha", color.alpha}});
}

Json toJson(const std::optional<CSSColor>& color) {
    return color ? toJson(*color) : Json();
}

Json toJson(const HTMLStyle& style) {
    constexpr std::string_view baselines[] = {"normal", "sub", "sup"};
    return Json::object({{"color", toJson(style.color)},
                         {"background", toJson(style.background)},
                         {"bold", style.bold},
                         {"italic", style.italic},
                         {"underline", style.underline},
                         {"strikethrough", style.strikethrough},
                         {"monospace", style.monospace},
                         {"baseline", nameOf(style.baseline, baselines)},
                         {"scale", style.scale}});
}

constexpr std::string_view rowKinds[] = {"header", "delimiter", "body"};

Json toJson(const Style& style) {
    constexpr std::string_view names[] = {
        "bold", "italic", "strikethrough", "highlight", "code",        "fence",      "codeBlock", "link",
        "tag",  "quote",  "listMarker",    "divider",   "frontmatter", "htmlMarkup", "htmlInert"};
    return match(
        style,
        [](const Style::Heading& it) {
            return tagged("heading", {{"level", it.level}});
        },
        [](const Style::Callout& it) {
            return tagged("callout", {{"type", it.type}});
        },
        [](const Style::Task& it) {
            return tagged("task", {{"done", it.done}});
        },
        [](const Style::HtmlStyled& it) {
            return Json::object({{"htmlStyled", toJson(it.style)}});
        },
        [](const Style::Table& it) {
            return tagged("table", {{"kind", nameOf(it.kind, rowKinds)}});
        },
        [&](const Style::Plain& it) { return tagged(nameOf(it, names)); });
}

Json toJson(const Kind& kind) {
    constexpr std::string_view names[] = {"paragraph", "bullet", "quote", "divider", "table", "blank"};
    return match(
        kind,
        [](const Kind::Heading& it) {
            return tagged("heading", {{"level", it.level}});
        },
        [](const Kind::Ordered& it) {
            return tagged("ordered", {{"number", it.number}});
        },
        [](const Kind::Task& it) {
            return tagged("task", {{"done", it.done}});
        },
        [](const Kind::Callout& it) {
            return tagged("callout", {{"type", utf8(it.type)}});
        },
        [](const Kind::Code& it) {
            return tagged("code", {{"language", it.language ? Json(utf8(*it.language)) : Json()}});
        },
        [&](const Kind::Plain& it) { return tagged(nameOf(it, names)); });
}

Json ranges(const std::vector<TextRange>& values) {
    Json::Array array;
    for (const TextRange& value : values) array.push_back(command::toJson(value));
    return Json(std::move(array));
}

Json toJson(const MarkdownTable::Row& row) {
    Json::Array cells;
    for (const MarkdownTable::Cell& cell : row.cells) {
        cells.push_back(Json::object({{"column", cell.column},
                                      {"slot", command::toJson(cell.slot)},
                                      {"content", command::toJson(cell.content)},
                                      {"escapes", ranges(cell.escapes)}}));
    }
    return Json::object({{"kind", nameOf(row.kind, rowKinds)},
                         {"line", command::toJson(row.line)},
                         {"fullLine", command::toJson(row.fullLine)},
                         {"cells", Json(std::move(cells))},
                         {"pipes", ranges(row.pipes)}});
}

Json toJson(const TextAttributes::Font& font) {
    constexpr std::string_view families[] = {"body", "mono"}, weights[] = {"regular", "semibold", "bold"};
    return Json::object({{"family", nameOf(font.family, families)},
                         {"size", font.size},
                         {"weight", nameOf(font.weight, weights)},
                         {"italic", font.italic}});
}

/// A role by its name, a colour by its components.
Json toJson(const TextAttributes::Color& color) {
    constexpr std::string_view roles[] = {"text", "faint", "accent", "clear", "codeBackground", "highlight"};
    return match(
        color, [&](const TextAttributes::ColorRole& role) { return Json(nameOf(role, roles)); },
        [](const CSSColor& css) { return toJson(css); });
}

}  // namespace

Json toJson(const MarkdownBlock& block) {
    return Json::object({{"kind", toJson(block.kind)},
                         {"lineRange", toJson(block.lineRange)},
                         {"indent", block.indent},
                         {"content", utf8(block.content)}});
}

Json toJson(const MarkdownSpans::Span& span) {
    return Json::object(
        {{"range", toJson(span.range)}, {"style", toJson(span.style)}, {"markers", ranges(span.markers)}});
}

Json toJson(const MarkdownTable& table) {
    constexpr std::string_view names[] = {"none", "left", "center", "right"};
    Json::Array alignments, rows;
    for (const TableAlignment alignment : table.alignments) alignments.push_back(nameOf(alignment, names));
    for (const MarkdownTable::Row& row : table.rows) rows.push_back(toJson(row));
    return Json::object({{"range", toJson(table.range)},
                         {"alignments", Json(std::move(alignments))},
                         {"isColumnPadded", table.isColumnPadded()},
                         {"rows", Json(std::move(rows))}});
}

Json toJson(const ImageEmbed& embed) {
    return Json::object({{"range", toJson(embed.range)},
                         {"lineRange", toJson(embed.lineRange)},
                         {"target", embed.target},
                         {"maxWidth", embed.maxWidth},
                         {"maxHeight", embed.maxHeight},
                         {"alt", embed.alt}});
}

Json toJson(const OutlineHeading& heading) {
    return Json::object({{"level", heading.level},
                         {"text", heading.text},
                         {"range", toJson(heading.range)},
                         {"line", heading.line}});
}

Json toJson(const AttributeRun& run) {
    const TextAttributes& attributes = run.attributes;
    return Json::object({{"range", toJson(run.range)},
                         {"font", toJson(attributes.font)},
                         {"color", toJson(attributes.color)},
                         {"background", attributes.background ? toJson(*attributes.background) : Json()},
                         {"strikethrough", attributes.strikethrough},
                         {"underline", attributes.underline},
                         {"baselineOffset", attributes.baselineOffset},
                         {"indent", attributes.indent},
                         {"hidden", attributes.isHidden()}});
}

}  // namespace vesk::command
