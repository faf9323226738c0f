#include "Vesk/Views/Picker.h"

namespace vesk::views {
namespace {

constexpr int width = 520, height = 420;

/// Owned by its window.
class PickerWindow {
public:
    PickerWindow(GtkWindow* parent, const std::string& title, const std::string& placeholder,
                 Picker::Matches matches, std::function<void(const std::string&, const std::string&)> chosen)
        : window_(ADW_WINDOW(adw_window_new())), matches_(std::move(matches)), chosen_(std::move(chosen)) {
        auto* window = GTK_WINDOW(window_);
        gtk_window_set_transient_for(window, parent);
        gtk_window_set_modal(window, TRUE);
        gtk_window_set_default_size(window, width, height);
        gtk_window_set_title(window, title.c_str());
        setPlaceholder(entry_, placeholder.c_str());
        entry_.add_css_class("picker-entry");
        setAccessibleName(entry_, title.c_str());
        entry_.set_key_capture_widget(entry_);
        list_.add_css_class("navigation-sidebar");
        list_.set_selection_mode(Gtk::SelectionMode::BROWSE);
        list_.set_can_focus(false);
        auto* nothing = Gtk::make_managed<Gtk::Label>(_("Nothing fits"));
        nothing->add_css_class("dim-label");
        nothing->set_margin(24);
        list_.set_placeholder(*nothing);
        scroller_.set_child(list_);
        scroller_.set_vexpand(true);
        scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
        box_.append(entry_);
        box_.append(separator_);
        box_.append(scroller_);
        adw_window_set_content(window_, raw(box_));
        entry_.signal_changed().connect([this] { refill(); });
        entry_.signal_activate().connect([this] { choose(list_.get_selected_row()); });
        entry_.signal_stop_search().connect([this] { close(); });
        list_.signal_row_activated().connect([this](Gtk::ListBoxRow* row) { choose(row); });
        auto keys = Gtk::EventControllerKey::create();
        keys->set_propagation_phase(Gtk::PropagationPhase::CAPTURE);
        keys->signal_key_pressed().connect(
            [this](guint key, guint, Gdk::ModifierType) { return keyPressed(key); }, false);
        box_.add_controller(keys);
        onSignal(window_, "notify::is-active", [this] {
            const bool isActive = gtk_window_is_active(GTK_WINDOW(window_));
            if (wasActive_ && !isActive) close();
            wasActive_ = wasActive_ || isActive;
        });
        g_object_set_data_full(G_OBJECT(window_), "vesk-picker", this,
                               [](gpointer self) { delete static_cast<PickerWindow*>(self); });
        refill();
        gtk_window_present(window);
        entry_.grab_focus();
    }

private:
    void refill() {
        items_ = matches_(entry_.get_text());
        while (auto* row = list_.get_row_at_index(0)) list_.remove(*row);
        for (const auto& item : items_) {
            auto* row = Gtk::make_managed<Gtk::Box>();
            row->set_spacing(10);
            if (!item.icon.empty()) {
                auto* icon = Gtk::make_managed<Gtk::Image>();
                icon->set_from_icon_name(item.icon);
                row->append(*icon);
            }
            auto* title = Gtk::make_managed<Gtk::Label>(item.title);
            title->set_ellipsize(Pango::EllipsizeMode::END);
            title->set_xalign(0);
            title->set_hexpand(item.detail.empty());
            row->append(*title);
            if (!item.detail.empty()) {
                auto* detail = Gtk::make_managed<Gtk::Label>(item.detail);
                detail->add_css_class("dim-label");
                detail->add_css_class("caption");
                detail->set_ellipsize(Pango::EllipsizeMode::MIDDLE);
                detail->set_xalign(0);
                detail->set_hexpand(true);
                row->append(*detail);
            }
            if (!item.key.empty()) {
                auto* keys = gtk_shortcut_label_new(item.key.c_str());
                gtk_widget_add_css_class(keys, "dim-label");
                gtk_box_append(row->gobj(), keys);
            }
            list_.append(*row);
        }
        if (auto* first = list_.get_row_at_index(0)) list_.select_row(*first);
        scroller_.get_vadjustment()->set_value(0);
    }

    bool keyPressed(guint key) {
        const auto* row = list_.get_selected_row();
        const int index = row ? row->get_index() : -1, count = static_cast<int>(items_.size());
        int next = index;
        switch (key) {
            case GDK_KEY_Down:
                next = index + 1;
                break;
            case GDK_KEY_Up:
                next = index - 1;
                break;
            case GDK_KEY_Page_Down:
                next = std::min(index + 8, count - 1);
                break;
            case GDK_KEY_Page_Up:
                next = std::max(index - 8, 0);
                break;
            case GDK_KEY_Escape:
                close();
                return true;
            default:
                return false;
        }
        if (count == 0) return true;
        auto* wanted = list_.get_row_at_index((next + count) % count);
        list_.select_row(*wanted);
        double x = 0, y = 0;
        if (wanted->translate_coordinates(list_, 0, 0, x, y)) {
            const auto seen = scroller_.get_vadjustment();
            seen->clamp_page(y, y + wanted->get_height());
        }
        return true;
    }

    void choose(Gtk::ListBoxRow* row) {
        if (!row) return;
        const auto id = items_[static_cast<std::size_t>(row->get_index())].id;
        const std::string typed = entry_.get_text();
        const auto chosen = std::move(chosen_);
        close();
        if (chosen) chosen(id, typed);
    }

    void close() {
        if (isClosing_) return;
        isClosing_ = true;
        gtk_window_close(GTK_WINDOW(window_));
    }

    AdwWindow* window_;
    Picker::Matches matches_;
    std::function<void(const std::string&, const std::string&)> chosen_;
    std::vector<PickerItem> items_;
    Gtk::Box box_{Gtk::Orientation::VERTICAL};
    Gtk::SearchEntry entry_;
    Gtk::Separator separator_;
    Gtk::ScrolledWindow scroller_;
    Gtk::ListBox list_;
    bool wasActive_ = false, isClosing_ = false;
};

}  // namespace

void Picker::show(GtkWindow* parent, const std::string& title, const std::string& placeholder,
                  Matches matches, std::function<void(const std::string&, const std::string&)> chosen) {
    new PickerWindow(parent, title, placeholder, std::move(matches), std::move(chosen));
}

}  // namespace vesk::views
