// The window: sidebar, note, header bars; wide or narrow. Thin: it shows what it is given and tells what the
// person does.
#pragma once

#include <functional>
#include <string>

#include "Vesk/Views/NotePane.h"
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

    void present();
    void setTitle(const std::string& title, const std::string& subtitle);
    void setStatus(const std::string& status);
    /// Over the whole window: no vault is open. Empty title: the vault's own view.
    void showWelcome(const std::string& title, const std::string& words,
                     const std::vector<std::string>& others);
    void showVault();
    /// In a narrow window: the note instead of the list, or back.
    void showNotePage(bool note);
    void toast(const std::string& words);
    void addAction(const char* name, std::function<void()> does);

    /// True when the window may go.
    std::function<void()> onCloseWanted;
    std::function<void()> onActivated;
    std::function<void(const std::string& folder)> onOpenOther;

private:
    void build();
    Gtk::Widget& buildSidebar();
    Gtk::Widget& buildContent();
    Gtk::Widget& buildHandle();
    void remember();

    UserDefaults& defaults_;
    AdwApplicationWindow* window_;
    AdwToastOverlay* toasts_ = nullptr;
    AdwLeaflet* leaflet_ = nullptr;
    AdwWindowTitle* title_ = nullptr;
    AdwStatusPage* welcome_ = nullptr;
    Gtk::Stack root_;
    Gtk::Box sidebarPane_{Gtk::Orientation::VERTICAL}, contentPane_{Gtk::Orientation::VERTICAL},
        welcomePane_{Gtk::Orientation::VERTICAL};
    Gtk::Box welcomeButtons_{Gtk::Orientation::VERTICAL};
    Gtk::Separator handle_{Gtk::Orientation::VERTICAL};
    Gtk::Label status_;
    Gtk::Button back_;
    Sidebar sidebar_;
    NotePane note_;
    int sidebarWidth_ = 280, dragStart_ = 0;
};

}  // namespace vesk::views
