// The application object behind Desktop.h: who is open, what the window shows, what keys and menus do.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Vesk/Editor/EditorSurface.h"
#include "Vesk/Links/LinksModel.h"
#include "Vesk/Views/Assistant.h"
#include "Vesk/Views/Desktop.h"
#include "Vesk/Views/DesktopPrompt.h"
#include "Vesk/Views/FindBar.h"
#include "Vesk/Views/MainWindow.h"
#include "Vesk/Views/Picker.h"
#include "Vesk/Views/SidebarRows.h"
#include "Vesk/Views/Toolkit.h"
#include "Vesk/Workspace.h"

namespace vesk::views {

class DesktopApplication final : public Gtk::Application {
public:
    explicit DesktopApplication(const DesktopSeams& seams);
    ~DesktopApplication() override;
    /// Ctrl-C or a polite kill: what is typed is saved, what can't be is held for the next start.
    void endNow();

protected:
    void on_startup() override;
    void on_activate() override;
    /// Asked on the session bus; a start of the program goes through its command line.
    void on_open(const type_vec_files& files, const Glib::ustring& hint) override;
    int on_command_line(const Glib::RefPtr<Gio::ApplicationCommandLine>& line) override;

private:
    struct Action {
        const char *name, *title, *group;
        std::vector<Glib::ustring> keys;
        std::function<void()> does;
        int menu = 0;  ///< section of the main menu; 0 for none
    };

    // Desktop.cpp: life
    void makeWindow();
    void showWindow();
    WorkspaceServices services();
    void watchWorkspace();
    void openPath(const std::string& path);
    void showLaunch();
    void surfaceChanged();
    void askToQuit();
    void connectEditor();
    void connectReminder();  // DesktopReminders.cpp
    void applyLook();
    void makeAssistant();
    void showStatus();
    void rememberFolders();
    void trimMemorySoon();

    // DesktopNotes.cpp: the vault's contents
    VaultSession* session() const { return workspace_.session.get().get(); }
    EditorSurface* surface() const { return workspace_.surface.get().get(); }
    /// The path of the note that is open, or none.
    std::optional<std::string> openNote() const;
    void listsChanged();
    Sidebar::Rows rows(const std::string& below) const;
    void showNote(const std::string& path, bool takesKeyboard = false);
    void selectionChanged(const std::optional<std::string>& path);
    /// Has a folder's name written where the folder will stand; none is made before it has one.
    void newFolder(const std::string& parent);
    std::shared_ptr<const Completion::Candidates> names();
    void highlight(const std::string& path);
    void showTitle();
    void go(bool back);
    void askWhereTo(const std::string& path);
    void askForName(const std::string& path);
    void askForName(const SidebarRow& row);
    /// Renames what the row shows or makes the folder that it is a draft of; false if the name can't be had.
    bool give(const SidebarRow& row, const std::string& name);
    bool tryToGive(const SidebarRow& row, const std::string& name);
    void askForIcon(const std::string& path);
    void trash(const std::string& path);
    void restore(const std::string& trashPath);
    void newNote(const std::optional<std::string>& folder);
    void emptyTrash();
    void rowMenu(const SidebarRow& row, double x, double y);
    void search(const std::string& typed);
    void chooseSearchMode(SearchHit::Mode mode);
    void showSearchModes();
    void connectInspector();
    void showInspector(Workspace::InspectorTab tab);
    void toggleInspector();
    void follow(const LinkAt& link);
    void openFile(const FilePath& file);
    std::optional<FilePath> attachment(const std::string& target) const;
    void attach(std::string bytes, const std::string& extension, const std::optional<std::string>& stem);
    void attachFiles(const std::vector<FilePath>& files);
    std::shared_ptr<const Completion::Candidates> candidates(const Completion::Prefix& prefix);
    std::vector<MainWindow::Heading> outline() const;
    void offerToCreate(const std::string& name);
    /// Words about something that could not be done.
    void tell(const std::string& words);

    // DesktopActions.cpp: keys and menus
    void addActions();
    Glib::RefPtr<Gio::Menu> mainMenu() const;
    void quickSwitcher();
    void commandPalette();
    void showShortcuts();
    void showAbout();
    void showPreferences();
    void showTrash();

    DesktopSeams seams_;
    DesktopPrompt prompt_;
    EditorBridge bridge_;
    std::vector<Action> actions_;
    ReminderCenter reminderCenter_;
    Workspace workspace_;
    std::shared_ptr<LinksModel> links_;
    std::unique_ptr<MainWindow> window_;
    std::unique_ptr<Assistant> assistant_;  ///< its widgets stand in the window
    std::shared_ptr<EditorImages> images_;
    std::vector<Subscription> subscriptions_, surfaceSubscriptions_;
    std::shared_ptr<const Completion::Candidates>
        names_;  ///< of notes by title, in the order of the workspace's
    std::uint64_t searching_ = 0;
    sigc::connection listTimer_, searchTimer_;
    TimerHandle trimTimer_;
    std::optional<std::string> draftIn_;  ///< where a folder is being named, empty for the top
    bool wantsTitle_ = false;             ///< the note that opens next is named first
    std::string foldersOf_;               ///< root of the vault whose open folders the list shows
    Glib::RefPtr<Gio::SimpleActionGroup> rowActions_;
    std::unique_ptr<Gtk::PopoverMenu> rowMenu_;
    bool isAsking_ = false, isEnding_ = false;
};

}  // namespace vesk::views
