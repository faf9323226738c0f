// The list at the caret that completes links and tags while they are typed.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Vesk/Views/Toolkit.h"
#include "VeskCore/Editor/Completion.h"

namespace vesk::views {

class StyledBuffer;

/// Belongs to one text view. Main thread.
class EditorCompletion {
public:
    EditorCompletion(Gtk::TextView& view, StyledBuffer& content);
    ~EditorCompletion();
    EditorCompletion(const EditorCompletion&) = delete;
    EditorCompletion& operator=(const EditorCompletion&) = delete;

    /// What there is to choose from, prepared; none for nothing.
    std::function<std::shared_ptr<const Completion::Candidates>(const Completion::Prefix&)> candidates;
    std::function<void(const TextEdit&)> onChosen;

    /// After something was typed.
    void update();
    void close();
    bool isOpen() const { return isOpen_; }
    /// True if the key was the list's.
    bool keyPressed(guint key);

private:
    void choose(int index);

    Gtk::TextView& view_;
    StyledBuffer& content_;
    Gtk::Popover popover_;
    Gtk::ScrolledWindow scroller_;
    Gtk::ListBox list_;
    std::optional<Completion::Prefix> prefix_;
    std::vector<std::string> shown_;
    bool isOpen_ = false;
};

}  // namespace vesk::views
