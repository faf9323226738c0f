// The text view of the note pane: a StyledBuffer on screen, styled as Markdown, with what is drawn over and
// between its lines, and the editing commands on their keys. It reports what the person types and decides
// nothing about saving.
#pragma once

#include <glibmm/extraclassinit.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Vesk/Views/EditorCompletion.h"
#include "Vesk/Views/EditorDecorations.h"
#include "Vesk/Views/StyledBuffer.h"
#include "Vesk/Views/Toolkit.h"
#include "VeskCore/Editor/LinkAt.h"
#include "VeskCore/Editor/MarkdownHighlighter.h"
#include "VeskCore/Editor/TextEdit.h"

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
    EditorDecorations& decorations() { return decorations_; }
    EditorCompletion& completion() { return completion_; }

    /// Another note. `title`: a first heading that repeats it is not shown twice.
    void show(std::u16string_view text, bool isPlain, const std::string& title);
    /// The same note as it came from outside, with the selection mapped.
    void follow(std::u16string_view text, TextRange selection);
    void setTitle(const std::string& title);
    void applyTheme(double bodyPoints);
    void revealCaret();
    /// Moves the caret there and brings it into sight.
    void goTo(TextRange range);
    /// Does the edit as one step of undo; false for none.
    bool perform(const std::optional<TextEdit>& edit);
    /// By its id in the table of commands.
    bool performCommand(std::string_view id);
    void insertText(std::u16string_view text);

    std::function<void()> onEdited;
    std::function<void()> onSelectionMoved;
    /// The text's margin at both sides has changed.
    std::function<void(int)> onMarginChanged;
    std::function<void(const LinkAt&)> onLink;
    std::function<void(const std::string& target)> onImageOpened;
    /// A picture was pasted or dropped: its bytes, or a file.
    std::function<void(std::string bytes, const std::string& extension)> onPicture;
    std::function<void(const std::vector<FilePath>&)> onFiles;

protected:
    void size_allocate_vfunc(int width, int height, int baseline) override;

private:
    friend class EditorViewClass;
    static EditorView* of(GtkTextView* view);
    void moveCursor(GtkMovementStep step, int count, bool extends);
    void paste();
    void pasteText(const std::string& text);
    void connectInput();
    bool keyPressed(guint key, int held);
    void clicked(Gtk::GestureClick& gesture, int presses, double x, double y);
    void pointerMoved(double x, double y, bool isControlHeld);
    std::optional<std::size_t> offsetAt(double x, double y) const;
    void followBuffer();
    void selectionMoved();
    void styleNextPiece();
    void widthSettled();
    void edited(TextRange range, std::ptrdiff_t delta);

    StyledBuffer content_;
    EditorDecorations decorations_;
    EditorCompletion completion_;
    std::unique_ptr<MarkdownHighlighter> highlighter_;
    Glib::RefPtr<Gtk::CssProvider> css_;
    double bodyPoints_ = 12;
    int marginWidth_ = 0;
    std::optional<std::size_t> unstyledFrom_;  ///< of a long text whose end is not styled yet
    sigc::connection styling_, pictures_, settling_;
    TextRange selection_;
    bool isShowing_ = false;
};

}  // namespace vesk::views
