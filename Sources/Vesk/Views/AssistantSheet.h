// A sheet over the window: a header bar with the way out at its start and the way on at its end, and a page
// below. What the assistant proposes is reviewed in one.
#pragma once

#include <functional>
#include <string>

#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

/// Owned by its window: deleted with it.
class AssistantSheet {
public:
    virtual ~AssistantSheet() = default;
    AssistantSheet(const AssistantSheet&) = delete;
    AssistantSheet& operator=(const AssistantSheet&) = delete;
    void close();

protected:
    AssistantSheet(GtkWindow* parent, const std::string& title, int width, int height);
    /// Once the page is made.
    void present(Gtk::Widget& page, Gtk::Widget& focus);

    AdwWindow* window_;
    Gtk::Button no_, yes_;
    AdwWindowTitle* title_;
    Gtk::Label promise_;  ///< below the page
};

/// A label for running text.
Gtk::Label& sheetText(const std::string& words, std::initializer_list<const char*> classes = {});

}  // namespace vesk::views
