#include "Vesk/Views/Desktop.h"

#include "Vesk/Views/DesktopApplication.h"
#include "Vesk/Views/Style.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/VaultBookmarks.h"

namespace vesk::views {
namespace {

constexpr const char* applicationID = "com.tarnlight.vesk";
constexpr std::size_t mostAlternatives = 3;
constexpr double usualPoints = 12;

}  // namespace

DesktopApplication::DesktopApplication(const DesktopSeams& seams)
    : Gtk::Application(applicationID, Gio::Application::Flags::HANDLES_COMMAND_LINE),
      seams_(seams),
      prompt_([this] { return window_ ? window_->window() : nullptr; }),
      bridge_(prompt_) {
    add_main_option_entry(OptionType::BOOL, "new-note", 'n', "Begin a new note");
    add_main_option_entry(OptionType::STRING, "search", 's', "Search the open vault", "WORDS");
}

DesktopApplication::~DesktopApplication() {
    listTimer_.disconnect();
    searchTimer_.disconnect();
    rowMenu_.reset();
    closeVault();
}

void DesktopApplication::on_startup() {
    Gtk::Application::on_startup();
    adw_init();
    Gtk::Window::set_default_icon_name(applicationID);
    installStyle();
    addActions();
}

void DesktopApplication::on_activate() {
    showWindow();
}

int DesktopApplication::on_command_line(const Glib::RefPtr<Gio::ApplicationCommandLine>& line) {
    int count = 0;
    char** words = line->get_arguments(count);
    const auto options = line->get_options_dict();
    if (!window_) makeWindow();
    for (int index = 1; index < count; ++index) {
        GFile* file = g_application_command_line_create_file_for_arg(line->gobj(), words[index]);
        if (const char* path = g_file_peek_path(file)) openPath(path);
        g_object_unref(file);
    }
    g_strfreev(words);
    showWindow();
    bool begins = false;
    Glib::ustring typed;
    if (options && options->lookup_value("new-note", begins) && begins) newNote();
    if (options && options->lookup_value("search", typed)) {
        window_->focusSearch();
        search(typed);
    }
    return 0;
}

void DesktopApplication::showWindow() {
    if (!window_) makeWindow();
    if (!open_) restoreLastVault();
    window_->present();
}

void DesktopApplication::makeWindow() {
    window_ = std::make_unique<MainWindow>(*this, seams_.defaults);
    window_->onCloseWanted = [this] { askToQuit(); };
    window_->onActivated = [this] {
        if (open_) open_->surface->followDisk(true);
    };
    window_->onOpenOther = [this](const std::string& folder) { openVault(folder); };
    window_->onSearch = [this](const std::string& typed) { search(typed); };
    window_->onInspectorShown = [this] { showLinks(); };
    window_->outline = [this] { return outline(); };
    window_->results().onChosen = [this](const SearchHit& hit) { showNote(hit.notePath, true); };
    window_->inspector().onOpen = [this](const std::string& path, const std::string& title) {
        path.empty() ? offerToCreate(title) : showNote(path, true);
    };
    auto& sidebar = window_->sidebar();
    sidebar.rowsBelow = [this](const std::string& id) {
        const auto found = open_ ? open_->lists.below.find(id) : decltype(open_->lists.below.find(id)){};
        return open_ && found != open_->lists.below.end() ? found->second : Sidebar::Rows();
    };
    sidebar.onChosen = [this](const SidebarRow& row) {
        if (row.kind == SidebarRow::Kind::note || row.kind == SidebarRow::Kind::reminder) showNote(row.path);
        if (row.kind == SidebarRow::Kind::document) openFile(open_->session->vault().absolutePath(row.path));
    };
    sidebar.onMenu = [this](const SidebarRow& row, double x, double y) { rowMenu(row, x, y); };
    sidebar.onMoved = [this](const std::string& path, const std::string& folder) { move(path, folder); };
    connectEditor();
    applyLook();
    for (const char* change : {"notify::dark", "notify::high-contrast"})
        onSignal(adw_style_manager_get_default(), change, [this] { applyLook(); });
}

void DesktopApplication::applyLook() {
    if (!window_) return;
    const auto points = seams_.defaults.number("vesk.editor.fontSize").value_or(usualPoints);
    window_->note().editor().applyTheme(std::clamp(points, 8.0, 32.0));
}

void DesktopApplication::connectEditor() {
    auto& note = window_->note();
    note.onOpen = [this](const std::string& path) { showNote(path, true); };
    note.onRenamed = [this](const std::string& path, const std::string& name) { rename(path, name); };
    note.onOpenElsewhere = [this](const std::string& path) {
        if (open_) openFile(open_->session->vault().absolutePath(path));
    };
    auto& editor = note.editor();
    editor.onLink = [this](const LinkAt& link) { follow(link); };
    editor.onImageOpened = [this](const std::string& target) {
        if (const auto file = attachment(target)) openFile(*file);
    };
    editor.onPicture = [this](std::string bytes, const std::string& extension) {
        attach(std::move(bytes), extension, {});
    };
    editor.onFiles = [this](const std::vector<FilePath>& files) { attachFiles(files); };
    editor.decorations().resolveImage = [this](const std::string& target) { return attachment(target); };
    editor.completion().candidates = [this](const Completion::Prefix& prefix) { return candidates(prefix); };
}

// The vault

void DesktopApplication::restoreLastVault() {
    VaultBookmarks remembered(seams_.defaults, seams_.bookmarks);
    const auto restored = remembered.restoreMostRecent();
    match(
        restored, [&](const VaultBookmarks::Restored::Vault& last) { openVault(last.path); },
        [&](const VaultBookmarks::Restored::Unavailable& lost) {
            std::vector<std::string> others;
            for (const auto& folder : remembered.olderVaultsThatOpen(mostAlternatives))
                others.push_back(folder.string());
            window_->showWelcome("Your vault can't be opened",
                                 lost.path ? "“" + *lost.path + "” isn't there any more, or can't be read."
                                           : "The folder that was open last is gone.",
                                 others);
        },
        [&](const VaultBookmarks::Restored::NothingRemembered&) {
            window_->showWelcome("Welcome to Vesk",
                                 "Your notes are ordinary Markdown files in a folder of yours.\n"
                                 "Choose the folder, or make a new one.",
                                 {});
        });
}

void DesktopApplication::chooseVault() {
    const char* documents = g_get_user_special_dir(G_USER_DIRECTORY_DOCUMENTS);
    chooseFolder(window_ ? window_->window() : nullptr, "Choose a folder for your notes.", "Open Vault",
                 documents ? FilePath(documents) : FilePath(), [this](std::optional<FilePath> chosen) {
                     if (chosen) openVault(*chosen);
                 });
}

void DesktopApplication::openPath(const std::string& path) {
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) return openVault(path);
    if (!open_) restoreLastVault();
    const auto inside = open_ ? open_->session->vault().relativePath(path) : std::nullopt;
    if (inside && Vault::indexedKind(*inside) == IndexedKind::note) {
        showNote(*inside, true);
    } else if (std::filesystem::exists(path, ignored) && Vault::indexedKind(path) == IndexedKind::note) {
        // A note of no vault that is open: its folder is one.
        openVault(FilePath(path).parent_path());
        if (open_) showNote(FilePath(path).filename().string(), true);
    } else {
        tell("“" + decodedText(path) + "” isn't a note.");
    }
}

