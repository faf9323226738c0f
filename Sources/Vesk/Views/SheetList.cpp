#include "Vesk/Views/SheetList.h"

namespace vesk::views {
namespace {

/// A heading, or a row and its place in the section's card.
class Item final : public Glib::Object {
public:
    static Glib::RefPtr<Item> heading(std::string title) {
        return Glib::make_refptr_for_instance<Item>(new Item(std::move(title), 0, false, false));
    }
    static Glib::RefPtr<Item> row(int id, bool isFirst, bool isLast) {
        return Glib::make_refptr_for_instance<Item>(new Item({}, id, isFirst, isLast));
    }
    const std::string title;
    const int id;
    const bool isFirst, isLast;

private:
    Item(std::string words, int number, bool begins, bool ends)
        : title(std::move(words)), id(number), isFirst(begins), isLast(ends) {}
};

/// The one widget that the list keeps for either kind.
class Cell final : public Gtk::Box {
public:
    explicit Cell(SheetRow* made) : Gtk::Box(Gtk::Orientation::VERTICAL), row(made) {
        heading_.set_xalign(0);
        heading_.add_css_class("heading");
        heading_.add_css_class("sheet-heading");
        row->add_css_class("sheet-row");
        append(heading_);
        append(*row);
    }
    void show(const Item& item) {
        heading_.set_visible(!item.title.empty());
        heading_.set_text(item.title);
        row->set_visible(item.title.empty());
        if (!item.title.empty()) return;
        item.isFirst ? row->add_css_class("first") : row->remove_css_class("first");
        item.isLast ? row->add_css_class("last") : row->remove_css_class("last");
        row->show(item.id);
    }
    SheetRow* const row;

private:
    Gtk::Label heading_;
};

Glib::RefPtr<Item> itemOf(const Glib::RefPtr<Gtk::ListItem>& item) {
    return std::dynamic_pointer_cast<Item>(item->get_item());
}

}  // namespace

void limitSheetWidth(GtkWidget* clamp) {
    constexpr int widest = 600;
    // Not by how much room the content would like: all parts of a sheet are one column.
    g_object_set(clamp, "maximum-size", widest, "tightening-threshold", widest, nullptr);
}

SheetList::SheetList(std::function<SheetRow*()> make) : make_(std::move(make)) {
    auto factory = Gtk::SignalListItemFactory::create();
    factory->signal_setup().connect([this](const Glib::RefPtr<Gtk::ListItem>& item) {
        item->set_child(*Gtk::make_managed<Cell>(make_()));
    });
    factory->signal_bind().connect([this](const Glib::RefPtr<Gtk::ListItem>& item) {
        const auto bound = itemOf(item);
        auto* cell = dynamic_cast<Cell*>(item->get_child());
        if (!bound || !cell) return;
        item->set_activatable(bound->title.empty());
        if (bound->title.empty()) inSight_[bound->id] = cell->row;
        cell->show(*bound);
    });
    factory->signal_unbind().connect([this](const Glib::RefPtr<Gtk::ListItem>& item) {
        const auto bound = itemOf(item);
        auto* cell = dynamic_cast<Cell*>(item->get_child());
        const auto shown = bound ? inSight_.find(bound->id) : inSight_.end();
        // The same id may stand in another widget by now.
        if (cell && shown != inSight_.end() && shown->second == cell->row) inSight_.erase(shown);
    });
    list_.set_factory(factory);
    list_.set_single_click_activate(true);
    list_.add_css_class("sheet-list");
    list_.signal_activate().connect([this](guint position) {
        if (position < ids_.size() && ids_[position] && onActivated) onActivated(*ids_[position]);
    });
    set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    set_vexpand(true);
    auto* clamp = adw_clamp_scrollable_new();
    limitSheetWidth(clamp);
    adw_clamp_scrollable_set_child(ADW_CLAMP_SCROLLABLE(clamp), raw(list_));
    gtk_scrolled_window_set_child(gobj(), clamp);
}

void SheetList::setSections(const std::vector<Section>& sections) {
    auto rows = Gio::ListStore<Item>::create();
    std::vector<Glib::RefPtr<Item>> items;
    for (const auto& section : sections) {
        if (!section.title.empty()) items.push_back(Item::heading(section.title));
        for (std::size_t i = 0; i < section.rows.size(); ++i)
            items.push_back(Item::row(section.rows[i], i == 0, i + 1 == section.rows.size()));
    }
    ids_.clear();
    for (const auto& item : items)
        ids_.push_back(item->title.empty() ? std::optional(item->id) : std::nullopt);
    rows->splice(0, 0, items);
    inSight_.clear();
    list_.set_model(Gtk::NoSelection::create(rows));
}

void SheetList::refresh(int id) {
    const auto shown = inSight_.find(id);
    if (shown != inSight_.end()) shown->second->show(id);
}

void SheetList::refreshAll() {
    for (const auto& [id, row] : inSight_) row->show(id);
}

}  // namespace vesk::views
