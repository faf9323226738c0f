#include "Vesk/Views/GridPainter.h"

#include <algorithm>
#include <cmath>

#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Support/Utf16Map.h"

namespace vesk::views {
namespace {

constexpr double padX = 8, padY = 5;  // as the grid's policy has them
constexpr double smallScale = 0.75;   // of text set high or low
constexpr guint16 full = 0xFFFF;

guint16 channel(float value) {
    return static_cast<guint16>(std::clamp(value, 0.0F, 1.0F) * full);
}

void add(PangoAttrList* list, PangoAttribute* attribute, std::size_t from, std::size_t to) {
    attribute->start_index = static_cast<guint>(from);
    attribute->end_index = static_cast<guint>(to);
    pango_attr_list_insert(list, attribute);
}

void addForeground(PangoAttrList* list, const GdkRGBA& color, std::size_t from, std::size_t to) {
    add(list, pango_attr_foreground_new(channel(color.red), channel(color.green), channel(color.blue)), from,
        to);
    add(list, pango_attr_foreground_alpha_new(channel(color.alpha)), from, to);
}

void addBackground(PangoAttrList* list, const GdkRGBA& color, std::size_t from, std::size_t to) {
    add(list, pango_attr_background_new(channel(color.red), channel(color.green), channel(color.blue)), from,
        to);
    add(list, pango_attr_background_alpha_new(channel(color.alpha)), from, to);
}

graphene_rect_t rect(double x, double y, double width, double height) {
    graphene_rect_t made;
    graphene_rect_init(&made, static_cast<float>(x), static_cast<float>(y), static_cast<float>(width),
                       static_cast<float>(height));
    return made;
}

}  // namespace

PangoLayout* GridPainter::layout(const MarkdownTableGrid::Cell& cell, std::optional<double> width) const {
    using Plain = MarkdownTableGrid::RunStyle::Plain;
    PangoLayout* made = gtk_widget_create_pango_layout(widget_, nullptr);
    const auto text = utf8(cell.text);
    const Utf16Map map(text);
    PangoAttrList* list = pango_attr_list_new();
    if (cell.isHeader) add(list, pango_attr_weight_new(PANGO_WEIGHT_SEMIBOLD), 0, text.size());
    for (const auto& run : cell.runs) {
        const auto from = map.byteFromUtf16(run.range.location), to = map.byteFromUtf16(run.range.end());
        match(
            run.style,
            [&](const MarkdownTableGrid::RunStyle::Scale& scale) {
                add(list, pango_attr_scale_new(std::clamp(scale.factor, 0.5, 3.0)), from, to);
            },
            [&](const MarkdownTableGrid::RunStyle::Color& color) {
                const CSSColor& ground =
                    theme_.isDark ? CSSColor::darkEditorBackground : CSSColor::lightEditorBackground;
                addForeground(list, rgba(color.color.legible(ground)), from, to);
            },
            [&](Plain plain) {
                switch (plain) {
                    case Plain::bold:
                        return add(list, pango_attr_weight_new(PANGO_WEIGHT_BOLD), from, to);
                    case Plain::italic:
                        return add(list, pango_attr_style_new(PANGO_STYLE_ITALIC), from, to);
                    case Plain::strikethrough:
                        return add(list, pango_attr_strikethrough_new(TRUE), from, to);
                    case Plain::underline:
                        return add(list, pango_attr_underline_new(PANGO_UNDERLINE_SINGLE), from, to);
                    case Plain::highlight:
                        return addBackground(list, theme_.highlight, from, to);
                    case Plain::code:
                        add(list, pango_attr_family_new(theme_.monoFamily.c_str()), from, to);
                        add(list, pango_attr_scale_new(13.0 / 14.0), from, to);
                        return addBackground(list, theme_.codeBackground, from, to);
                    case Plain::link:
                        return addForeground(list, theme_.accent, from, to);
                    case Plain::faint:
                        return addForeground(list, theme_.faint, from, to);
                    case Plain::sub:
                        add(list, pango_attr_scale_new(smallScale), from, to);
                        return add(list, pango_attr_rise_new(static_cast<int>(-0.15 * em() * PANGO_SCALE)),
                                   from, to);
                    case Plain::sup:
                        add(list, pango_attr_scale_new(smallScale), from, to);
                        return add(list, pango_attr_rise_new(static_cast<int>(0.35 * em() * PANGO_SCALE)),
                                   from, to);
                }
            });
    }
    pango_layout_set_text(made, text.data(), static_cast<int>(text.size()));
    pango_layout_set_attributes(made, list);
    pango_attr_list_unref(list);
    pango_layout_set_wrap(made, PANGO_WRAP_WORD_CHAR);
    if (width) {
        pango_layout_set_width(made, static_cast<int>(*width * PANGO_SCALE));
        pango_layout_set_alignment(made, cell.alignment == TableAlignment::right    ? PANGO_ALIGN_RIGHT
                                         : cell.alignment == TableAlignment::center ? PANGO_ALIGN_CENTER
                                                                                    : PANGO_ALIGN_LEFT);
    }
    return made;
}

MarkdownTableGrid::Size GridPainter::size(const MarkdownTableGrid::Cell& cell,
                                          std::optional<double> width) const {
    PangoLayout* measured = layout(cell, width);
    int wide = 0, high = 0;
    pango_layout_get_size(measured, &wide, &high);
    g_object_unref(measured);
    return {static_cast<double>(wide) / PANGO_SCALE, static_cast<double>(high) / PANGO_SCALE};
}

double GridPainter::longestWordWidth(const MarkdownTableGrid::Cell& cell) const {
    // On lines of no width each word stands alone; the widest line is the longest word.
    PangoLayout* measured = layout(cell, 0.0);
    pango_layout_set_wrap(measured, PANGO_WRAP_WORD);
    int wide = 0;
    pango_layout_get_size(measured, &wide, nullptr);
    g_object_unref(measured);
    return static_cast<double>(wide) / PANGO_SCALE;
}

double GridPainter::lineHeight() const {
    return size({.text = u"X"}, {}).height;
}

double GridPainter::em() const {
    PangoContext* context = gtk_widget_get_pango_context(widget_);
    const double resolution = pango_cairo_context_get_resolution(context);
    return theme_.bodyPoints * (resolution > 0 ? resolution : 96) / 72;
}

void GridPainter::draw(GtkSnapshot* snapshot, double x, double y, double top, double bottom,
                       const MarkdownTableGrid::Layout& grid, const MarkdownTableGrid::Cells& cells) const {
    const auto outline = rect(x, y, grid.size.width, grid.size.height);
    GskRoundedRect frame;
    gsk_rounded_rect_init_from_rect(&frame, &outline, 6);
    gtk_snapshot_push_rounded_clip(snapshot, &frame);
    if (!grid.rowHeights.empty()) {
        const auto head = rect(x, y, grid.size.width, grid.rowHeights.front());
        gtk_snapshot_append_color(snapshot, &theme_.gridHeader, &head);
    }
    const auto shown = grid.rows(top, bottom);
    for (std::size_t row = shown.location; row < shown.end() && row < cells.size(); ++row) {
        for (std::size_t column = 0; column < grid.columnWidths.size() && column < cells[row].size();
             ++column) {
            const auto place = grid.cellRect(row, column);
            PangoLayout* text = layout(cells[row][column], place.width - 2 * padX);
            gtk_snapshot_save(snapshot);
            graphene_point_t at;
            graphene_point_init(&at, static_cast<float>(x + place.x + padX),
                                static_cast<float>(y + place.y + padY));
            gtk_snapshot_translate(snapshot, &at);
            gtk_snapshot_append_layout(snapshot, text, &theme_.text);
            gtk_snapshot_restore(snapshot);
            g_object_unref(text);
        }
        if (row > 0) {
            const auto line = rect(x, std::round(y + grid.cellRect(row, 0).y), grid.size.width, 1);
            gtk_snapshot_append_color(snapshot, &theme_.gridLine, &line);
        }
    }
    double edge = x;
    for (std::size_t column = 0; column + 1 < grid.columnWidths.size(); ++column) {
        edge += grid.columnWidths[column];
        const auto line = rect(std::round(edge), y, 1, grid.size.height);
        gtk_snapshot_append_color(snapshot, &theme_.gridLine, &line);
    }
    gtk_snapshot_pop(snapshot);
    const float widths[4] = {1, 1, 1, 1};
    const GdkRGBA colors[4] = {theme_.gridLine, theme_.gridLine, theme_.gridLine, theme_.gridLine};
    gtk_snapshot_append_border(snapshot, &frame, widths, colors);
}

}  // namespace vesk::views
