// Measures and draws the cells of a table's grid with Pango, in pixels.
#pragma once

#include <gtk/gtk.h>

#include "Vesk/Views/EditorTheme.h"
#include "VeskCore/Editor/MarkdownTableGrid.h"

namespace vesk::views {

/// Borrows the widget, whose fonts it measures in. Main thread.
class GridPainter final : public MarkdownTableGrid::Measurer {
public:
    explicit GridPainter(GtkWidget* widget) : widget_(widget) {}
    void setTheme(const EditorTheme& theme) { theme_ = theme; }

    MarkdownTableGrid::Size size(const MarkdownTableGrid::Cell& cell,
                                 std::optional<double> width) const override;
    double longestWordWidth(const MarkdownTableGrid::Cell& cell) const override;
    double lineHeight() const override;
    /// Body text in pixels.
    double em() const;

    /// The rows that meet the band from `top` to `bottom`, in the grid's own coordinates, with the grid at
    /// (x, y).
    void draw(GtkSnapshot* snapshot, double x, double y, double top, double bottom,
              const MarkdownTableGrid::Layout& layout, const MarkdownTableGrid::Cells& cells) const;

private:
    PangoLayout* layout(const MarkdownTableGrid::Cell& cell, std::optional<double> width) const;

    GtkWidget* widget_;
    EditorTheme theme_;
};

}  // namespace vesk::views
