// What the application does with the notes of the open vault.
#include <algorithm>
#include <fstream>

#include "Vesk/Views/DesktopApplication.h"
#include "Vesk/Views/IconPicker.h"
#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/Folding.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/VaultTrash.h"

namespace vesk::views {
namespace {

constexpr unsigned searchDelay = 90;  // milliseconds after the last letter
constexpr int mostHits = 60;
constexpr const char* searchModeKey = "vesk.search.mode";
constexpr const char* embeddingLanguage = "en";
constexpr std::uintmax_t largestAttachment = 200'000'000;

}  // namespace

void DesktopApplication::tell(const std::string& words) {
    if (window_) window_->tell(words);
}

// Lists

void DesktopApplication::listsChanged() {
    if (listTimer_.connected()) return;
    // Several lists change at once; the rows are asked for when all have.
    listTimer_ = Glib::signal_idle().connect([this] {
        auto& sidebar = window_->sidebar();
        sidebar.refresh();
        // Whoever moves about in the list stays where they are.
        const bool isInList = sidebar.focused() && sidebar.selected();
        if (const auto path = openNote(); path && !isInList) highlight(*path);
        showTitle();
        return false;
    });
}

Sidebar::Rows DesktopApplication::rows(const std::string& below) const {
    const bool canOrganise = assistant_ && assistant_->canAsk();
    return sidebarRows(workspace_, below, {.draftIn = draftIn_, .canOrganise = canOrganise});
}

std::optional<std::string> DesktopApplication::openNote() const {
    return surface() ? surface()->loadedPath() : std::nullopt;
}

std::shared_ptr<const Completion::Candidates> DesktopApplication::names() {
    if (!names_) {
        std::vector<Completion::Candidate> candidates;
        candidates.reserve(workspace_.notes.get().size());
        for (const auto& note : workspace_.notes.get())
            candidates.push_back(
                {decodedText(note.title), static_cast<std::int64_t>(secondsSince1970(note.modified))});
        names_ = std::make_shared<const Completion::Candidates>(std::move(candidates));
    }
    return names_;
}

// The open note

void DesktopApplication::showNote(const std::string& path, bool takesKeyboard) {
    if (!surface()) return;
    window_->note().commitTitle();
    window_->closeFind();
    workspace_.select(path);
    window_->showNotePage(true);
    if (!takesKeyboard) return;
    window_->note().focus();
    // Once more when the window has settled: one that is just being shown gives the keyboard to its first
    // control.
    Glib::signal_idle().connect_once([this] {
        if (window_) window_->note().focus();
    });
}

void DesktopApplication::selectionChanged(const std::optional<std::string>& path) {
    if (path) {
        highlight(*path);
        window_->showNotePage(true);
    }
    showTitle();
}

void DesktopApplication::highlight(const std::string& path) {
    auto& sidebar = window_->sidebar();
    if (!sidebar.shows(path)) {
        std::vector<std::string> folders;
        for (auto folder = std::string(parentFolder(path)); !folder.empty();
             folder = std::string(parentFolder(folder)))
            folders.push_back(folder);
        for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder)
            sidebar.expand(folderRowID(*folder));
    }
    sidebar.highlight(path);
}

void DesktopApplication::showTitle() {
    if (surface()) window_->note().nameChanged();
}

void DesktopApplication::go(bool back) {
    if (!surface()) return;
    window_->note().commitTitle();
    window_->closeFind();
    back ? workspace_.goBack() : workspace_.goForward();
    window_->note().focus();
}

std::vector<MainWindow::Heading> DesktopApplication::outline() const {
    std::vector<MainWindow::Heading> found;
    const auto text = window_->note().editor().content().text();
    for (const auto& fold : Fold::folds(text)) {
        if (fold.kind != Fold::Kind::heading) continue;
        const auto line = BlockModel::classify(EditorLines::piece(text, fold.line));
        if (const auto* heading = std::get_if<MarkdownBlock::Kind::Heading>(&line.kind.value))
            found.push_back({utf8(line.content), heading->level, fold.line.location});
    }
    return found;
}

// Structure

