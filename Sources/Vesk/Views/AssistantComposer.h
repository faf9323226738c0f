// Where a question is typed: a text that grows, the scope it is asked in, a list of commands behind "/".
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Vesk/AI/BrainSession.h"
#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

class AssistantComposer final : public Gtk::Box {
public:
    AssistantComposer();
    ~AssistantComposer() override;

    /// Return or the button: the draft, which stays until setDraft().
    std::function<void(const std::string& draft)> onSend;
    std::function<void()> onStop;
    std::function<void(AIScope)> onScope;

    std::string draft() const;
    void setDraft(const std::string& text);
    void setScope(AIScope scope);
    void setStreaming(bool streaming);
    void focusText();
    bool hasKeyboard() const;

private:
    bool keyPressed(guint key, Gdk::ModifierType held);
    void changed();
    void send();
    void showCompletions();
    void closeCompletions();
    void complete(int index);

    Gtk::Box frame_{Gtk::Orientation::VERTICAL}, bar_{Gtk::Orientation::HORIZONTAL, 6};
    Gtk::Overlay overlay_;
    Gtk::ScrolledWindow scroller_;
    Gtk::TextView text_;
    Gtk::Label placeholder_;
    Glib::RefPtr<Gtk::EventControllerKey> keys_;
    Glib::RefPtr<Gtk::EventControllerFocus> focus_;
    Gtk::MenuButton scope_;
    Glib::RefPtr<Gio::SimpleAction> scopeAction_;
    Gtk::Button send_, stop_;
    Gtk::Popover completions_;
    Gtk::ListBox completionList_;
    std::vector<std::string> completing_;
    bool isCompleting_ = false, isStreaming_ = false;
};

/// "Whole vault".
const char* scopeWords(AIScope scope);

}  // namespace vesk::views
