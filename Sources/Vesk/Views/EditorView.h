// The text view of the note pane: a StyledBuffer on screen, with what is drawn over and between its lines. It
// reports what the person types and decides nothing about saving.
#pragma once

#include <glibmm/extraclassinit.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Vesk/Views/StyledBuffer.h"
#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

/// Installs the virtual functions of GtkTextView that gtkmm leaves out.
class EditorViewClass : public Glib::ExtraClassInit {
protected:
    EditorViewClass();
};

class EditorView final : public EditorViewClass, public Gtk::TextView {
public:
    EditorView();
    ~EditorView() override;

    StyledBuffer& content() { return content_; }

    /// Another note.
    void show(std::u16string_view text, bool isPlain);
    /// The same note as it came from outside, with the selection mapped.
    void follow(std::u16string_view text, TextRange selection);
    void applyTheme(double bodyPoints);
    void revealCaret();

    std::function<void()> onEdited;
    std::function<void()> onSelectionMoved;
    /// The text's margin at both sides has changed.
    std::function<void(int)> onMarginChanged;

protected:
    void size_allocate_vfunc(int width, int height, int baseline) override;

private:
    friend class EditorViewClass;
    static EditorView* of(GtkTextView* view);
    void drawLayer(GtkTextViewLayer layer, GtkSnapshot* snapshot);
    void moveCursor(GtkMovementStep step, int count, bool extends);
    void pastePlainText();

    StyledBuffer content_;
    Glib::RefPtr<Gtk::CssProvider> css_;
    int marginWidth_ = 0;
};

}  // namespace vesk::views
