#include "Vesk/Views/Desktop.h"

#include <algorithm>

#include "Vesk/Editor/EditorSurface.h"
#include "Vesk/Views/DesktopPrompt.h"
#include "Vesk/Views/MainWindow.h"
#include "Vesk/Views/Style.h"
#include "Vesk/Views/Toolkit.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/VaultBookmarks.h"

namespace vesk::views {
namespace {

constexpr const char* applicationID = "com.tarnlight.vesk";
constexpr std::size_t mostAlternatives = 3;
constexpr double bodyPoints = 12;

/// What belongs to one open vault and goes with it.
struct OpenVault {
    std::unique_ptr<FileEventSource> events;
    SessionServices services;
    std::shared_ptr<VaultSession> session;
    std::shared_ptr<EditorSurface> surface;
    std::vector<Subscription> subscriptions;
    std::vector<Note> notes;
};

class Desktop final : public Gtk::Application {
public:
    explicit Desktop(const DesktopSeams& seams)
        : Gtk::Application(applicationID, Gio::Application::Flags::HANDLES_OPEN),
          seams_(seams),
          prompt_([this] { return window_ ? window_->window() : nullptr; }),
          bridge_(prompt_) {}

    ~Desktop() override { closeVault(); }

protected:
    void on_startup() override {
        Gtk::Application::on_startup();
        adw_init();
        Gtk::Window::set_default_icon_name(applicationID);
        installStyle();
        addActions();
    }

    void on_activate() override {
        if (!window_) {
            makeWindow();
            restoreLastVault();
        }
        window_->present();
    }

    void on_open(const type_vec_files& files, const Glib::ustring&) override {
        if (!window_) makeWindow();
        for (const auto& file : files) openPath(file->get_path());
        if (!open_) restoreLastVault();
        window_->present();
    }

private:
    void addActions() {
        const auto act = [this](const char* name, std::function<void()> does,
                                std::vector<Glib::ustring> keys) {
            add_action(name, [does = std::move(does)] { does(); });
            set_accels_for_action(Glib::ustring("app.") + name, keys);
        };
        act("quit", [this] { askToQuit(); }, {"<Control>q"});
        act("open-vault", [this] { chooseVault(); }, {"<Control><Shift>o"});
        act("new-note", [this] { newNote(); }, {"<Control>n"});
    }

    void makeWindow() {
        window_ = std::make_unique<MainWindow>(*this, seams_.defaults);
        window_->onCloseWanted = [this] { askToQuit(); };
        window_->onActivated = [this] {
            if (open_) open_->surface->followDisk(true);
        };
        window_->onOpenOther = [this](const std::string& folder) { openVault(folder); };
        window_->sidebar().rowsBelow = [this](const std::string& id) { return rows(id); };
        window_->sidebar().onChosen = [this](const SidebarRow& row) { showNote(row.path); };
        window_->note().onOpen = [this](const std::string& path) { showNote(path, true); };
        window_->note().onRenamed = [this](const std::string& path, const std::string& name) {
            rename(path, name);
        };
        window_->note().editor().applyTheme(bodyPoints);
        onSignal(adw_style_manager_get_default(), "notify::dark", [this] {
            if (window_) window_->note().editor().applyTheme(bodyPoints);
        });
        onSignal(adw_style_manager_get_default(), "notify::high-contrast", [this] {
            if (window_) window_->note().editor().applyTheme(bodyPoints);
        });
    }

    // The vault

    void restoreLastVault() {
        VaultBookmarks remembered(seams_.defaults, seams_.bookmarks);
        const auto restored = remembered.restoreMostRecent();
        match(
            restored, [&](const VaultBookmarks::Restored::Vault& last) { openVault(last.path); },
            [&](const VaultBookmarks::Restored::Unavailable& lost) {
                std::vector<std::string> others;
                for (const auto& folder : remembered.olderVaultsThatOpen(mostAlternatives))
                    others.push_back(folder.string());
                window_->showWelcome("The vault can't be opened",
                                     lost.path
                                         ? "“" + *lost.path + "” isn't there any more, or can't be read."
                                         : "The folder that was open last is gone.",
                                     others);
            },
            [&](const VaultBookmarks::Restored::NothingRemembered&) {
                window_->showWelcome("Welcome to Vesk",
                                     "Your notes are ordinary Markdown files in a folder of yours.\nChoose "
                                     "the folder, or make a new one.",
                                     {});
            });
    }

    void chooseVault() {
        const char* documents = g_get_user_special_dir(G_USER_DIRECTORY_DOCUMENTS);
        chooseFolder(window_ ? window_->window() : nullptr, "Choose a folder for your notes.", "Open Vault",
                     documents ? FilePath(documents) : FilePath(), [this](std::optional<FilePath> chosen) {
                         if (chosen) openVault(*chosen);
                     });
    }

    void openPath(const std::string& path) {
        std::error_code ignored;
        if (std::filesystem::is_directory(path, ignored)) {
            openVault(path);
        } else {
            if (!open_) restoreLastVault();
            if (!open_) return;
            if (const auto inside = open_->session->vault().relativePath(path)) showNote(*inside, true);
        }
    }