void DesktopApplication::newNote(const std::optional<std::string>& folder) {
    window_->note().commitTitle();
    bridge_.flushAllPendingSaves();
    window_->clearSearch();
    wantsTitle_ = true;
    workspace_.newNote(folder);
}

void DesktopApplication::askWhereTo(const std::string& path) {
    const auto folders = workspace_.tree.get().noteDestinations();
    std::vector<Completion::Candidate> choices;
    for (const auto& folder : folders) choices.push_back({decodedText(folder), 0});
    const auto candidates = std::make_shared<const Completion::Candidates>(std::move(choices));
    Picker::show(
        window_->window(), _("Move Note"), _("Move to folder…"),
        [candidates, folders](const std::string& typed) {
            std::vector<PickerItem> items;
            if (typed.empty())
                items.push_back({.id = "", .title = _("Top of the vault"), .icon = "go-home-symbolic"});
            for (const auto index : candidates->matching(typed, 50))
                items.push_back({.id = folders[index],
                                 .title = decodedText(std::string(lastComponent(folders[index]))),
                                 .detail = decodedText(std::string(parentFolder(folders[index]))),
                                 .icon = "folder-symbolic"});
            return items;
        },
        [this, path](const std::string& folder, const std::string&) { workspace_.moveNote(path, folder); });
}

void DesktopApplication::askForName(const std::string& path) {
    showNote(path);
    window_->note().focus(true);
}

void DesktopApplication::askForName(const SidebarRow& row) {
    // A reminder's row shows when, beside what; the note's title has the name alone.
    if (row.kind == SidebarRow::Kind::reminder) return askForName(row.path);
    const bool isFolder = row.kind == SidebarRow::Kind::folder;
    if (!isFolder && row.kind != SidebarRow::Kind::note) return;
    const auto last = lastComponent(row.path);
    const auto name = decodedText(std::string(isFolder ? last : stem(last)));
    window_->sidebar().edit(row, name);
}

bool DesktopApplication::give(const SidebarRow& row, const std::string& name) {
    const bool isTaken = tryToGive(row, name);
    if (isTaken) window_->dropReason();
    return isTaken;
}

bool DesktopApplication::tryToGive(const SidebarRow& row, const std::string& name) {
    if (row.kind == SidebarRow::Kind::draft)
        return draftIn_ && workspace_.createFolder(name, *draftIn_).has_value();
    if (row.kind != SidebarRow::Kind::folder) {
        const auto renamed = workspace_.renameNote(row.path, name);
        showTitle();
        return renamed.has_value();
    }
    const auto renamed = workspace_.renameFolder(row.path, name);
    if (renamed) window_->sidebar().follow(folderRowID(row.path), folderRowID(*renamed));
    return renamed.has_value();
}

void DesktopApplication::askForIcon(const std::string& path) {
    const auto& icons = workspace_.noteIcons.get();
    const auto current = icons.find(path);
    showIconPicker(window_->window(), current == icons.end() ? std::nullopt : std::optional(current->second),
                   [this, path](const std::optional<std::string>& symbol) {
                       workspace_.setNoteIcon(path, symbol);
                       workspace_.refreshNoteIcons();
                   });
}

void DesktopApplication::trash(const std::string& path) {
    const auto trashedBefore = workspace_.trashedNotes.get();
    workspace_.trashNote(path);
    for (const auto& note : workspace_.trashedNotes.get()) {
        if (std::find(trashedBefore.begin(), trashedBefore.end(), note) != trashedBefore.end()) continue;
        window_->toast(localised("“{}” is in the trash", decodedText(std::string(stem(path)))), _("Undo"),
                       [this, trashPath = note.trashPath] { restore(trashPath); });
        break;
    }
}

void DesktopApplication::restore(const std::string& trashPath) {
    for (const auto& note : workspace_.trashedNotes.get()) {
        if (note.trashPath != trashPath) continue;
        const auto restored = note;
        return workspace_.restoreTrashed(restored);
    }
    tell(_("The trash doesn't hold that note any more."));
}

