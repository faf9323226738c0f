#include "Vesk/Views/Desktop.h"

#include <cmath>

#include "Vesk/Views/DesktopApplication.h"
#include "Vesk/Views/Style.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::views {
namespace {

constexpr const char* applicationID = "com.tarnlight.vesk";
constexpr double usualPoints = 12;
constexpr Seconds trimPause{3.0};
constexpr const char* foldersKey = "vesk.window.folders";  // root → ids of the rows that are open

}  // namespace

DesktopApplication::DesktopApplication(const DesktopSeams& seams)
    : Gtk::Application(applicationID,
                       Gio::Application::Flags::HANDLES_COMMAND_LINE | Gio::Application::Flags::HANDLES_OPEN),
      seams_(seams),
      prompt_([this] { return window_ ? window_->window() : nullptr; }),
      bridge_(prompt_),
      reminderCenter_(seams_.notifications, seams_.mainQueue, seams_.background, seams_.clock,
                      Calendar::system),
      workspace_(services()),
      images_(EditorImages::make(seams_.mainQueue, seams_.background)) {
    add_main_option_entry(OptionType::BOOL, "new-note", 'n', _("Begin a new note"));
    add_main_option_entry(OptionType::STRING, "search", 's', _("Search the open vault"), "WORDS");
}

DesktopApplication::~DesktopApplication() {
    listTimer_.disconnect();
    searchTimer_.disconnect();
    rowMenu_.reset();
    surfaceSubscriptions_.clear();
    subscriptions_.clear();
    assistant_.reset();
    window_.reset();
    workspace_.close();
}

WorkspaceServices DesktopApplication::services() {
    return {.clock = seams_.clock,
            .mainQueue = seams_.mainQueue,
            .background = seams_.background,
            .log = seams_.log,
            .defaults = seams_.defaults,
            .bookmarks = seams_.bookmarks,
            .fileVersions = seams_.fileVersions,
            .embeddings = seams_.embeddings,
            .calendar = Calendar::system,
            .bridge = bridge_,
            .reminderCenter = reminderCenter_,
            .fileEvents = seams_.fileEvents,
            .chooseFolder = [this](const FolderPanel& panel,
                                   std::function<void(std::optional<FilePath>)> answer) {
                chooseFolder(window_ ? window_->window() : nullptr, panel.message, panel.prompt,
                             panel.directory.value_or(FilePath()), std::move(answer));
            }};
}

void DesktopApplication::on_startup() {
    Gtk::Application::on_startup();
    adw_init();
    Gtk::Window::set_default_icon_name(applicationID);
    installStyle();
    addActions();
    reminderCenter_.registerCategory();
}

void DesktopApplication::on_activate() {
    showWindow();
}

void DesktopApplication::on_open(const type_vec_files& files, const Glib::ustring&) {
    if (!window_) makeWindow();
    for (const auto& file : files) {
        const auto path = file->get_path();
        openPath(path.empty() ? std::string(file->get_uri()) : path);
    }
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
    if (options && options->lookup_value("new-note", begins) && begins) newNote({});
    if (options && options->lookup_value("search", typed)) {
        window_->focusSearch();
        search(typed);
    }
    return 0;
}

void DesktopApplication::showWindow() {
    if (isEnding_) return;
    if (!window_) makeWindow();
    if (!workspace_.vault.get()) workspace_.restoreLastVault();
    window_->present();
}

