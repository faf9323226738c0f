// The application object behind Desktop.h: who is open, what the window shows, what keys and menus do.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Vesk/Editor/EditorSurface.h"
#include "Vesk/Views/Desktop.h"
#include "Vesk/Views/DesktopPrompt.h"
#include "Vesk/Views/FindBar.h"
#include "Vesk/Views/MainWindow.h"
#include "Vesk/Views/NoteLists.h"
#include "Vesk/Views/Picker.h"
#include "Vesk/Views/Toolkit.h"

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
    int on_command_line(const Glib::RefPtr<Gio::ApplicationCommandLine>& line) override;

private:
    /// What belongs to one open vault and goes with it.
    struct OpenVault {
        std::unique_ptr<FileEventSource> events;
        SessionServices services;
        std::shared_ptr<VaultSession> session;
        std::shared_ptr<EditorSurface> surface;
        std::shared_ptr<EditorImages> images;
        std::vector<Subscription> subscriptions;
        NoteLists lists;
    };
    struct Action {
        const char *name, *title, *group;
        std::vector<Glib::ustring> keys;
        std::function<void()> does;
    };

    // Desktop.cpp: life
    void makeWindow();
    void showWindow();
    void restoreLastVault();
    void chooseVault();
    void openPath(const std::string& path);
    void openVault(const FilePath& folder);
    void reallyOpen(const FilePath& folder);
    void closeVault();
    void askToQuit();
    void connectEditor();
    void applyLook();

    // DesktopNotes.cpp: the vault's contents
    void list();
    void listed(NoteLists lists);
    void showNote(const std::string& path, bool takesKeyboard = false, bool isStep = false);
    void showTitle();
    void go(int steps);
    void newNote(const std::string& folder = "");
    bool rename(const std::string& path, const std::string& name);
    void move(const std::string& path, const std::string& folder);
    void askWhereTo(const std::string& path);
    void askForName(const std::string& path);
    void trash(const std::string& path);
    void restore(const std::string& trashPath);
    void emptyTrash();
    void rowMenu(const SidebarRow& row, double x, double y);
    void search(const std::string& typed);
    void showLinks();
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
    std::unique_ptr<MainWindow> window_;
    std::unique_ptr<OpenVault> open_;
    std::vector<std::string> history_;
    std::size_t place_ = 0;  ///< in the history
    std::uint64_t listing_ = 0, searching_ = 0;
    sigc::connection listTimer_, searchTimer_;
    Glib::RefPtr<Gio::SimpleActionGroup> rowActions_;
    std::unique_ptr<Gtk::PopoverMenu> rowMenu_;
    bool isAsking_ = false;
};

}  // namespace vesk::views