void DesktopApplication::emptyTrash() {
    const auto prompt =
        VaultTrash::emptyPrompt(workspace_.trashedNotes.get(), workspace_.trashedOtherItems.get());
    auto* dialog = ADW_MESSAGE_DIALOG(
        adw_message_dialog_new(window_->window(), prompt.c_str(), _("This can't be undone.")));
    adw_message_dialog_add_response(dialog, "cancel", _("Cancel"));
    adw_message_dialog_add_response(dialog, "empty", _("Empty Trash"));
    adw_message_dialog_set_response_appearance(dialog, "empty", ADW_RESPONSE_DESTRUCTIVE);
    beginAt(dialog, "cancel");
    onSignal(dialog, "response::empty", [this] { workspace_.emptyTrash(); });
    gtk_window_present(GTK_WINDOW(dialog));
}

void DesktopApplication::newFolder(const std::string& parent) {
    if (!workspace_.vault.get()) return;
    window_->clearSearch();
    window_->showList();
    const auto begin = [this, parent] {
        if (!window_) return;
        window_->sidebar().finishEdit();
        draftIn_ = parent;
        window_->sidebar().editDraft(parent.empty() ? std::string() : folderRowID(parent));
    };
    // Not while the menu it was chosen from still has the keyboard; letters right behind a key are for the
    // entry.
    const auto focus = gtk_window_get_focus(window_->window());
    if (focus && gtk_widget_get_ancestor(focus, GTK_TYPE_POPOVER)) {
        Glib::signal_idle().connect_once(begin);
    } else {
        begin();
    }
}

void DesktopApplication::rowMenu(const SidebarRow& row, double x, double y) {
    auto menu = Gio::Menu::create();
    rowActions_ = Gio::SimpleActionGroup::create();
    const auto item = [&](const Glib::RefPtr<Gio::Menu>& part, const char* label, const char* name,
                          std::function<void()> does) {
        part->append(label, std::string("row.") + name);
        rowActions_->add_action(name, [does = std::move(does)] { does(); });
    };
    auto first = Gio::Menu::create(), second = Gio::Menu::create();
    bool hasColors = false;
    const auto path = row.path;
    const auto reveal = [this, path] { revealFiles({workspace_.vault.get()->absolutePath(path)}); };
    // Not while the menu still has the keyboard.
    const auto rename = [this, row] {
        Glib::signal_idle().connect_once([this, row] {
            if (window_) askForName(row);
        });
    };
    switch (row.kind) {
        case SidebarRow::Kind::note:
        case SidebarRow::Kind::reminder:
            item(first, _("Rename"), "rename", rename);
            item(first, _("Move to Folder…"), "move", [this, path] { askWhereTo(path); });
            item(first, _("Choose Icon…"), "icon", [this, path] { askForIcon(path); });
            item(first, _("Show in Files"), "reveal", reveal);
            if (row.kind == SidebarRow::Kind::reminder) {
                const auto act = [this, path](ReminderAction::Kind kind) {
                    return [this, path, kind] {
                        workspace_.applyReminderAction(path, kind, seams_.clock.now());
                    };
                };
                item(second, _("Snooze 1 hour"), "snooze", act(ReminderAction::Kind::snooze));
                item(second, _("Done"), "done", act(ReminderAction::Kind::done));
                item(second, _(ReminderMenu::removeLabel), "remove-reminder",
                     [this, path] { workspace_.removeReminder(path); });
            }
            item(second, _("Move to Trash"), "trash", [this, path] { trash(path); });
            break;
        case SidebarRow::Kind::folder:
            item(first, _("New Note Here"), "new", [this, path] { newNote(path); });
            item(first, _("New Folder Here"), "new-folder", [this, path] { newFolder(path); });
            item(first, _("Rename"), "rename", rename);
            item(first, _("Show in Files"), "reveal", reveal);
            hasColors = true;
            item(second, _("Move to Trash"), "trash", [this, path] { workspace_.trashFolder(path); });
            break;
        case SidebarRow::Kind::document:
        case SidebarRow::Kind::file:
            item(first, _("Open"), "open",
                 [this, path] { openFile(workspace_.vault.get()->absolutePath(path)); });
            item(first, _("Show in Files"), "reveal", reveal);
            break;
        case SidebarRow::Kind::trashedNote:
            item(first, _("Restore"), "restore", [this, path] { restore(path); });
            item(second, _("Empty Trash…"), "empty", [this] { emptyTrash(); });
            break;
        case SidebarRow::Kind::trash:
            item(first, _("Empty Trash…"), "empty", [this] { emptyTrash(); });
            break;
        case SidebarRow::Kind::organise:
            item(first, _("Organise My Notes…"), "organise", [this] { assistant_->organise(); });
            item(first, _("AI Settings"), "ai-settings", [this] { assistant_->openSettings(); });
            break;
        case SidebarRow::Kind::header:
        case SidebarRow::Kind::placeholder:
        case SidebarRow::Kind::draft:
            item(first, _("New Note"), "new", [this] { newNote({}); });
            item(first, _("New Folder"), "new-folder", [this] { newFolder(""); });
            break;
    }
    menu->append_section(first);
    if (hasColors) {
        auto colors = Gio::Menu::create();
        auto swatches = Gio::MenuItem::create("", "");
        swatches->set_attribute_value("custom", Glib::Variant<Glib::ustring>::create("colors"));
        colors->append_item(swatches);
        menu->append_section(_("Colour"), colors);
    }
    if (second->get_n_items() > 0) menu->append_section(second);
    auto& sidebar = window_->sidebar();
    sidebar.insert_action_group("row", rowActions_);
    if (rowMenu_) rowMenu_->unparent();
    rowMenu_ = std::make_unique<Gtk::PopoverMenu>(menu);
    if (hasColors)
        rowMenu_->add_child(colorSwatches(workspace_.folderColor(path),
                                          [this, path](std::optional<FolderColor> color) {
                                              rowMenu_->popdown();
                                              workspace_.setFolderColor(path, color);
                                          }),
                            "colors");
    rowMenu_->set_parent(sidebar);
    rowMenu_->set_has_arrow(false);
    rowMenu_->set_halign(Gtk::Align::START);
    rowMenu_->set_pointing_to(Gdk::Rectangle(static_cast<int>(x), static_cast<int>(y), 1, 1));
    rowMenu_->popup();
}

