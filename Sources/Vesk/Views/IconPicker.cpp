#include "Vesk/Views/IconPicker.h"

#include "Vesk/Views/CharmGlyphs.h"

namespace vesk::views {
namespace {

constexpr int width = 460, height = 480;
constexpr int swatchesInARow = 6;

/// Owned by its window.
class IconPickerWindow {
public:
    IconPickerWindow(GtkWindow* parent, const std::optional<std::string>& current,
                     std::function<void(const std::optional<std::string>&)> chosen)
        : window_(ADW_WINDOW(adw_window_new())), chosen_(std::move(chosen)) {
        auto* window = GTK_WINDOW(window_);
        gtk_window_set_transient_for(window, parent);
        gtk_window_set_modal(window, TRUE);
        gtk_window_set_default_size(window, width, height);
        gtk_window_set_title(window, _("Choose an Icon"));
        auto* bar = ADW_HEADER_BAR(adw_header_bar_new());
        none_.set_label(_("No Icon"));
        none_.set_sensitive(current.has_value());
        none_.signal_clicked().connect([this] { choose(std::nullopt); });
        adw_header_bar_pack_start(bar, raw(none_));
        setPlaceholder(entry_, _("Search icons"));
        setAccessibleName(entry_, _("Search icons"));
        entry_.set_margin(12);
        entry_.set_margin_top(6);
        entry_.signal_changed().connect([this] { narrow(); });
        entry_.signal_activate().connect([this] {
            for (const auto& group : groups_)
                for (const auto& charm : group.charms)
                    if (charm.matches(std::string(entry_.get_text()))) return choose(std::string(charm.id));
        });
        entry_.signal_stop_search().connect([this] { close(); });
        page_.set_margin_start(12);
        page_.set_margin_end(12);
        page_.set_margin_bottom(18);
        for (const auto group : Charm::groups()) addGroup(group, current);
        nothing_.set_text(_("Nothing fits"));
        nothing_.add_css_class("dim-label");
        nothing_.set_margin(24);
        nothing_.set_visible(false);
        page_.append(nothing_);
        scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
        scroller_.set_child(page_);
        scroller_.set_vexpand(true);
        gtk_box_append(box_.gobj(), GTK_WIDGET(bar));
        box_.append(entry_);
        box_.append(scroller_);
        adw_window_set_content(window_, raw(box_));
        auto keys = Gtk::EventControllerKey::create();
        keys->signal_key_pressed().connect(
            [this](guint key, guint, Gdk::ModifierType) {
                if (key != GDK_KEY_Escape) return false;
                close();
                return true;
            },
            false);
        box_.add_controller(keys);
        g_object_set_data_full(G_OBJECT(window_), "vesk-icon-picker", this,
                               [](gpointer self) { delete static_cast<IconPickerWindow*>(self); });
        gtk_window_present(window);
        entry_.grab_focus();
    }

private:
    struct Group {
        Gtk::Label* heading;
        Gtk::FlowBox* icons;
        std::vector<Charm> charms;
    };

    void addGroup(Charm::Group id, const std::optional<std::string>& current) {
        Group group{.heading = Gtk::make_managed<Gtk::Label>(gettext(std::string(title(id)).c_str())),
                    .icons = Gtk::make_managed<Gtk::FlowBox>(),
                    .charms = Charm::catalog(id)};
        group.heading->add_css_class("heading");
        group.heading->set_xalign(0);
        group.heading->set_margin_top(12);
        group.heading->set_margin_bottom(6);
        group.icons->set_selection_mode(Gtk::SelectionMode::SINGLE);
        group.icons->set_homogeneous(true);
        group.icons->set_max_children_per_line(12);
        group.icons->set_min_children_per_line(6);
        group.icons->set_activate_on_single_click(true);
        setAccessibleName(*group.icons, group.heading->get_text().c_str());
        for (const auto& charm : group.charms) {
            auto* picture = Gtk::make_managed<Gtk::Label>(std::string(glyph(charm.id)));
            picture->add_css_class("charm");
            const auto* name = gettext(std::string(charm.label).c_str());
            picture->set_tooltip_text(name);
            group.icons->append(*picture);
            auto* child = dynamic_cast<Gtk::FlowBoxChild*>(picture->get_parent());
            setAccessibleName(*child, name);
            if (current == charm.id) group.icons->select_child(*child);
        }
        group.icons->signal_child_activated().connect(
            [this, charms = group.charms](Gtk::FlowBoxChild* child) {
                choose(std::string(charms[static_cast<std::size_t>(child->get_index())].id));
            });
        page_.append(*group.heading);
        page_.append(*group.icons);
        groups_.push_back(std::move(group));
    }