void DesktopApplication::makeWindow() {
    window_ = std::make_unique<MainWindow>(*this, seams_.defaults);
    window_->setMenu(mainMenu());
    window_->onCloseWanted = [this] { askToQuit(); };
    window_->onActivated = [this] {
        if (surface()) surface()->followDisk(true);
    };
    window_->onOpenOther = [this](const std::string& folder) { workspace_.openAndRemember(folder); };
    window_->onSearch = [this](const std::string& typed) { search(typed); };
    window_->outline = [this] { return outline(); };
    window_->results().onChosen = [this](const SearchHit& hit) { showNote(hit.notePath, true); };
    window_->results().onModeChosen = [this](SearchHit::Mode mode) { chooseSearchMode(mode); };
    auto& sidebar = window_->sidebar();
    sidebar.rowsBelow = [this](const std::string& id) { return rows(id); };
    sidebar.highlightedRow = [this](const std::string& path) {
        return highlightedRowID(workspace_, path, window_->sidebar().expanded());
    };
    sidebar.onChosen = [this](const SidebarRow& row) {
        if (row.kind == SidebarRow::Kind::note || row.kind == SidebarRow::Kind::reminder) showNote(row.path);
        if (row.kind == SidebarRow::Kind::document) openFile(workspace_.vault.get()->absolutePath(row.path));
    };
    sidebar.onPressed = [this](const SidebarRow&) { assistant_->organise(); };
    sidebar.onMenu = [this](const SidebarRow& row, double x, double y) { rowMenu(row, x, y); };
    sidebar.onMoved = [this](const std::string& path, const std::string& folder) {
        workspace_.moveNote(path, folder);
    };
    sidebar.onNamed = [this](const SidebarRow& row, const std::string& name) { return give(row, name); };
    sidebar.onDraftEnded = [this] { draftIn_.reset(); };
    sidebar.onTrashed = [this](const std::string& path) { trash(path); };
    connectEditor();
    connectReminder();
    applyLook();
    watchWorkspace();
    makeAssistant();
    connectInspector();
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
    note.onRenamed = [this](const std::string& path, const std::string& name) {
        workspace_.renameNote(path, name);
        showTitle();
    };
    note.onOpenElsewhere = [this](const std::string& path) {
        if (workspace_.vault.get()) openFile(workspace_.vault.get()->absolutePath(path));
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

void DesktopApplication::makeAssistant() {
    assistant_ = std::make_unique<Assistant>(
        seams_, workspace_, bridge_,
        AssistantHost{.window = [this] { return window_->window(); },
                      .selection = [this]() -> std::optional<EditorSelection> {
                          const auto& content = window_->note().editor().content();
                          const auto range = content.selection();
                          if (!openNote() || range.empty()) return std::nullopt;
                          return EditorSelection{utf8(content.text().substr(range.location, range.length)),
                                                 range.location};
                      },
                      .openPanel = [this] { showInspector(Workspace::InspectorTab::ai); },
                      .showNote = [this](const std::string& path) { showNote(path, true); },
                      .goTo = [this](TextRange range) { window_->note().editor().goTo(range); },
                      .openFile = [this](const FilePath& file) { openFile(file); },
                      .openAddress =
                          [this](const std::string& address) {
                              gtk_show_uri(window_->window(), address.c_str(), GDK_CURRENT_TIME);
                          },
                      .tell = [this](const std::string& words) { tell(words); },
                      .readyChanged = [this] { listsChanged(); },
                      .inform = [this](const std::string& words) { window_->toast(words); }});
    window_->addInspectorTab(assistant_->pane(), "ai", _("Assistant"));
    window_->addAboveNote(assistant_->titleCard());
}

// The vault

void DesktopApplication::watchWorkspace() {
    const auto watch = [this](auto& value, auto handler) {
        subscriptions_.push_back(value.subscribe(handler));
    };
    watch(workspace_.launchProblem, [this](const auto&) { showLaunch(); });
    watch(workspace_.vault, [this](const std::optional<Vault>& vault) {
        window_->clearSearch();
        if (!vault) return;
        rememberFolders();
        foldersOf_ = vault->root().string();
        std::set<std::string> open;
        const auto folders = seams_.defaults.value(foldersKey);
        const auto* known = folders ? folders->find(foldersOf_) : nullptr;
        if (const auto* list = known ? known->asArray() : nullptr)
            for (const auto& folder : *list)
                if (const auto* id = folder.asString()) open.insert(*id);
        window_->sidebar().begin(std::move(open));
        window_->setTitle(decodedText(std::string(lastComponent(vault->root().string()))), "");
        window_->showVault();
    });
    watch(workspace_.surface, [this](const auto&) { surfaceChanged(); });
    watch(workspace_.selection, [this](const std::optional<std::string>& path) { selectionChanged(path); });
    watch(workspace_.canGo,
          [this](const std::pair<bool, bool>& can) { window_->setCanGo(can.first, can.second); });
    watch(workspace_.status, [this](const auto&) { showStatus(); });
    watch(workspace_.warnings,
          [this](const std::vector<VaultWarning>& warnings) { window_->setWarnings(warnings); });
    watch(workspace_.folderError, [this](const std::optional<std::string>& words) {
        if (!words) return;
        tell(std::string(*words));
        workspace_.folderError.set(std::nullopt);
    });
    watch(workspace_.notes, [this](const auto&) {
        names_.reset();
        trimMemorySoon();
    });
    watch(workspace_.tree, [this](const auto&) { listsChanged(); });
    watch(workspace_.home, [this](const auto&) { listsChanged(); });
    watch(workspace_.style, [this](const auto&) { listsChanged(); });
    watch(workspace_.noteIcons, [this](const auto&) { listsChanged(); });
    watch(workspace_.trashedNotes, [this](const auto&) { listsChanged(); });
    subscriptions_.push_back(workspace_.editorFocusRequested.subscribe(
        [this] { window_->note().focus(std::exchange(wantsTitle_, false)); }));
    window_->setCanGo(false, false);
    showLaunch();
}

void DesktopApplication::rememberFolders() {
    if (!window_ || foldersOf_.empty()) return;
    Json::Array open;
    for (const auto& id : window_->sidebar().expanded()) open.emplace_back(id);
    auto folders = seams_.defaults.value(foldersKey).value_or(Json::object());
    if (!folders.asObject()) folders = Json::object();
    folders.set(foldersOf_, std::move(open));
    seams_.defaults.set(foldersKey, std::move(folders));
}

void DesktopApplication::showStatus() {
    if (!window_) return;
    if (!session() || session()->status->empty()) return window_->setStatus(workspace_.status.get());
    if (!session()->indexing.get()) return window_->setStatus(session()->status.get());
    window_->setStatus(session()->status.get() + " " +
                       std::to_string(std::lround(session()->indexProgress.get() * 100)) + " %");
}

void DesktopApplication::showLaunch() {
    if (workspace_.vault.get()) return;
    const auto& problem = workspace_.launchProblem.get();
    if (!problem) {
        window_->showWelcome(_("Welcome to Vesk"),
                             _("Your notes are ordinary Markdown files in a folder of yours.\n"
                               "Choose the folder, or make a new one."),
                             {});
        return;
    }
    std::vector<std::string> others;
    for (const auto& folder : problem->alternatives) others.push_back(folder.string());
    window_->showWelcome(
        _("Your vault can't be opened"),
        problem->path ? localised("“{}” isn't there any more, or can't be read.", decodedText(*problem->path))
                      : _("The folder that was open last is gone."),
        others);
}

void DesktopApplication::surfaceChanged() {
    surfaceSubscriptions_.clear();
    const auto& pane = workspace_.surface.get();
    window_->note().attach(pane);
    showSearchModes();
    if (!pane) return;
    window_->note().editor().decorations().setImages(images_);
    surfaceSubscriptions_.push_back(pane->notice.subscribe([this](const auto&) { showTitle(); }));
    surfaceSubscriptions_.push_back(session()->indexing.subscribe([this](bool indexing) {
        showStatus();
        if (!indexing) trimMemorySoon();
    }));
    surfaceSubscriptions_.push_back(session()->status.subscribe([this](const auto&) { showStatus(); }));
    surfaceSubscriptions_.push_back(session()->indexProgress.subscribe([this](double) { showStatus(); }));
}

/// Reading a large vault takes several times the memory that is kept of it, in pieces all over the heap.
void DesktopApplication::trimMemorySoon() {
    trimTimer_ = seams_.mainQueue.postAfter(std::chrono::duration_cast<Duration>(trimPause), [this] {
        seams_.background.run(Priority::background,
                              [trim = seams_.trimMemory](const std::stop_token&) { trim(); });
    });
}

void DesktopApplication::openPath(const std::string& path) {
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        if (!workspace_.vault.get() || workspace_.vault.get()->root() != Vault(path).root())
            workspace_.openAndRemember(path);
        return;
    }
    if (!workspace_.vault.get()) workspace_.restoreLastVault();
    const auto inside = workspace_.vault.get() ? workspace_.vault.get()->relativePath(path) : std::nullopt;
    if (inside && Vault::indexedKind(*inside) == IndexedKind::note) {
        showNote(*inside, true);
    } else if (std::filesystem::exists(path, ignored) && Vault::indexedKind(path) == IndexedKind::note) {
        // A note of no vault that is open: its folder is one.
        workspace_.openAndRemember(FilePath(path).parent_path(), [this, path](bool opened) {
            if (opened) showNote(FilePath(path).filename().string(), true);
        });
    } else {
        tell(localised("“{}” isn't a note.", decodedText(path)));
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
    isEnding_ = true;
    bridge_.flushAllPendingSaves();
    rememberFolders();
    rowMenu_.reset();
    surfaceSubscriptions_.clear();
    subscriptions_.clear();
    if (window_) window_->note().attach(nullptr);
    workspace_.close();
    // Not from inside one of its own signals.
    Glib::signal_idle().connect_once([this] {
        // What has the keyboard would tell of losing it while it is being taken apart.
        if (window_) gtk_window_set_focus(window_->window(), nullptr);
        assistant_.reset();
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
