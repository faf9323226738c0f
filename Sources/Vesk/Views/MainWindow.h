// The window: sidebar, note, header bars; wide or narrow. Thin: it shows what it is given and tells what the
// person does.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "Vesk/Views/FindBar.h"
#include "Vesk/Views/Inspector.h"
#include "Vesk/Views/InspectorTabs.h"
#include "Vesk/Views/NotePane.h"
#include "Vesk/Views/ReminderPopover.h"
#include "Vesk/Views/SearchPane.h"
#include "Vesk/Views/Sidebar.h"
#include "Vesk/Views/Toolkit.h"
#include "VeskCore/Platform/UserDefaults.h"

namespace vesk::views {

class MainWindow {
public:
    MainWindow(Gtk::Application& application, UserDefaults& defaults);
    ~MainWindow();
    MainWindow(const MainWindow&) = delete;
    MainWindow& operator=(const MainWindow&) = delete;

    GtkWindow* window() const { return GTK_WINDOW(window_); }
    Sidebar& sidebar() { return sidebar_; }
    NotePane& note() { return note_; }
    SearchPane& results() { return results_; }
    Inspector& inspector() { return inspector_; }
    ReminderPopover& reminder() { return reminder_; }
    void showReminder() { reminderButton_.popup(); }

    void present();
    void setTitle(const std::string& title, const std::string& subtitle);
    void setStatus(const std::string& status);
    void setMenu(const Glib::RefPtr<Gio::MenuModel>& menu) { menuButton_.set_menu_model(menu); }
    /// What the person should know of the folder, above the note.
    void setWarnings(const std::vector<VaultWarning>& warnings);
    /// Over the whole window: no vault is open. Empty title: the vault's own view.
    void showWelcome(const std::string& title, const std::string& words,
                     const std::vector<std::string>& others);
    void showVault();
    /// In a narrow window: the note instead of the list, or back.
    void showNotePage(bool note);
    /// Why something wasn't done: stands until it is closed or another reason is told.
    void tell(const std::string& reason);
    /// What was refused has been done after all.
    void dropReason();
    /// What was done; goes by itself. With an action if `button` is given.
    void toast(const std::string& words, const char* button = nullptr, std::function<void()> does = {});
    /// Brings the list into view where it is hidden or covered.
    void showList();
    /// Puts the keyboard into the search field.
    void focusSearch();
    void searchFor(const std::string& words);
    std::string searchText() const { return search_.get_text(); }
    void find(bool replacing);
    void findStep(bool forward);
    void closeFind();
    void clearSearch();
    void setInspectorShown(bool shows) { adw_flap_set_reveal_flap(flap_, shows); }
    /// "links" or what was added.
    void setInspectorTab(const std::string& name) { tabs_.show(name.c_str()); }
    /// A further pane beside the links; it belongs to somebody else.
    void addInspectorTab(Gtk::Widget& page, const char* name, const char* title);
    /// A widget of somebody else's above the note.
    void addAboveNote(Gtk::Widget& widget) { notePage_.prepend(widget); }
    void toggleSidebar();
    /// F6: from the list to the note to the inspector.
    void focusNextPane();
    void showOutline();
    void setCanGo(bool back, bool forward);
    struct Heading {
        std::string title;
        int level = 1;
        std::size_t offset = 0;
    };
    std::function<std::vector<Heading>()> outline;
    std::function<void(const std::string& typed)> onSearch;
    std::function<void(bool shows)> onInspectorShown;
    std::function<void(const std::string& name)> onInspectorTab;

    /// True when the window may go.
    std::function<void()> onCloseWanted;
    std::function<void()> onActivated;
    std::function<void(const std::string& folder)> onOpenOther;

private:
    void build();
    Gtk::Widget& buildSidebar();
    Gtk::Widget& buildContent();
    void buildHandle(Gtk::Separator& handle, Gtk::Widget& pane, int& width, int direction);
    void fillOutline();
    void showWarning();
    void remember();
    void showSidebar(bool shows);
    bool isInside(GtkWidget* pane) const;

    UserDefaults& defaults_;
    AdwApplicationWindow* window_;
    AdwToastOverlay* toasts_ = nullptr;
    AdwToast* reason_ = nullptr;  ///< the one that stands
    AdwLeaflet* leaflet_ = nullptr;
    AdwWindowTitle* title_ = nullptr;
    AdwStatusPage* welcome_ = nullptr;
    Gtk::Stack root_;
    Gtk::Box sidebarPane_{Gtk::Orientation::VERTICAL}, contentPane_{Gtk::Orientation::VERTICAL},
        welcomePane_{Gtk::Orientation::VERTICAL};
    Gtk::Box welcomeButtons_{Gtk::Orientation::VERTICAL};
    Gtk::Box inspectorPane_, notePage_{Gtk::Orientation::VERTICAL};
    Gtk::Separator sidebarHandle_{Gtk::Orientation::VERTICAL}, inspectorHandle_{Gtk::Orientation::VERTICAL};
    AdwFlap* flap_ = nullptr;
    Gtk::SearchEntry search_;
    Gtk::Box lists_{Gtk::Orientation::VERTICAL};
    Gtk::Label status_;
    Gtk::Button toList_, back_, forward_;
    Gtk::MenuButton menuButton_;
    Gtk::MenuButton outlineButton_, reminderButton_;
    ReminderPopover reminder_;
    Gtk::Popover outlinePopover_;
    Gtk::ListBox outlineList_;
    Gtk::ScrolledWindow outlineScroller_;
    Gtk::ToggleButton inspectorButton_;
    std::vector<Heading> headings_;
    Sidebar sidebar_;
    SearchPane results_;
    NotePane note_;
    Inspector inspector_;
    InspectorTabs tabs_;
    FindBar find_;
    NoteBanner warning_;
    std::vector<VaultWarning> warnings_;
    std::set<std::string> dismissed_;  ///< codes
    int sidebarWidth_ = 280, inspectorWidth_ = 280, dragStart_ = 0;
};

}  // namespace vesk::views
