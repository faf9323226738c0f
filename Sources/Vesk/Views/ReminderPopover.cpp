#include "Vesk/Views/ReminderPopover.h"

#include "VeskCore/Support/Localised.h"

namespace vesk::views {
namespace {

constexpr int width = 280;

}  // namespace

ReminderPopover::ReminderPopover() {
    headline_.set_text(localised(ReminderMenu::headline));
    headline_.add_css_class("heading");
    headline_.set_xalign(0);
    summary_.set_xalign(0);
    summary_.add_css_class("dim-label");
    silenced_.set_xalign(0);
    silenced_.set_wrap(true);
    silenced_.set_max_width_chars(34);
    phrase_.set_placeholder_text(_("tomorrow 3pm, in 2 hours, friday…"));
    setAccessibleName(phrase_, _("When to remind"));
    phrase_.signal_changed().connect([this] { read(); });
    phrase_.signal_activate().connect([this] { enter(); });
    read_.set_xalign(0);
    read_.set_visible(false);
    setAccessibleName(rules_, _("Repeat"));
    rules_.property_selected().signal_changed().connect([this] {
        // Without a date the rule waits for one.
        if (!isFilling_ && shown_ && shown_->current && onSet) onSet(*shown_->current, chosenRule());
        if (!isFilling_ && shown_ && shown_->current) fill();
    });
    flagged_.signal_toggled().connect([this] {
        if (!isFilling_ && onFlagged) onFlagged(flagged_.get_active());
    });
    remove_.add_css_class("destructive-action");
    remove_.signal_clicked().connect([this] {
        popdown();
        if (onRemove) onRemove();
    });
    page_.set_margin(6);
    page_.set_size_request(width, -1);
    for (Gtk::Widget* part : std::initializer_list<Gtk::Widget*>{
             &headline_, &summary_, &silenced_, &phrase_, &read_, &picks_, &rules_, &flagged_, &remove_})
        page_.append(*part);
    set_child(page_);
    signal_show().connect([this] {
        phrase_.set_text("");
        fill();
        phrase_.grab_focus();
    });
}

void ReminderPopover::fill() {
    isFilling_ = true;
    shown_ = menu ? menu() : std::nullopt;
    page_.set_sensitive(shown_.has_value());
    while (auto* old = picks_.get_first_child()) picks_.remove(*old);
    if (shown_) {
        summary_.set_text(shown_->summary);
        silenced_.set_visible(shown_->silenced.has_value());
        silenced_.set_text(shown_->silenced.value_or(""));
        for (const auto& pick : shown_->picks) {
            auto* row = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::HORIZONTAL, 12);
            auto* label = Gtk::make_managed<Gtk::Label>(pick.label);
            auto* detail = Gtk::make_managed<Gtk::Label>(pick.detail);
            label->set_xalign(0);
            label->set_hexpand(true);
            detail->add_css_class("dim-label");
            row->append(*label);
            row->append(*detail);
            auto* button = Gtk::make_managed<Gtk::Button>();
            button->set_child(*row);
            button->add_css_class("flat");
            setAccessibleName(*button, pick.label.c_str());
            button->signal_clicked().connect([this, date = pick.date] { set(date); });
            picks_.append(*button);
        }
        std::vector<Glib::ustring> labels;
        guint selected = 0;
        for (const auto& rule : shown_->rules) {
            if (rule.repeat == shown_->rule) selected = static_cast<guint>(labels.size());
            labels.push_back(rule.label);
        }
        rules_.set_model(Gtk::StringList::create(labels));
        rules_.set_selected(selected);
        flagged_.set_active(shown_->flagged);
        remove_.set_visible(shown_->current.has_value());
    }
    isFilling_ = false;
}

void ReminderPopover::read() {
    const auto found = reading ? reading(phrase_.get_text()) : ReminderMenu::Reading{};
    read_.set_text(found.words);
    read_.set_visible(!found.words.empty());
    const bool isWrong = !found.words.empty() && !found.date && !found.removes;
    isWrong ? read_.add_css_class("dim-label") : read_.remove_css_class("dim-label");
}

void ReminderPopover::enter() {
    const auto found = reading ? reading(phrase_.get_text()) : ReminderMenu::Reading{};
    if (found.date) return set(*found.date);
    if (!found.removes) return;
    popdown();
    if (onRemove) onRemove();
}

void ReminderPopover::set(TimePoint date) {
    const auto rule = chosenRule();
    popdown();
    if (onSet) onSet(date, rule);
}

std::optional<NoteReminder::Repeat> ReminderPopover::chosenRule() const {
    const auto selected = rules_.get_selected();
    return shown_ && selected < shown_->rules.size() ? shown_->rules[selected].repeat : std::nullopt;
}

}  // namespace vesk::views