    void openVault(const FilePath& folder) {
        bridge_.flushAllPendingSaves();
        bridge_.confirmLeavingUnsavedText(LeavingContext::openingAnotherVault, [this, folder](bool safe) {
            if (safe) reallyOpen(folder);
        });
    }

    void closeVault() {
        if (!open_) return;
        if (window_) window_->note().attach(nullptr);
        open_->subscriptions.clear();
        open_->session->stop();
        open_.reset();
    }

    void reallyOpen(const FilePath& folder) {
        closeVault();
        const Vault vault(folder);
        auto events = seams_.fileEvents(vault);
        SessionServices services{.clock = seams_.clock,
                                 .mainQueue = seams_.mainQueue,
                                 .background = seams_.background,
                                 .log = seams_.log,
                                 .defaults = seams_.defaults,
                                 .fileEvents = *events,
                                 .fileVersions = seams_.fileVersions,
                                 .embeddings = seams_.embeddings,
                                 .calendar = Calendar::system()};
        try {
            auto session = VaultSession::make(vault, services);
            auto surface = EditorSurface::make(session, bridge_, services);
            open_.reset(
                new OpenVault{std::move(events), services, std::move(session), std::move(surface), {}, {}});
        } catch (const std::exception&) {
            window_->showWelcome("The vault can't be opened", describe(std::current_exception()), {});
            return;
        }
        VaultBookmarks(seams_.defaults, seams_.bookmarks).store(folder);
        auto& session = *open_->session;
        session.onExternalChange = [this] { list(); };
        session.onNoteWritten = [this](const std::string&) { list(); };
        open_->subscriptions.push_back(
            session.status.subscribe([this](const std::string& status) { window_->setStatus(status); }));
        window_->note().attach(open_->surface);
        window_->setTitle(std::string(lastComponent(vault.root().string())), "");
        window_->showVault();
        list();
        session.start();
    }

    void list() {
        if (!open_) return;
        seams_.background.run(
            Priority::userInitiated, [this, vault = open_->session->vault()](const std::stop_token&) {
                auto notes = vault.enumerateNotes();
                std::sort(notes.begin(), notes.end(), [](const Note& a, const Note& b) {
                    return localisedStandardCompare(a.title, b.title) < 0;
                });
                seams_.mainQueue.post([this, root = vault.root(), notes = std::move(notes)]() mutable {
                    if (!open_ || open_->session->vault().root() != root) return;
                    open_->notes = std::move(notes);
                    std::vector<std::string> paths;
                    for (const auto& note : open_->notes) paths.push_back(note.relativePath);
                    open_->session->listedNotes = std::move(paths);
                    window_->sidebar().refresh();
                });
            });
    }

    Sidebar::Rows rows(const std::string& id) const {
        Sidebar::Rows found;
        if (!open_ || !id.empty()) return found;
        for (const auto& note : open_->notes) {
            found.push_back({.kind = SidebarRow::Kind::note,
                             .id = "note:" + note.relativePath,
                             .path = note.relativePath,
                             .title = decodedText(note.title)});
        }
        return found;
    }

    void showNote(const std::string& path, bool takesKeyboard = false) {
        if (!open_) return;
        window_->note().commitTitle();
        open_->surface->load(path);
        window_->sidebar().highlight(path);
        window_->showNotePage(true);
        if (takesKeyboard) window_->note().focus();
    }

    void newNote() {
        if (!open_) return;
        try {
            const auto note = open_->session->vault().createNote(Vault::untitledName, "", "");
            open_->session->notesChanged({note.relativePath});
            list();
            showNote(note.relativePath, true);
        } catch (const std::exception&) {
            window_->toast(describe(std::current_exception()));
        }
    }

    void rename(const std::string& path, const std::string& name) {
        if (!open_) return;
        bridge_.flushAllPendingSaves();
        try {
            const auto to = open_->session->vault().renameNote(path, name);
            open_->session->noteMoved(path, to);
            open_->surface->follow(path, to);
            list();
        } catch (const std::exception&) {
            window_->toast(describe(std::current_exception()));
        }
    }

    void askToQuit() {
        if (isAsking_) return;
        isAsking_ = true;
        if (window_) window_->note().commitTitle();
        bridge_.flushAllPendingSaves();
        bridge_.confirmLeavingUnsavedText(LeavingContext::quitting, [this](bool safe) {
            isAsking_ = false;
            if (!safe) return;
            closeVault();
            window_.reset();
            quit();
        });
    }

public:
    /// Ctrl-C or a polite kill: what is typed is saved, what can't be is held for the next start.
    void endNow() {
        bridge_.flushAllPendingSaves();
        closeVault();
        window_.reset();
        quit();
    }

private:
    DesktopSeams seams_;
    DesktopPrompt prompt_;
    EditorBridge bridge_;
    std::unique_ptr<MainWindow> window_;
    std::unique_ptr<OpenVault> open_;
    bool isAsking_ = false;
};

}  // namespace

int runDesktop(const DesktopSeams& seams, int argc, char** argv) {
    Desktop desktop(seams);
    const std::stop_callback ended(seams.stop,
                                   [&] { seams.mainQueue.post([&desktop] { desktop.endNow(); }); });
    return desktop.run(argc, argv);
}

}  // namespace vesk::views
