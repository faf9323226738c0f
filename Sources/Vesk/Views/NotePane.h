// The note: its title, what is to be told about it, its text, or what stands in its place. Shows an
// EditorSurface and hands it what is typed.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Vesk/Editor/EditorSurface.h"
#include "Vesk/Views/EditorView.h"
#include "Vesk/Views/NoteBanner.h"
#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

class NotePane final : public Gtk::Box {
public:
    NotePane();

    /// The surface of the open vault, or none.
    void attach(std::shared_ptr<EditorSurface> surface);
    EditorView& editor() { return editor_; }
    /// Gives the text the keyboard; the title if `title`.
    void focus(bool title = false);
    /// Whether a note's text is on the screen.
    bool isShown() const { return stack_.get_visible_child_name() == "note"; }
    /// A title that is being typed is taken over now.
    void commitTitle();
    /// The note goes by another name now.
    void nameChanged();

    /// The person gave the note another name.
    std::function<void(const std::string& path, const std::string& name)> onRenamed;
    /// Another note is wanted, by a banner's button.
    std::function<void(const std::string& path)> onOpen;
    std::function<void()> onCaretMoved;
    std::function<void()> onTextChanged;
    std::function<void(const std::string& path)> onOpenElsewhere;

private:
    void showState();
    void showText();
    void showNotice();
    void showOlderCopy();
    void bannerAction(const std::string& action);
    void edited();
    void showStatus(const char* icon, const std::string& title, const std::string& words, const char* action,
                    std::function<void()> does);

    std::shared_ptr<EditorSurface> surface_;
    std::vector<Subscription> subscriptions_;
    Gtk::Stack stack_;
    Gtk::Box page_{Gtk::Orientation::VERTICAL};
    Gtk::ScrolledWindow scroller_;
    NoteBanner notice_, older_;
    Gtk::Entry title_;
    EditorView editor_;
    AdwStatusPage* status_ = nullptr;
    Gtk::Button statusAction_;
    std::function<void()> statusDoes_;
    std::optional<std::string> shownPath_;
    bool isShowing_ = false;
};

}  // namespace vesk::views
