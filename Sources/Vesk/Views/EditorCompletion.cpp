#include "Vesk/Views/EditorCompletion.h"

#include "Vesk/Views/StyledBuffer.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::views {
namespace {

constexpr std::size_t mostShown = 8;

}  // namespace

EditorCompletion::EditorCompletion(Gtk::TextView& view, StyledBuffer& content)
    : view_(view), content_(content) {
    popover_.set_parent(view_);
    popover_.set_autohide(false);
    popover_.set_has_arrow(false);
    popover_.set_position(Gtk::PositionType::BOTTOM);
    popover_.set_halign(Gtk::Align::START);
    popover_.add_css_class("completion");
    list_.set_selection_mode(Gtk::SelectionMode::BROWSE);
    list_.set_can_focus(false);
    list_.set_activate_on_single_click(true);
    list_.signal_row_activated().connect([this](Gtk::ListBoxRow* row) { choose(row->get_index()); });
    setAccessibleName(list_, _("Completions"));
    popover_.set_child(list_);
}

EditorCompletion::~EditorCompletion() {
    popover_.unparent();
}

void EditorCompletion::update() {
    const auto text = content_.text();
    const auto selection = content_.selection();
    prefix_ = selection.empty() && candidates ? Completion::prefixAt(text, selection.location) : std::nullopt;
    const auto known = prefix_ ? candidates(*prefix_) : nullptr;
    if (!known) return close();
    shown_.clear();
    for (const auto index : known->matching(utf8(prefix_->typed), mostShown))
        shown_.push_back((*known)[index].text);
    if (shown_.empty()) return close();
    while (auto* row = list_.get_row_at_index(0)) list_.remove(*row);
    for (const auto& words : shown_) {
        auto* label = Gtk::make_managed<Gtk::Label>(words);
        label->set_xalign(0);
        label->set_ellipsize(Pango::EllipsizeMode::MIDDLE);
        label->set_max_width_chars(48);
        list_.append(*label);
    }
    list_.select_row(*list_.get_row_at_index(0));
    const GtkTextIter at = content_.iterAt(prefix_->replaced.location);
    GdkRectangle place;
    gtk_text_view_get_iter_location(view_.gobj(), &at, &place);
    gtk_text_view_buffer_to_window_coords(view_.gobj(), GTK_TEXT_WINDOW_WIDGET, place.x, place.y, &place.x,
                                          &place.y);
    place.width = 1;
    popover_.set_pointing_to(Gdk::Rectangle(place.x, place.y, place.width, place.height));
    isOpen_ = true;
    popover_.popup();
}

void EditorCompletion::close() {
    if (!isOpen_) return;
    isOpen_ = false;
    popover_.popdown();
}

bool EditorCompletion::keyPressed(guint key) {
    if (!isOpen_) return false;
    const auto* row = list_.get_selected_row();
    const int index = row ? row->get_index() : 0, count = static_cast<int>(shown_.size());
    const auto select = [&](int next) { list_.select_row(*list_.get_row_at_index((next + count) % count)); };
    switch (key) {
        case GDK_KEY_Down:
            select(index + 1);
            return true;
        case GDK_KEY_Up:
            select(index - 1);
            return true;
        case GDK_KEY_Return:
        case GDK_KEY_KP_Enter:
        case GDK_KEY_Tab:
            choose(index);
            return true;
        case GDK_KEY_Escape:
            close();
            return true;
        default:
            return false;
    }
}

void EditorCompletion::choose(int index) {
    if (!prefix_ || index < 0 || static_cast<std::size_t>(index) >= shown_.size()) return;
    const auto edit =
        Completion::insertion(content_.text(), *prefix_, utf16(shown_[static_cast<std::size_t>(index)]));
    close();
    if (onChosen) onChosen(edit);
}

}  // namespace vesk::views
