// The list at the left: home sections, the tree of folders, documents, the trash. Virtual: rows on screen
// have widgets, the others are values that are asked for when a folder opens.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

struct SidebarRow {
    enum class Kind {
        header,
        reminder,
        note,
        organise,
        folder,
        draft,
        document,
        file,
        trash,
        trashedNote,
        placeholder
    };
    Kind kind = Kind::note;
    std::string id;    ///< unique in the whole list
    std::string path;  ///< of the note, folder or document
    std::string title;
    std::string detail;  ///< beside the title, faint: a count, a due time
    std::string icon;    ///< symbolic icon; none for a plain row
    std::string help;    ///< what choosing it does, where the title doesn't tell
    std::string glyph;   ///< in the place of an icon
    std::string color;   ///< name of a folder's colour; none for the usual one
    bool hasChildren = false;
    bool operator==(const SidebarRow&) const = default;
};

/// The rows of one level.
class SidebarLevel;

class Sidebar final : public Gtk::ScrolledWindow {
public:
    using Rows = std::vector<SidebarRow>;

    Sidebar();

    /// The rows below a row, or the top ones for an empty id.
    std::function<Rows(const std::string& id)> rowsBelow;
    /// The id of the row to highlight for a path that more than one row may show.
    std::function<std::string(const std::string& path)> highlightedRow;
    /// The person chose a row.
    std::function<void(const SidebarRow&)> onChosen;
    /// The person pressed a row that does something and can't be selected.
    std::function<void(const SidebarRow&)> onPressed;
    /// A menu is wanted on a row; `x` and `y` are in the sidebar.
    std::function<void(const SidebarRow&, double x, double y)> onMenu;
    std::function<void()> onExpansionChanged;
    /// A row's name was written anew, or a draft's for the first time; false if it can't be had.
    std::function<bool(const SidebarRow&, const std::string& name)> onNamed;
    /// The draft that was edited isn't wanted any more, named or not.
    std::function<void()> onDraftEnded;
    /// A note was dragged onto a folder, or onto the top for an empty one.
    std::function<void(const std::string& path, const std::string& folder)> onMoved;
    /// A note was dragged onto the trash.
    std::function<void(const std::string& path)> onTrashed;

    /// The rows may have changed: levels on screen are asked for anew, and what is the same stays.
    void refresh();
    /// Highlights the row of the path without choosing it; none for an empty path. It changes when the row
    /// is another one later.
    void highlight(const std::string& path);
    /// The ids of the rows that are open.
    const std::set<std::string>& expanded() const { return expanded_; }
    void expand(const std::string& id);
    /// Another vault: these are open from the next refresh on, and nothing is highlighted.
    void begin(std::set<std::string> expanded);
    /// Whether a row of the path is in an open level.
    bool shows(const std::string& path) const;
    std::optional<SidebarRow> selected() const;
    void focusList() { list_.grab_focus(); }
    /// The row that has the keyboard.
    std::optional<SidebarRow> focused() const;
    /// Has the name written anew in the row itself; nothing if it isn't on the screen.
    void edit(const SidebarRow& row, const std::string& name);
    /// What is being written is taken for the name.
    void finishEdit() { endEdit(Ending::taken, false); }
    /// Has the draft, which is among the rows from now on, named where it stands: below the row of that id,
    /// or at the top for an empty one.
    void editDraft(const std::string& below);
    /// A row goes by another id from the next refresh on: it, and what is below it, stays as open as it was.
    void follow(const std::string& from, const std::string& to);

private:
    friend class SidebarLevel;
    enum class Ending { taken, dropped };
    void buildEntry();
    void beginEdit(Gtk::Widget& widget, const SidebarRow& row, const std::string& name);
    void showRefusal(bool isRefused);
    void endEdit(Ending ending, bool keepsKeyboard);
    Glib::RefPtr<Gio::ListModel> level(const Glib::RefPtr<Glib::ObjectBase>& item);
    bool menuAtKeyboard();
    void press(const SidebarRow& row);
    void setUp(const Glib::RefPtr<Gtk::ListItem>& item);
    void bind(const Glib::RefPtr<Gtk::ListItem>& item);
    void selectionChanged();
    void moveHighlight(bool scrolls);
    void followExpansion();
    void expansionChanged(const std::string& id, bool isExpanded);
    Glib::RefPtr<Gtk::TreeListRow> handle(const std::string& level, std::size_t index) const;
    Glib::RefPtr<Gtk::TreeListRow> find(const std::function<bool(const SidebarRow&)>& test) const;

    std::map<std::string, Glib::RefPtr<SidebarLevel>> levels_;  ///< by the id of the row they stand under
    std::set<std::string> expanded_;
    Glib::RefPtr<Gtk::TreeListModel> tree_;
    Glib::RefPtr<Gtk::SingleSelection> selection_;
    std::set<Gtk::Widget*> rows_;  ///< those on the screen, and spare ones; outlives the list
    Gtk::ListView list_;
    Gtk::Entry entry_;  ///< stands in the row that is being edited
    struct Edit {
        Gtk::Widget* widget;
        SidebarRow row;
        std::string name;
    };
    std::optional<Edit> edit_;
    std::string awaited_;    ///< id of a row that is edited as soon as it is on the screen
    bool isNaming_ = false;  ///< somebody is being asked whether the name can be had
    bool isRefreshWanted_ = false;
    std::string highlighted_;
    bool isHighlighting_ = false;
};

}  // namespace vesk::views