    void narrow() {
        const std::string typed = entry_.get_text();
        bool any = false;
        for (const auto& group : groups_) {
            bool here = false;
            for (std::size_t place = 0; place < group.charms.size(); ++place) {
                const bool fits = group.charms[place].matches(typed);
                group.icons->get_child_at_index(static_cast<int>(place))->set_visible(fits);
                here = here || fits;
            }
            group.heading->set_visible(here);
            group.icons->set_visible(here);
            any = any || here;
        }
        nothing_.set_visible(!any);
        scroller_.get_vadjustment()->set_value(0);
    }

    void choose(const std::optional<std::string>& symbol) {
        const auto chosen = std::move(chosen_);
        chosen_ = nullptr;
        const auto copy = symbol;
        close();
        if (chosen) chosen(copy);
    }

    void close() {
        if (std::exchange(isClosing_, true)) return;
        gtk_window_close(GTK_WINDOW(window_));
    }

    AdwWindow* window_;
    std::function<void(const std::optional<std::string>&)> chosen_;
    std::vector<Group> groups_;
    Gtk::Box box_{Gtk::Orientation::VERTICAL}, page_{Gtk::Orientation::VERTICAL};
    Gtk::Button none_;
    Gtk::SearchEntry entry_;
    Gtk::ScrolledWindow scroller_;
    Gtk::Label nothing_;
    bool isClosing_ = false;
};

}  // namespace

void showIconPicker(GtkWindow* parent, const std::optional<std::string>& current,
                    std::function<void(const std::optional<std::string>& symbol)> chosen) {
    new IconPickerWindow(parent, current, std::move(chosen));
}

Gtk::Widget& colorSwatches(std::optional<FolderColor> current,
                           const std::function<void(std::optional<FolderColor>)>& chosen) {
    auto* grid = Gtk::make_managed<Gtk::Grid>();
    grid->set_margin(6);
    grid->set_row_spacing(4);
    grid->set_column_spacing(4);
    grid->set_halign(Gtk::Align::CENTER);
    int place = 0;
    const auto add = [&](std::optional<FolderColor> color, const char* name) {
        auto* button = Gtk::make_managed<Gtk::ToggleButton>();
        auto* dot = Gtk::make_managed<Gtk::Box>();
        dot->add_css_class("swatch");
        if (color) {
            dot->add_css_class("colored");
            dot->add_css_class("folder-" + std::string(rawValue(*color)));
        }
        dot->set_halign(Gtk::Align::CENTER);
        dot->set_valign(Gtk::Align::CENTER);
        button->set_child(*dot);
        button->add_css_class("flat");
        button->add_css_class("circular");
        button->set_active(color == current);
        button->set_tooltip_text(name);
        setAccessibleName(*button, name);
        button->signal_clicked().connect([chosen, color] {
            const auto act = chosen;  // the menu goes, and this button with it
            act(color);
        });
        grid->attach(*button, place % swatchesInARow, place / swatchesInARow);
        ++place;
    };
    for (const auto color : allFolderColors()) add(color, gettext(displayName(color).c_str()));
    add(std::nullopt, _("No Colour"));
    return *grid;
}

}  // namespace vesk::views
