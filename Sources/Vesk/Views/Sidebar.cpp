#include "Vesk/Views/Sidebar.h"

#include <algorithm>

namespace vesk::views {
namespace {

/// One row as the list's model hands it out.
class RowObject final : public Glib::Object {
public:
    static Glib::RefPtr<RowObject> create(SidebarRow row) {
        return Glib::make_refptr_for_instance<RowObject>(new RowObject(std::move(row)));
    }
    const SidebarRow row;

private:
    explicit RowObject(SidebarRow given) : row(std::move(given)) {}
};

/// Stands for the trash where a folder's path is meant; no folder has this name.
constexpr const char* trashTarget = "/";

/// The path of the note that is being dragged; one pointer drags one.
std::string dragged;

Glib::RefPtr<RowObject> rowOf(const Glib::RefPtr<Glib::ObjectBase>& item) {
    return std::dynamic_pointer_cast<RowObject>(item);
}

}  // namespace

/// Makes its rows, and an object for each of them, when the list first asks: a level is also made to learn
/// that a folder can be opened.
class SidebarLevel final : public Gio::ListModel, public Glib::Object {
public:
    using Make = std::function<Sidebar::Rows()>;

    static Glib::RefPtr<SidebarLevel> create(Make make) {
        return Glib::make_refptr_for_instance<SidebarLevel>(new SidebarLevel(std::move(make)));
    }

    /// Empty until the list has asked.
    const Sidebar::Rows& rows() const { return rows_; }

    /// Tells of the stretch between the first and the last difference.
    void refresh() {
        if (!isMade_) return;
        Sidebar::Rows rows = make_();
        std::size_t before = 0, after = 0;
        const auto least = std::min(rows.size(), rows_.size());
        while (before < least && rows[before] == rows_[before]) ++before;
        while (after < least - before && rows[rows.size() - 1 - after] == rows_[rows_.size() - 1 - after])
            ++after;
        const auto removed = rows_.size() - before - after, added = rows.size() - before - after;
        rows_ = std::move(rows);
        if (removed == 0 && added == 0) return;
        const auto first = objects_.begin() + static_cast<std::ptrdiff_t>(before);
        objects_.insert(objects_.erase(first, first + static_cast<std::ptrdiff_t>(removed)), added, {});
        items_changed(static_cast<guint>(before), static_cast<guint>(removed), static_cast<guint>(added));
    }

protected:
    GType get_item_type_vfunc() override { return RowObject::get_base_type(); }
    guint get_n_items_vfunc() override {
        if (!std::exchange(isMade_, true)) {
            rows_ = make_();
            objects_.resize(rows_.size());
        }
        return static_cast<guint>(rows_.size());
    }
    gpointer get_item_vfunc(guint position) override {
        if (position >= rows_.size()) return nullptr;
        auto& object = objects_[position];
        if (!object) object = RowObject::create(rows_[position]);
        return g_object_ref(object->gobj());
    }

private:
    explicit SidebarLevel(Make make) : Glib::ObjectBase(typeid(SidebarLevel)), make_(std::move(make)) {}

    const Make make_;
    bool isMade_ = false;
    Sidebar::Rows rows_;
    std::vector<Glib::RefPtr<RowObject>> objects_;
};

namespace {

/// What one row shows.
class RowWidget final : public Gtk::TreeExpander {
public:
    RowWidget() {
        icon_.set_pixel_size(16);
        title_.set_ellipsize(Pango::EllipsizeMode::END);
        title_.set_xalign(0);
        title_.set_hexpand(true);
        detail_.add_css_class("row-detail");
        detail_.add_css_class("dim-label");
        detail_.add_css_class("caption");
        detail_.add_css_class("numeric");
        box_.set_spacing(8);
        box_.append(icon_);
        box_.append(glyph_);
        box_.append(title_);
        box_.append(detail_);
        set_child(box_);
        set_indent_for_icon(true);
    }

    void present(const SidebarRow& row) {
        const bool isHeader = row.kind == SidebarRow::Kind::header;
        icon_.set_visible(!row.icon.empty());
        if (!row.icon.empty()) icon_.set_from_icon_name(row.icon);
        glyph_.set_visible(!row.glyph.empty());
        glyph_.set_text(row.glyph);
        for (const auto& old : colors_) icon_.remove_css_class(old);
        colors_.clear();
        if (!row.color.empty()) {
            colors_.push_back("folder-" + row.color);
            icon_.add_css_class(colors_.back());
        }
        title_.set_text(row.title);
        detail_.set_text(row.detail);
        detail_.set_visible(!row.detail.empty());
        const bool isFaint = isHeader || row.kind == SidebarRow::Kind::placeholder;
        for (const char* name : {"heading", "dim-label", "caption-heading"}) title_.remove_css_class(name);
        if (isFaint) title_.add_css_class("dim-label");
        if (isHeader) title_.add_css_class("caption-heading");
        if (isHeader) {
            add_css_class("section-row");
        } else {
            remove_css_class("section-row");
        }
        box_.set_tooltip_text(isHeader ? "" : row.help.empty() ? row.path : row.help);
        title_.set_tooltip_text(row.help);
    }