void DesktopApplication::openVault(const FilePath& folder) {
    if (open_ && open_->session->vault().root() == Vault(folder).root()) return;
    bridge_.flushAllPendingSaves();
    bridge_.confirmLeavingUnsavedText(LeavingContext::openingAnotherVault, [this, folder](bool safe) {
        if (safe) reallyOpen(folder);
    });
}

void DesktopApplication::closeVault() {
    if (!open_) return;
    listTimer_.disconnect();
    searchTimer_.disconnect();
    ++listing_;
    ++searching_;
    if (window_) {
        window_->note().attach(nullptr);
        window_->note().editor().decorations().setImages(nullptr);
    }
    open_->subscriptions.clear();
    open_->session->stop();
    open_.reset();
    history_.clear();
    place_ = 0;
}

void DesktopApplication::reallyOpen(const FilePath& folder) {
    closeVault();
    std::error_code failure;
    if (!std::filesystem::is_directory(folder, failure)) {
        window_->showWelcome("Your vault can't be opened",
                             "“" + folder.string() + "” isn't a folder that can be read.", {});
        return;
    }
    try {
        const Vault vault(folder);
        vault.ensureSupportDirectory();
        auto events = seams_.fileEvents(vault);
        const SessionServices services{.clock = seams_.clock,
                                       .mainQueue = seams_.mainQueue,
                                       .background = seams_.background,
                                       .log = seams_.log,
                                       .defaults = seams_.defaults,
                                       .fileEvents = *events,
                                       .fileVersions = seams_.fileVersions,
                                       .embeddings = seams_.embeddings,
                                       .calendar = Calendar::system()};
        auto session = VaultSession::make(vault, services);
        auto surface = EditorSurface::make(session, bridge_, services);
        auto images = EditorImages::make(seams_.mainQueue, seams_.background);
        open_.reset(new OpenVault{
            std::move(events), services, std::move(session), std::move(surface), std::move(images), {}, {}});
    } catch (const std::exception&) {
        window_->showWelcome("Your vault can't be opened", describe(std::current_exception()), {});
        return;
    }
    VaultBookmarks(seams_.defaults, seams_.bookmarks).store(folder);
    auto& session = *open_->session;
    session.onExternalChange = [this] { list(); };
    session.onNoteWritten = [this](const std::string&) { list(); };
    auto& subscriptions = open_->subscriptions;
    subscriptions.push_back(
        session.status.subscribe([this](const std::string& status) { window_->setStatus(status); }));
    subscriptions.push_back(session.indexing.subscribe([this](bool isIndexing) {
        if (!isIndexing) showLinks();
    }));
    subscriptions.push_back(open_->surface->saved.subscribe(
        [this](const std::string&, const std::string&, const ForeignEdit::Outcome&) { showLinks(); }));
    subscriptions.push_back(open_->surface->notice.subscribe([this](const auto&) { showTitle(); }));
    window_->note().editor().decorations().setImages(open_->images);
    window_->note().attach(open_->surface);
    window_->setTitle(decodedText(std::string(lastComponent(session.vault().root().string()))), "");
    window_->setStatus("Opening " + decodedText(std::string(lastComponent(session.vault().root().string()))) +
                       "…");
    window_->setCanGo(false, false);
    window_->showVault();
    showLinks();
    list();
    session.start();
    for (const auto& warning : session.heldTextWarnings()) {
        prompt_.tell(warning.title, warning.detail);
    }
}

void DesktopApplication::askToQuit() {
    if (isAsking_) return;
    isAsking_ = true;
    if (window_) window_->note().commitTitle();
    bridge_.flushAllPendingSaves();
    bridge_.confirmLeavingUnsavedText(LeavingContext::quitting, [this](bool safe) {
        isAsking_ = false;
        if (safe) endNow();
    });
}

void DesktopApplication::endNow() {
    bridge_.flushAllPendingSaves();
    closeVault();
    rowMenu_.reset();
    // Not from inside one of its own signals.
    Glib::signal_idle().connect_once([this] {
        window_.reset();
        quit();
    });
}

int runDesktop(const DesktopSeams& seams, int argc, char** argv) {
    DesktopApplication desktop(seams);
    const std::stop_callback ended(seams.stop,
                                   [&] { seams.mainQueue.post([&desktop] { desktop.endNow(); }); });
    return desktop.run(argc, argv);
}

}  // namespace vesk::views
