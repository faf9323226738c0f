#include "Vesk/Views/NoteBanner.h"

#include "Vesk/Views/Toasts.h"

namespace vesk::views {

NoteBanner::NoteBanner() {
    for (auto* label : {&heading_, &text_}) {
        label->set_wrap(true);
        label->set_wrap_mode(Pango::WrapMode::WORD_CHAR);
        label->set_xalign(0);
        label->set_selectable(false);
        words_.append(*label);
    }
    heading_.add_css_class("heading");
    words_.set_spacing(2);
    words_.set_hexpand(true);
    words_.set_valign(Gtk::Align::CENTER);
    icon_.set_valign(Gtk::Align::START);
    icon_.set_margin_top(3);
    buttons_.set_spacing(6);
    buttons_.set_valign(Gtk::Align::CENTER);
    card_.set_spacing(12);
    card_.append(icon_);
    card_.append(words_);
    card_.append(buttons_);
    card_.add_css_class("note-banner");
    set_child(card_);
    set_reveal_child(false);
    set_visible(false);
    // One that is closed isn't there for a screen reader either.
    property_child_revealed().signal_changed().connect([this] {
        if (!get_child_revealed() && !get_reveal_child()) set_visible(false);
    });
    gtk_accessible_update_property(GTK_ACCESSIBLE(card_.gobj()), GTK_ACCESSIBLE_PROPERTY_LABEL, _("Notice"),
                                   -1);
}

void NoteBanner::present(const Contents& contents) {
    icon_.set_from_icon_name(contents.icon);
    heading_.set_text(contents.heading);
    text_.set_text(contents.text);
    for (auto& button : shown_) buttons_.remove(*button);
    shown_.clear();
    for (const auto& action : contents.actions) {
        auto button = std::make_unique<Gtk::Button>(action);
        if (shown_.empty()) button->add_css_class("suggested-action");
        button->signal_clicked().connect([this, action] {
            // Taken out first: the answer may bring another banner and take this button away.
            const auto chosen = action;
            if (onAction) onAction(chosen);
        });
        buttons_.append(*button);
        shown_.push_back(std::move(button));
    }
    set_visible(true);
    set_reveal_child(true);
    const auto words = contents.heading + "\n" + contents.text;
    auto* window = gtk_widget_get_root(raw(*this));
    // A failure that repeats while somebody types on is told once.
    if (words == announced_ || !GTK_IS_WINDOW(window)) return;
    takeBack();
    announced_ = words;
    takeBack_ = announce(GTK_WINDOW(window), words);
}

void NoteBanner::dismiss() {
    set_reveal_child(false);
    takeBack();
}

void NoteBanner::takeBack() {
    announced_.clear();
    if (takeBack_) std::exchange(takeBack_, nullptr)();
}

}  // namespace vesk::views