// Finding

void DesktopApplication::search(const std::string& typed) {
    searchTimer_.disconnect();
    const auto number = ++searching_;
    if (!session() || typed.find_first_not_of(" \t") == std::string::npos) return;
    window_->results().expect();
    searchTimer_ = Glib::signal_timeout().connect(
        [this, typed, number] {
            if (!session()) return false;
            session()->searchNotes(
                typed, mostHits,
                [this, number](const std::vector<SearchHit>& hits) {
                    if (number == searching_ && session() && window_)
                        window_->results().show(hits, session()->indexing.get());
                },
                window_->results().mode());
            return false;
        },
        searchDelay);
}

void DesktopApplication::chooseSearchMode(SearchHit::Mode mode) {
    seams_.defaults.set(searchModeKey, std::string(rawValue(mode)));
    search(window_->searchText());
}

/// How the vault that is open can be searched.
void DesktopApplication::showSearchModes() {
    using Mode = SearchHit::Mode;
    const auto stored = seams_.defaults.string(searchModeKey).value_or("");
    auto mode = Mode::hybrid;
    for (const auto known : {Mode::keyword, Mode::semantic})
        if (stored == rawValue(known)) mode = known;
    const bool hasModel = session() && session()->embedder().isConfigured();
    window_->results().setMode(mode, hasModel ? "" : seams_.embeddings.absenceReason(embeddingLanguage));
}