    /// The entry in the place of the title.
    void take(Gtk::Entry& entry) {
        title_.set_visible(false);
        detail_.set_visible(false);
        box_.append(entry);
    }
    void release(Gtk::Entry& entry) {
        box_.remove(entry);
        title_.set_visible(true);
        detail_.set_visible(!detail_.get_text().empty());
    }

    std::optional<SidebarRow> row() {
        const auto listRow = get_list_row();
        const auto object = listRow ? rowOf(listRow->get_item()) : nullptr;
        if (!object) return {};
        return object->row;
    }
    ~RowWidget() override {
        if (onGone) onGone();
    }
    std::function<void()> onGone;
    sigc::connection expansion;

private:
    Gtk::Box box_;
    Gtk::Image icon_;
    Gtk::Label glyph_, title_, detail_;
    std::vector<Glib::ustring> colors_;
};

}  // namespace

Sidebar::Sidebar() {
    set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    set_vexpand(true);
    auto factory = Gtk::SignalListItemFactory::create();
    factory->signal_setup().connect([this](const Glib::RefPtr<Gtk::ListItem>& item) { setUp(item); });
    factory->signal_bind().connect([this](const Glib::RefPtr<Gtk::ListItem>& item) { bind(item); });
    factory->signal_unbind().connect([this](const Glib::RefPtr<Gtk::ListItem>& item) {
        auto* widget = dynamic_cast<RowWidget*>(item->get_child());
        if (!widget) return;
        if (edit_ && edit_->widget == widget) endEdit(Ending::dropped, false);
        widget->expansion.disconnect();
    });
    buildEntry();
    list_.set_factory(factory);
    list_.add_css_class("navigation-sidebar");
    list_.set_single_click_activate(false);
    setAccessibleName(list_, _("Notes and folders"));
    auto keys = Gtk::EventControllerKey::create();
    keys->signal_key_pressed().connect(
        [this](guint key, guint, Gdk::ModifierType held) {
            const bool isShift = (held & Gdk::ModifierType::SHIFT_MASK) == Gdk::ModifierType::SHIFT_MASK;
            return (key == GDK_KEY_Menu || (key == GDK_KEY_F10 && isShift)) && menuAtKeyboard();
        },
        false);
    list_.add_controller(keys);
    set_child(list_);
}

void Sidebar::buildEntry() {
    entry_.set_hexpand(true);
    entry_.add_css_class("row-entry");
    setAccessibleName(entry_, _("New name"));
    entry_.signal_activate().connect([this] { endEdit(Ending::taken, true); });
    auto keys = Gtk::EventControllerKey::create();
    keys->signal_key_pressed().connect(
        [this](guint key, guint, Gdk::ModifierType) {
            if (key != GDK_KEY_Escape) return false;
            endEdit(Ending::dropped, true);
            return true;
        },
        false);
    entry_.add_controller(keys);
    auto focus = Gtk::EventControllerFocus::create();
    focus->signal_leave().connect([this] {
        // What is typed isn't lost because the person went on elsewhere; another window may come back.
        if (gtk_window_is_active(GTK_WINDOW(gtk_widget_get_root(raw(*this))))) endEdit(Ending::taken, false);
    });
    entry_.add_controller(focus);
    entry_.signal_changed().connect([this] { showRefusal(false); });
}

void Sidebar::showRefusal(bool isRefused) {
    isRefused ? entry_.add_css_class("error") : entry_.remove_css_class("error");
    gtk_accessible_update_state(GTK_ACCESSIBLE(entry_.gobj()), GTK_ACCESSIBLE_STATE_INVALID,
                                isRefused ? GTK_ACCESSIBLE_INVALID_TRUE : GTK_ACCESSIBLE_INVALID_FALSE, -1);
}

std::optional<SidebarRow> Sidebar::focused() const {
    // The keyboard is at the row or at what the toolkit puts around it.
    for (auto* widget : rows_) {
        const auto* around = widget->get_parent();
        if (widget->has_focus() || (around && around->has_focus()))
            return dynamic_cast<RowWidget&>(*widget).row();
    }
    return {};
}

void Sidebar::edit(const SidebarRow& row, const std::string& name) {
    endEdit(Ending::taken, false);
    awaited_.clear();
    const auto found = std::find_if(rows_.begin(), rows_.end(), [&](Gtk::Widget* candidate) {
        const auto shown = dynamic_cast<RowWidget&>(*candidate).row();
        return candidate->get_mapped() && shown && shown->id == row.id;
    });
    if (found != rows_.end()) beginEdit(**found, row, name);
}

void Sidebar::beginEdit(Gtk::Widget& widget, const SidebarRow& row, const std::string& name) {
    edit_ = Edit{&widget, row, name};
    dynamic_cast<RowWidget&>(widget).take(entry_);
    entry_.set_text(name);
    showRefusal(false);
    entry_.grab_focus();
    entry_.select_region(0, -1);
}

void Sidebar::editDraft(const std::string& below) {
    refresh();
    if (!below.empty()) expand(below);
    const auto isDraft = [](const SidebarRow& row) { return row.kind == SidebarRow::Kind::draft; };
    const auto handle = find(isDraft);
    const auto object = handle ? rowOf(handle->get_item()) : nullptr;
    if (!object) return;
    edit(object->row, "");
    if (edit_) return;
    awaited_ = object->row.id;
    gtk_widget_activate_action(GTK_WIDGET(list_.gobj()), "list.scroll-to-item", "u", handle->get_position());
}

void Sidebar::endEdit(Ending ending, bool keepsKeyboard) {
    if (!edit_ || isNaming_) return;
    const std::string name = entry_.get_text();
    const bool isNamed = name.find_first_not_of(" \t") != std::string::npos;
    if (ending == Ending::taken && isNamed && name != edit_->name && onNamed) {
        isNaming_ = true;
        const bool isTaken = onNamed(edit_->row, name);
        isNaming_ = false;
        // Who asked for it has the name there to be mended; who went on elsewhere isn't called back.
        if (!isTaken && keepsKeyboard) {
            showRefusal(true);
            entry_.grab_focus();
            return;
        }
    }
    const auto edit = *std::exchange(edit_, std::nullopt);
    dynamic_cast<RowWidget&>(*edit.widget).release(entry_);
    if (keepsKeyboard) list_.grab_focus();
    if (edit.row.kind == SidebarRow::Kind::draft) {
        isRefreshWanted_ = true;
        if (onDraftEnded) onDraftEnded();
    }
    if (std::exchange(isRefreshWanted_, false)) Glib::signal_idle().connect_once([this] { refresh(); });
}

void Sidebar::follow(const std::string& from, const std::string& to) {
    std::set<std::string> ids;
    for (const auto& id : expanded_)
        ids.insert(id == from || id.starts_with(from + "/") ? to + id.substr(from.size()) : id);
    expanded_ = std::move(ids);
}

bool Sidebar::menuAtKeyboard() {
    const auto row = focused();
    if (!row || !onMenu) return false;
    double x = 0, y = 0;
    if (auto* focus = gtk_window_get_focus(GTK_WINDOW(gtk_widget_get_root(raw(list_)))))
        gtk_widget_translate_coordinates(focus, raw(*this), 24, gtk_widget_get_height(focus), &x, &y);
    onMenu(*row, x, y);
    return true;
}

void Sidebar::press(const SidebarRow& row) {
    if (row.kind == SidebarRow::Kind::organise && onPressed) onPressed(row);
}

Glib::RefPtr<Gio::ListModel> Sidebar::level(const Glib::RefPtr<Glib::ObjectBase>& item) {
    const auto object = rowOf(item);
    if (!object || !object->row.hasChildren) return {};
    auto found = SidebarLevel::create([this, id = object->row.id] { return rowsBelow(id); });
    levels_[object->row.id] = found;
    return found;
}

void Sidebar::refresh() {
    if (!rowsBelow) return;
    if (edit_) {
        // The row in which somebody writes stays where it is.
        isRefreshWanted_ = true;
        return;
    }
    if (!tree_) {
        auto top = SidebarLevel::create([this] { return rowsBelow(""); });
        levels_[""] = top;
        tree_ = Gtk::TreeListModel::create(top, sigc::mem_fun(*this, &Sidebar::level), false, false);
        selection_ = Gtk::SingleSelection::create(tree_);
        selection_->set_autoselect(false);
        selection_->set_can_unselect(true);
        selection_->set_selected(GTK_INVALID_LIST_POSITION);
        selection_->property_selected().signal_changed().connect([this] { selectionChanged(); });
        list_.set_model(selection_);
        list_.signal_activate().connect([this](guint position) {
            const auto row = tree_->get_row(position);
            if (row && row->is_expandable()) row->set_expanded(!row->get_expanded());
            const auto object = row ? rowOf(row->get_item()) : nullptr;
            if (object) press(object->row);
        });
    } else {
        isHighlighting_ = true;
        std::vector<std::string> ids;
        for (const auto& entry : levels_) ids.push_back(entry.first);
        for (const auto& id : ids) {
            // A change further up may have taken the level along.
            const auto found = levels_.find(id);
            if (found != levels_.end()) found->second->refresh();
        }
        isHighlighting_ = false;
    }
    isHighlighting_ = true;
    const auto wanted = expanded_;
    for (const auto& id : wanted) expand(id);
    isHighlighting_ = false;
    highlight(highlighted_);
}

void Sidebar::setUp(const Glib::RefPtr<Gtk::ListItem>& item) {
    auto* widget = Gtk::make_managed<RowWidget>();
    item->set_child(*widget);
    rows_.insert(widget);
    widget->onGone = [this, widget] { rows_.erase(widget); };
    auto click = Gtk::GestureClick::create();
    click->set_button(GDK_BUTTON_SECONDARY);
    click->signal_pressed().connect([this, widget](int, double x, double y) {
        const auto row = widget->row();
        double inX = 0, inY = 0;
        widget->translate_coordinates(*this, x, y, inX, inY);
        if (row && onMenu) onMenu(*row, inX, inY);
    });
    widget->add_controller(click);

    auto press = Gtk::GestureClick::create();
    press->signal_released().connect([this, widget](int, double, double) {
        if (const auto row = widget->row()) this->press(*row);
    });
    widget->add_controller(press);

    auto drag = Gtk::DragSource::create();
    drag->set_actions(Gdk::DragAction::MOVE | Gdk::DragAction::COPY);
    drag->signal_prepare().connect(
        [widget](double, double) -> Glib::RefPtr<Gdk::ContentProvider> {
            const auto row = widget->row();
            if (!row || row->kind != SidebarRow::Kind::note) return {};
            // In the list it moves the note; dropped on a text it is a link to it.
            Glib::Value<Glib::ustring> link;
            link.init(Glib::Value<Glib::ustring>::value_type());
            link.set("[[" + row->title + "]]");
            dragged = row->path;
            return Gdk::ContentProvider::create(link);
        },
        false);
    drag->signal_drag_end().connect([](const Glib::RefPtr<Gdk::Drag>&, bool) { dragged.clear(); });
    widget->add_controller(drag);

    auto drop = Gtk::DropTarget::create(G_TYPE_STRING, Gdk::DragAction::MOVE);
    const auto folderOf = [widget]() -> std::optional<std::string> {
        const auto row = widget->row();
        if (!row || dragged.empty()) return {};
        if (row->kind == SidebarRow::Kind::folder) return row->path;
        if (row->kind == SidebarRow::Kind::header && row->id == "notes") return std::string();
        if (row->kind == SidebarRow::Kind::trash) return std::string(trashTarget);
        return {};
    };
    drop->signal_enter().connect(
        [folderOf](double, double) { return folderOf() ? Gdk::DragAction::MOVE : Gdk::DragAction(0); },
        false);
    drop->signal_motion().connect(
        [folderOf](double, double) { return folderOf() ? Gdk::DragAction::MOVE : Gdk::DragAction(0); },
        false);
    drop->signal_drop().connect(
        [this, folderOf](const Glib::ValueBase&, double, double) {
            const auto folder = folderOf();
            const auto path = dragged;
            if (!folder || path.empty()) return false;
            if (*folder == trashTarget) {
                if (onTrashed) onTrashed(path);
            } else if (onMoved) {
                onMoved(path, *folder);
            }
            return true;
        },
        false);
    widget->add_controller(drop);
}

void Sidebar::bind(const Glib::RefPtr<Gtk::ListItem>& item) {
    auto* widget = dynamic_cast<RowWidget*>(item->get_child());
    const auto row = std::dynamic_pointer_cast<Gtk::TreeListRow>(item->get_item());
    const auto object = row ? rowOf(row->get_item()) : nullptr;
    if (!widget || !object) return;
    widget->set_list_row(row);
    widget->present(object->row);
    if (object->row.hasChildren) {
        widget->expansion = row->property_expanded().signal_changed().connect(
            [this, id = object->row.id, weak = row.get()] { expansionChanged(id, weak->get_expanded()); });
    }
    const auto kind = object->row.kind;
    const bool isInert = kind == SidebarRow::Kind::header || kind == SidebarRow::Kind::placeholder ||
                         kind == SidebarRow::Kind::draft;
    if (!awaited_.empty() && object->row.id == awaited_)
        Glib::signal_idle().connect_once([this, row = object->row] {
            if (row.id == awaited_) edit(row, "");
        });
    // Who goes through the list by keys starts nothing.
    item->set_selectable(!isInert && kind != SidebarRow::Kind::organise);
    item->set_activatable(!isInert);
}

void Sidebar::selectionChanged() {
    if (isHighlighting_) return;
    const auto row = selected();
    if (!row) return;
    highlighted_ = row->path;
    if (onChosen) onChosen(*row);
}

std::optional<SidebarRow> Sidebar::selected() const {
    if (!selection_) return {};
    const auto row = std::dynamic_pointer_cast<Gtk::TreeListRow>(selection_->get_selected_item());
    const auto object = row ? rowOf(row->get_item()) : nullptr;
    if (!object) return {};
    return object->row;
}

void Sidebar::expansionChanged(const std::string& id, bool isExpanded) {
    if (isExpanded) {
        expanded_.insert(id);
    } else if (!isHighlighting_) {
        expanded_.erase(id);
    }
    if (!isExpanded) {
        levels_.erase(id);
    }
    if (isHighlighting_) return;
    if (onExpansionChanged) onExpansionChanged();
    Glib::signal_idle().connect_once(sigc::mem_fun(*this, &Sidebar::followExpansion));
}

/// The open note's row in the tree came or went.
void Sidebar::followExpansion() {
    const auto current = selected();
    if (!edit_ && (!current || current->path == highlighted_)) moveHighlight(false);
}

Glib::RefPtr<Gtk::TreeListRow> Sidebar::handle(const std::string& level, std::size_t index) const {
    if (level.empty()) return tree_->get_child_row(static_cast<guint>(index));
    for (const auto& [above, rows] : levels_) {
        const auto& list = rows->rows();
        for (std::size_t place = 0; place < list.size(); ++place) {
            if (list[place].id != level) continue;
            const auto parent = handle(above, place);
            return parent && parent->get_expanded() ? parent->get_child_row(static_cast<guint>(index))
                                                    : Glib::RefPtr<Gtk::TreeListRow>();
        }
    }
    return {};
}

Glib::RefPtr<Gtk::TreeListRow> Sidebar::find(const std::function<bool(const SidebarRow&)>& test) const {
    if (!tree_) return {};
    // The top level first: a note that a section shows is highlighted there.
    for (const auto& [id, level] : levels_) {
        const auto& rows = level->rows();
        const auto found = std::find_if(rows.begin(), rows.end(), test);
        if (found == rows.end()) continue;
        if (auto row = handle(id, static_cast<std::size_t>(found - rows.begin()))) return row;
    }
    return {};
}

void Sidebar::expand(const std::string& id) {
    const auto row = find([&](const SidebarRow& candidate) { return candidate.id == id; });
    if (row && !row->get_expanded()) {
        row->set_expanded(true);
        expanded_.insert(id);
    }
}

void Sidebar::begin(std::set<std::string> expanded) {
    endEdit(Ending::dropped, false);
    expanded_ = std::move(expanded);
    highlighted_.clear();
}

bool Sidebar::shows(const std::string& path) const {
    return find([&](const SidebarRow& row) { return row.path == path; }) != nullptr;
}

void Sidebar::highlight(const std::string& path) {
    highlighted_ = path;
    if (!selection_) return;
    if (edit_) {
        // Scrolling there might take the row away in which somebody writes.
        isRefreshWanted_ = true;
        return;
    }
    moveHighlight(true);
}

void Sidebar::moveHighlight(bool scrolls) {
    const auto& path = highlighted_;
    const auto current = selected(), atKeyboard = focused();
    const std::string id = path.empty() || !highlightedRow ? std::string() : highlightedRow(path);
    // Whoever goes through the list by keys stays on the row that they came to.
    const bool isKept = atKeyboard && atKeyboard->path == path;
    if (current && current->path == path && (current->id == id || isKept)) return;
    Glib::RefPtr<Gtk::TreeListRow> row;
    if (!path.empty()) row = find([&](const SidebarRow& candidate) { return candidate.id == id; });
    if (!path.empty() && !row) row = find([&](const SidebarRow& each) { return each.path == path; });
    isHighlighting_ = true;
    const auto at = row ? row->get_position() : GTK_INVALID_LIST_POSITION;
    selection_->set_selected(at);
    if (row && scrolls) gtk_widget_activate_action(GTK_WIDGET(list_.gobj()), "list.scroll-to-item", "u", at);
    isHighlighting_ = false;
}

}  // namespace vesk::views
