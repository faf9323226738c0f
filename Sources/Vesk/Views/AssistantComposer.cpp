#include "Vesk/Views/AssistantComposer.h"

#include "VeskCore/Brain/SlashCommand.h"
#include "VeskCore/Support/Text.h"

namespace vesk::views {
namespace {

constexpr int tallest = 180;

const std::vector<std::string>& commands() {
    static const std::vector<std::string> names{std::string(rawValue(AIScope::vault)),
                                                std::string(rawValue(AIScope::note)),
                                                std::string(rawValue(AIScope::selection))};
    return names;
}

}  // namespace

const char* scopeWords(AIScope scope) {
    switch (scope) {
        case AIScope::vault:
            return _("Whole vault");
        case AIScope::note:
            return _("This note");
        case AIScope::selection:
            return _("Selection");
    }
    return "";
}

AssistantComposer::AssistantComposer() : Gtk::Box(Gtk::Orientation::VERTICAL) {
    frame_.add_css_class("assistant-composer");
    text_.set_wrap_mode(Gtk::WrapMode::WORD_CHAR);
    text_.set_accepts_tab(false);
    text_.set_left_margin(10);
    text_.set_right_margin(10);
    text_.set_top_margin(9);
    text_.set_bottom_margin(4);
    setAccessibleName(text_, _("Your question"));
    text_.get_buffer()->signal_changed().connect([this] { changed(); });
    keys_ = Gtk::EventControllerKey::create();
    keys_->set_propagation_phase(Gtk::PropagationPhase::CAPTURE);
    keys_->signal_key_pressed().connect(
        [this](guint key, guint, Gdk::ModifierType held) { return keyPressed(key, held); }, false);
    text_.add_controller(keys_);
    focus_ = Gtk::EventControllerFocus::create();
    focus_->signal_enter().connect([this] { frame_.add_css_class("focused"); });
    focus_->signal_leave().connect([this] {
        frame_.remove_css_class("focused");
        closeCompletions();
    });
    text_.add_controller(focus_);
    scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    scroller_.set_propagate_natural_height(true);
    scroller_.set_max_content_height(tallest);
    scroller_.set_child(text_);
    placeholder_.set_text(_("Ask, or type / for a scope"));
    placeholder_.add_css_class("dim-label");
    placeholder_.set_xalign(0);
    placeholder_.set_halign(Gtk::Align::START);
    placeholder_.set_valign(Gtk::Align::START);
    placeholder_.set_margin_start(10);
    placeholder_.set_margin_top(9);
    placeholder_.set_can_target(false);
    overlay_.set_child(scroller_);
    overlay_.add_overlay(placeholder_);
    frame_.append(overlay_);

    auto actions = Gio::SimpleActionGroup::create();
    scopeAction_ = actions->add_action_radio_string(
        "scope",
        [this](const Glib::ustring& name) {
            if (const auto chosen = aiScope(name.raw()); chosen && onScope) onScope(*chosen);
        },
        std::string(rawValue(AIScope::vault)));
    insert_action_group("composer", actions);
    auto menu = Gio::Menu::create();
    for (const auto scope : {AIScope::vault, AIScope::note, AIScope::selection})
        menu->append(scopeWords(scope), "composer.scope::" + std::string(rawValue(scope)));
    scope_.set_menu_model(menu);
    scope_.set_direction(Gtk::ArrowType::UP);
    scope_.add_css_class("flat");
    scope_.add_css_class("assistant-small");
    scope_.set_always_show_arrow(true);
    scope_.set_tooltip_text(_("What the question is about"));
    setAccessibleName(scope_, _("What the question is about"));
    bar_.set_margin(4);
    bar_.append(scope_);
    auto* space = Gtk::make_managed<Gtk::Box>();
    space->set_hexpand(true);
    bar_.append(*space);
    const auto round = [](Gtk::Button& button, const char* icon, const char* name) {
        button.set_icon_name(icon);
        button.add_css_class("circular");
        button.set_tooltip_text(name);
        button.set_valign(Gtk::Align::CENTER);
        setAccessibleName(button, name);
    };
    round(send_, "go-up-symbolic", _("Send"));
    send_.add_css_class("suggested-action");
    send_.signal_clicked().connect([this] { send(); });
    round(stop_, "media-playback-stop-symbolic", _("Stop"));
    stop_.signal_clicked().connect([this] {
        if (onStop) onStop();
        focusText();
    });
    bar_.append(stop_);
    bar_.append(send_);
    frame_.append(bar_);
    append(frame_);

    completions_.set_parent(text_);
    completions_.set_autohide(false);
    completions_.set_has_arrow(false);
    completions_.set_position(Gtk::PositionType::TOP);
    completions_.set_halign(Gtk::Align::START);
    completions_.add_css_class("completion");
    completionList_.set_selection_mode(Gtk::SelectionMode::BROWSE);
    completionList_.set_can_focus(false);
    completionList_.set_activate_on_single_click(true);
    completionList_.signal_row_activated().connect(
        [this](Gtk::ListBoxRow* row) { complete(row->get_index()); });
    setAccessibleName(completionList_, _("Commands"));
    completions_.set_child(completionList_);
    setScope(AIScope::vault);
    setStreaming(false);
    changed();
}

AssistantComposer::~AssistantComposer() {
    // The window takes the focus away only when this has gone.
    text_.remove_controller(focus_);
    completions_.unparent();
}

std::string AssistantComposer::draft() const {
    return text_.get_buffer()->get_text();
}

void AssistantComposer::setDraft(const std::string& text) {
    if (draft() == text) return;
    text_.get_buffer()->set_text(text);
}

void AssistantComposer::setScope(AIScope scope) {
    scopeAction_->change_state(Glib::ustring(std::string(rawValue(scope))));
    scope_.set_label(scopeWords(scope));
}

void AssistantComposer::setStreaming(bool streaming) {
    isStreaming_ = streaming;
    stop_.set_visible(streaming);
    changed();
}

void AssistantComposer::focusText() {
    text_.grab_focus();
}

bool AssistantComposer::hasKeyboard() const {
    return text_.has_focus();
}

void AssistantComposer::changed() {
    const auto typed = draft();
    placeholder_.set_visible(typed.empty());
    send_.set_sensitive(!trim(typed).empty());
    send_.set_visible(!isStreaming_ || !trim(typed).empty());
    showCompletions();
}

void AssistantComposer::send() {
    if (onSend && !trim(draft()).empty()) onSend(draft());
    focusText();
}

bool AssistantComposer::keyPressed(guint key, Gdk::ModifierType held) {
    if (isCompleting_) {
        const auto* row = completionList_.get_selected_row();
        const int index = row ? row->get_index() : 0, count = static_cast<int>(completing_.size());
        const auto select = [&](int next) {
            completionList_.select_row(*completionList_.get_row_at_index((next + count) % count));
        };
        switch (key) {
            case GDK_KEY_Down:
                select(index + 1);
                return true;
            case GDK_KEY_Up:
                select(index - 1);
                return true;
            case GDK_KEY_Tab:
            case GDK_KEY_Return:
            case GDK_KEY_KP_Enter:
                complete(index);
                return true;
            case GDK_KEY_Escape:
                closeCompletions();
                return true;
            default:
                break;
        }
    }
    const bool isReturn = key == GDK_KEY_Return || key == GDK_KEY_KP_Enter;
    if (isReturn && (held & Gdk::ModifierType::SHIFT_MASK) == Gdk::ModifierType()) {
        // An input method that is still composing takes the key for itself.
        auto* event = gtk_event_controller_get_current_event(GTK_EVENT_CONTROLLER(keys_->gobj()));
        if (event && gtk_text_view_im_context_filter_keypress(text_.gobj(), event)) return true;
        send();
        return true;
    }
    if (key == GDK_KEY_Escape && isStreaming_) {
        if (onStop) onStop();
        return true;
    }
    return false;
}

void AssistantComposer::showCompletions() {
    completing_ = SlashCommand::completions(draft(), commands());
    if (completing_.empty()) return closeCompletions();
    while (auto* row = completionList_.get_row_at_index(0)) completionList_.remove(*row);
    for (const auto& name : completing_) {
        auto* row = Gtk::make_managed<Gtk::Box>();
        row->set_spacing(10);
        auto* command = Gtk::make_managed<Gtk::Label>("/" + name);
        command->set_xalign(0);
        auto* words = Gtk::make_managed<Gtk::Label>(scopeWords(*aiScope(name)));
        words->add_css_class("dim-label");
        row->append(*command);
        row->append(*words);
        completionList_.append(*row);
    }
    completionList_.select_row(*completionList_.get_row_at_index(0));
    completions_.set_pointing_to(Gdk::Rectangle(8, 4, 1, 1));
    isCompleting_ = true;
    completions_.popup();
}

void AssistantComposer::closeCompletions() {
    if (!std::exchange(isCompleting_, false)) return;
    completions_.popdown();
}

void AssistantComposer::complete(int index) {
    if (index < 0 || static_cast<std::size_t>(index) >= completing_.size()) return;
    const auto name = completing_[static_cast<std::size_t>(index)];
    closeCompletions();
    text_.get_buffer()->set_text("/" + name + " ");
}

}  // namespace vesk::views