void DesktopApplication::connectInspector() {
    links_ = LinksModel::make(workspace_, seams_.mainQueue, seams_.background);
    auto& inspector = window_->inspector();
    inspector.follow(links_);
    inspector.onOpen = [this](const std::string& path) { showNote(path, true); };
    inspector.onMissing = [this](const std::string& target) { offerToCreate(target); };
    inspector.onStale = [this](const std::string& path) { tell(LinksModel::staleMessage(path)); };
    inspector.onLink = [this](const UnlinkedMention& mention) {
        const auto link = links_->link(mention);
        if (!link) return;
        window_->toast(localised("“{}” links here now", decodedText(mention.sourceTitle)), _("Undo"),
                       [this, link = *link] { links_->undo(link); });
    };
    subscriptions_.push_back(links_->editor.lastError.subscribe([this](const auto& words) {
        if (words) tell(*words);
    }));
    using Tab = Workspace::InspectorTab;
    const auto look = [this](const auto&) {
        window_->setInspectorTab(std::string(Workspace::rawValue(workspace_.inspectorTab.get())));
        window_->setInspectorShown(workspace_.showInspector.get());
        links_->setVisible(workspace_.showInspector.get() && workspace_.inspectorTab.get() == Tab::links);
    };
    subscriptions_.push_back(workspace_.showInspector.subscribe(look));
    subscriptions_.push_back(workspace_.inspectorTab.subscribe(look));
    look(0);
    window_->onInspectorShown = [this](bool shows) { workspace_.showInspector.setIfChanged(shows); };
    window_->onInspectorTab = [this](const std::string& name) {
        workspace_.inspectorTab.setIfChanged(name == Workspace::rawValue(Tab::ai) ? Tab::ai : Tab::links);
    };
}

void DesktopApplication::showInspector(Workspace::InspectorTab tab) {
    window_->showNotePage(true);
    workspace_.inspectorTab.setIfChanged(tab);
    workspace_.showInspector.setIfChanged(true);
}

void DesktopApplication::toggleInspector() {
    using Tab = Workspace::InspectorTab;
    if (workspace_.showInspector.get() && workspace_.inspectorTab.get() == Tab::links) {
        workspace_.showInspector.set(false);
    } else {
        showInspector(Tab::links);
    }
}

std::shared_ptr<const Completion::Candidates> DesktopApplication::candidates(
    const Completion::Prefix& prefix) {
    if (!session()) return nullptr;
    switch (prefix.kind) {
        case Completion::Prefix::Kind::note:
            return names();
        case Completion::Prefix::Kind::tag: {
            if (session()->indexing.get()) return nullptr;
            std::vector<Completion::Candidate> tags;
            try {
                for (const auto& [tag, count] : session()->index().allTags()) tags.push_back({tag, count});
            } catch (const std::exception&) {
                return nullptr;  // without an index there is nothing to propose
            }
            return std::make_shared<const Completion::Candidates>(std::move(tags));
        }
        case Completion::Prefix::Kind::heading: {
            std::vector<Completion::Candidate> headings;
            if (prefix.note.empty())
                for (const auto& heading : outline()) headings.push_back({heading.title, 0});
            return std::make_shared<const Completion::Candidates>(std::move(headings));
        }
    }
    return nullptr;
}

// Links and files

void DesktopApplication::openFile(const FilePath& file) {
    GFile* opened = g_file_new_for_path(file.c_str());
    char* uri = g_file_get_uri(opened);
    gtk_show_uri(window_->window(), uri, GDK_CURRENT_TIME);
    g_free(uri);
    g_object_unref(opened);
}

std::optional<FilePath> DesktopApplication::attachment(const std::string& target) const {
    const auto shown = openNote();
    if (!shown || Vault::leavesVault(target)) return {};
    const auto& vault = *workspace_.vault.get();
    const auto folder = std::string(parentFolder(*shown));
    const std::string plain = Glib::uri_unescape_string(target);
    for (const std::string& spelled : {target, plain}) {
        if (Vault::leavesVault(spelled)) continue;
        for (const std::string& path : {joinedPath(folder, spelled), spelled,
                                        joinedPath(Vault::attachmentsFolder, lastComponent(spelled))}) {
            const auto file = vault.absolutePath(path);
            const auto info = FilePlatform::current().files->info(file);
            if (info && info->kind == FileKind::regular) return file;
        }
    }
    return {};
}

void DesktopApplication::attach(std::string bytes, const std::string& extension,
                                const std::optional<std::string>& stemName) {
    if (!openNote()) return;
    try {
        const auto path = workspace_.vault.get()->saveAttachment(bytes, extension, stemName,
                                                                 seams_.clock.now(), Calendar::system());
        window_->note().editor().insertText(utf16(Vault::attachmentEmbed(path)));
    } catch (const std::exception&) {
        tell(describe(std::current_exception()));
    }
}

