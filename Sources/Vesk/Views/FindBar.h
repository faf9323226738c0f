// Finding and replacing in the note that is open.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "Vesk/Views/EditorView.h"
#include "Vesk/Views/Toolkit.h"
#include "VeskCore/Editor/FindReplace.h"

namespace vesk::views {

/// Borrows the editor. Main thread.
class FindBar final : public Gtk::Revealer {
public:
    explicit FindBar(EditorView& editor);

    void open(bool replacing);
    void close();
    bool isOpen() const { return get_reveal_child(); }
    void step(bool forward);
    /// The text has changed: what is marked is looked for anew.
    void refresh();

private:
    void changed();
    std::optional<Finder> finder();
    void mark();
    void unmark();
    void replaceOne();
    void replaceAll();
    void select(TextRange range);

    EditorView& editor_;
    GtkTextTag* tag_;
    Gtk::Box rows_{Gtk::Orientation::VERTICAL}, findRow_, replaceRow_;
    Gtk::SearchEntry find_;
    Gtk::Entry replacement_;
    Gtk::Label count_;
    Gtk::ToggleButton case_{"Aa"}, words_{"W"}, expression_{".*"};
    Gtk::Button previous_, next_, close_, one_{_("Replace")}, all_{_("Replace All")};
    std::vector<TextRange> found_;
    sigc::connection marking_;
};

}  // namespace vesk::views
