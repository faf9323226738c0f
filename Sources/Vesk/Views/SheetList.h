// Rows under headings in a sheet. Only those in sight are widgets: a plan may have thousands.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

/// One row's widget, used for one id after another.
class SheetRow : public Gtk::Box {
public:
    SheetRow() : Gtk::Box(Gtk::Orientation::VERTICAL) {}
    virtual void show(int id) = 0;
};

/// Sets how wide what stands in a sheet may become, for a list and for what stands above it.
void limitSheetWidth(GtkWidget* clamp);

class SheetList final : public Gtk::ScrolledWindow {
public:
    struct Section {
        std::string title;  ///< empty for one without a heading
        std::vector<int> rows;
    };

    /// `make` gives a row that the toolkit manages.
    explicit SheetList(std::function<SheetRow*()> make);
    void setSections(const std::vector<Section>& sections);
    /// Shows the row anew, if it is in sight.
    void refresh(int id);
    void refreshAll();

    /// A row was clicked, or Return pressed on it.
    std::function<void(int id)> onActivated;

private:
    std::function<SheetRow*()> make_;
    Gtk::ListView list_;
    std::vector<std::optional<int>> ids_;  ///< by position; none for a heading
    std::map<int, SheetRow*> inSight_;
};

}  // namespace vesk::views