void DesktopApplication::attachFiles(const std::vector<FilePath>& files) {
    for (const auto& file : files) {
        const auto extension = lowercasedExtension(file.string());
        if (!Vault::attachmentExtensions().contains(extension)) {
            tell(localised("“{}” can't be put into a note: it is no picture, recording or PDF.",
                           decodedText(file.filename().string())));
            continue;
        }
        std::error_code failure;
        const auto size = std::filesystem::file_size(file, failure);
        if (failure || size > largestAttachment) {
            tell(localised("“{}” is too large to put into a note.", decodedText(file.filename().string())));
            continue;
        }
        std::ifstream input(file, std::ios::binary);
        std::string bytes{std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>()};
        if (!input) {
            tell(localised("“{}” can't be read.", decodedText(file.filename().string())));
            continue;
        }
        attach(std::move(bytes), extension, std::string(stem(file.string())));
    }
}

void DesktopApplication::follow(const LinkAt& link) {
    if (!openNote()) return;
    const auto openTarget = [this](const std::string& target) {
        bridge_.flushAllPendingSaves();  // so that the index knows the link as it stands
        const auto key = NoteIndex::linkKey(target);
        // While the vault is being read the list of notes has to do.
        if (session()->indexing.get()) {
            for (const auto& note : workspace_.notes.get())
                if (NoteIndex::linkKey(note.title) == key || NoteIndex::linkKey(note.relativePath) == key)
                    return showNote(std::string(note.relativePath), true);
        }
        try {
            if (!session()->indexing.get())
                for (const auto& [name, resolved] : session()->index().outgoingLinks(*openNote()))
                    if (NoteIndex::linkKey(name) == key && resolved) return showNote(*resolved, true);
        } catch (const std::exception&) {
            tell(_("Couldn't read the link index."));
            return;
        }
        if (const auto document = workspace_.document(target, *openNote()))
            return openFile(workspace_.vault.get()->absolutePath(*document));
        if (const auto file = attachment(target)) return openFile(*file);
        offerToCreate(target);
    };
    match(
        link.value,
        [&](const LinkAt::Wikilink& wikilink) {
            if (!wikilink.target.empty()) openTarget(utf8(wikilink.target));
            if (wikilink.heading) {
                for (const auto& heading : outline())
                    if (equalsIgnoringCase(heading.title, utf8(*wikilink.heading)))
                        return window_->note().editor().goTo({heading.offset, 0});
            }
        },
        [&](const LinkAt::Link& markdown) {
            const auto target = utf8(markdown.target);
            if (NoteIndex::hasURIScheme(target)) {
                gtk_show_uri(window_->window(), target.c_str(), GDK_CURRENT_TIME);
            } else {
                const auto internal = NoteIndex::internalLinkTarget(target);
                openTarget(internal ? internal->first : target);
            }
        },
        [&](const LinkAt::Address& address) {
            gtk_show_uri(window_->window(), utf8(address.url).c_str(), GDK_CURRENT_TIME);
        },
        [&](const LinkAt::Tag& tag) { window_->searchFor("tag:" + utf8(tag.name)); });
}

void DesktopApplication::offerToCreate(const std::string& name) {
    if (!surface()) return;
    if (const auto refusal = LinksModel::missingTarget(name).refusal)
        return prompt_.tell(refusal->heading, refusal->text);
    auto* dialog = ADW_MESSAGE_DIALOG(adw_message_dialog_new(window_->window(),
                                                             localised("“{}” isn't there yet", name).c_str(),
                                                             _("Shall Vesk begin a note of that name?")));
    adw_message_dialog_add_response(dialog, "cancel", _("Cancel"));
    adw_message_dialog_add_response(dialog, "create", _("Create Note"));
    adw_message_dialog_set_response_appearance(dialog, "create", ADW_RESPONSE_SUGGESTED);
    adw_message_dialog_set_default_response(dialog, "create");
    adw_message_dialog_set_close_response(dialog, "cancel");
    onSignal(dialog, "response::create", [this, name] {
        if (!surface() || !links_->createMissing(name)) return;
        window_->showNotePage(true);
        window_->note().focus();
    });
    gtk_window_present(GTK_WINDOW(dialog));
}

}  // namespace vesk::views
