// What the application does with the notes of the open vault.
#include <algorithm>
#include <fstream>

#include "Vesk/Views/DesktopApplication.h"
#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/Folding.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/VaultTrash.h"

namespace vesk::views {
namespace {

constexpr unsigned listDelay = 150, searchDelay = 90;  // milliseconds after the last of several changes
constexpr int mostHits = 60;
constexpr std::size_t mostHistory = 200;
constexpr std::uintmax_t largestAttachment = 200'000'000;

}  // namespace

void DesktopApplication::tell(const std::string& words) {
    if (window_) window_->toast(words);
}

// Lists

void DesktopApplication::list() {
    if (!open_ || listTimer_.connected()) return;
    listTimer_ = Glib::signal_timeout().connect(
        [this] {
            if (!open_) return false;
            const auto number = ++listing_;
            seams_.background.run(Priority::userInitiated,
                                  [this, number, vault = open_->session->vault()](const std::stop_token&) {
                                      auto lists = std::make_shared<NoteLists>(NoteLists::read(vault));
                                      seams_.mainQueue.post([this, number, lists] {
                                          if (number == listing_) listed(std::move(*lists));
                                      });
                                  });
            return false;
        },
        open_->lists.below.empty() ? 0 : listDelay);
}

void DesktopApplication::listed(NoteLists lists) {
    if (!open_) return;
    open_->lists = std::move(lists);
    std::vector<std::string> paths;
    paths.reserve(open_->lists.notes.size());
    for (const auto& note : open_->lists.notes) paths.push_back(note.relativePath);
    open_->session->setListedNotes(std::move(paths));
    open_->session->documentListReloaded(open_->lists.documents);
    window_->sidebar().refresh();
    if (open_->surface->loadedPath()) window_->sidebar().highlight(*open_->surface->loadedPath());
}

// The open note

void DesktopApplication::showNote(const std::string& path, bool takesKeyboard, bool isStep) {
    if (!open_) return;
    window_->note().commitTitle();
    window_->closeFind();
    if (open_->surface->loadedPath() != path) open_->surface->load(path);
    if (!isStep && (history_.empty() || history_[place_] != path)) {
        if (!history_.empty()) history_.resize(place_ + 1);
        history_.push_back(path);
        if (history_.size() > mostHistory) history_.erase(history_.begin());
        place_ = history_.size() - 1;
    }
    window_->sidebar().highlight(path);
    window_->showNotePage(true);
    window_->setCanGo(place_ > 0, place_ + 1 < history_.size());
    showTitle();
    showLinks();
    if (takesKeyboard) window_->note().focus();
}

void DesktopApplication::showTitle() {
    if (!open_) return;
    window_->note().nameChanged();
}

void DesktopApplication::go(int steps) {
    const auto wanted = static_cast<std::ptrdiff_t>(place_) + steps;
    if (wanted < 0 || wanted >= static_cast<std::ptrdiff_t>(history_.size())) return;
    place_ = static_cast<std::size_t>(wanted);
    showNote(std::string(history_[place_]), true, true);
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

void DesktopApplication::newNote(const std::string& folder) {
    if (!open_) return chooseVault();
    try {
        window_->note().commitTitle();
        bridge_.flushAllPendingSaves();
        const auto note = open_->session->vault().createNote(Vault::untitledName, folder, "");
        open_->session->notesChanged({note.relativePath});
        list();
        showNote(note.relativePath);
        window_->note().focus(true);
    } catch (const std::exception&) {
        tell(describe(std::current_exception()));
    }
}

bool DesktopApplication::rename(const std::string& path, const std::string& name) {
    if (!open_) return false;
    bridge_.flushAllPendingSaves();
    try {
        const auto to = open_->session->vault().renameNote(path, name);
        open_->session->noteMoved(path, to);
        open_->surface->follow(path, to);
        for (auto& visited : history_)
            if (visited == path) visited = to;
        list();
        showTitle();
        return true;
    } catch (const VaultWriteError& error) {
        tell(error.kind == VaultWriteError::Kind::alreadyExists
                 ? "Couldn't rename this note — one called “" + name + "” is already in this folder."
                 : "Couldn't rename this note: " + error.description());
    } catch (const std::exception&) {
        tell("Couldn't rename this note: " + describe(std::current_exception()));
    }
    return false;
}

void DesktopApplication::move(const std::string& path, const std::string& folder) {
    if (!open_ || parentFolder(path) == folder) return;
    bridge_.flushAllPendingSaves();
    const auto name = decodedText(std::string(stem(path)));
    try {
        const auto to = open_->session->vault().moveNote(path, folder);
        open_->session->noteMoved(path, to);
        open_->surface->follow(path, to);
        for (auto& visited : history_)
            if (visited == path) visited = to;
        list();
    } catch (const VaultWriteError& error) {
        tell(error.kind == VaultWriteError::Kind::alreadyExists
                 ? "Couldn't move " + name + ": a note with that name is already in " +
                       (folder.empty() ? "the vault root" : folder) + "."
                 : name + ": " + error.description());
    } catch (const std::exception&) {
        tell(name + ": " + describe(std::current_exception()));
    }
}

void DesktopApplication::askWhereTo(const std::string& path) {
    if (!open_) return;
    std::vector<Completion::Candidate> names;
    for (const auto& folder : open_->lists.folders) names.push_back({decodedText(folder), 0});
    const auto candidates = std::make_shared<const Completion::Candidates>(std::move(names));
    const auto folders = open_->lists.folders;
    Picker::show(
        window_->window(), "Move Note", "Move to folder…",
        [candidates, folders](const std::string& typed) {
            std::vector<PickerItem> items;
            if (typed.empty())
                items.push_back({.id = "", .title = "Top of the vault", .icon = "go-home-symbolic"});
            for (const auto index : candidates->matching(typed, 50))
                items.push_back({.id = folders[index],
                                 .title = decodedText(std::string(lastComponent(folders[index]))),
                                 .detail = decodedText(std::string(parentFolder(folders[index]))),
                                 .icon = "folder-symbolic"});
            return items;
        },
        [this, path](const std::string& folder, const std::string&) { move(path, folder); });
}

void DesktopApplication::askForName(const std::string& path) {
    showNote(path);
    window_->note().focus(true);
}

void DesktopApplication::trash(const std::string& path) {
    if (!open_) return;
    bridge_.flushAllPendingSaves();
    try {
        const auto trashed = VaultTrash(open_->session->vault()).trashNote(path);
        open_->session->notesTrashed({path});
        if (open_->surface->loadedPath() == path) open_->surface->close();
        open_->session->notesChanged({path});
        std::erase(history_, path);
        place_ = history_.empty() ? 0 : std::min(place_, history_.size() - 1);
        window_->setCanGo(place_ > 0, place_ + 1 < history_.size());
        list();
        const auto inTrash = trashed.starts_with(".trash/") ? trashed.substr(7) : trashed;
        window_->toast("“" + decodedText(std::string(stem(path))) + "” is in the trash", "Undo",
                       [this, inTrash] { restore(inTrash); });
    } catch (const std::exception&) {
        tell("Couldn't move " + path + " to the trash: " + describe(std::current_exception()));
    }
}

void DesktopApplication::restore(const std::string& trashPath) {
    if (!open_) return;
    try {
        const VaultTrash trash(open_->session->vault());
        const auto notes = trash.trashedNotes().first;
        const auto note = std::find_if(notes.begin(), notes.end(), [&](const TrashedNote& candidate) {
            return candidate.trashPath == trashPath;
        });
        if (note == notes.end()) return tell("The trash doesn't hold that note any more.");
        const auto path = trash.restore(*note);
        open_->session->notesChanged({path});
        list();
        if (Vault::indexedKind(path) == IndexedKind::note) showNote(path);
    } catch (const std::exception&) {
        tell(describe(std::current_exception()));
    }
}

void DesktopApplication::emptyTrash() {
    if (!open_) return;
    const auto prompt = VaultTrash::emptyPrompt(open_->lists.trashed, open_->lists.trashedOther);
    auto* dialog = ADW_MESSAGE_DIALOG(
        adw_message_dialog_new(window_->window(), prompt.c_str(), "This can't be undone."));
    adw_message_dialog_add_response(dialog, "cancel", "Cancel");
    adw_message_dialog_add_response(dialog, "empty", "Empty Trash");
    adw_message_dialog_set_response_appearance(dialog, "empty", ADW_RESPONSE_DESTRUCTIVE);
    adw_message_dialog_set_close_response(dialog, "cancel");
    onSignal(dialog, "response::empty", [this] {
        if (!open_) return;
        try {
            VaultTrash(open_->session->vault()).empty();
        } catch (const std::exception&) {
            tell(describe(std::current_exception()));
        }
        list();
    });
    gtk_window_present(GTK_WINDOW(dialog));
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
    const auto path = row.path;
    switch (row.kind) {
        case SidebarRow::Kind::note:
        case SidebarRow::Kind::reminder:
            item(first, "Rename", "rename", [this, path] { askForName(path); });
            item(first, "Move to Folder…", "move", [this, path] { askWhereTo(path); });
            item(first, "Show in Files", "reveal",
                 [this, path] { revealFiles({open_->session->vault().absolutePath(path)}); });
            item(second, "Move to Trash", "trash", [this, path] { trash(path); });
            break;
        case SidebarRow::Kind::folder:
            item(first, "New Note Here", "new", [this, path] { newNote(path); });
            item(first, "Show in Files", "reveal",
                 [this, path] { revealFiles({open_->session->vault().absolutePath(path)}); });
            break;
        case SidebarRow::Kind::document:
        case SidebarRow::Kind::file:
            item(first, "Open", "open",
                 [this, path] { openFile(open_->session->vault().absolutePath(path)); });
            item(first, "Show in Files", "reveal",
                 [this, path] { revealFiles({open_->session->vault().absolutePath(path)}); });
            break;
        case SidebarRow::Kind::trashedNote:
            item(first, "Restore", "restore", [this, path] { restore(path.substr(7)); });
            item(second, "Empty Trash…", "empty", [this] { emptyTrash(); });
            break;
        case SidebarRow::Kind::trash:
            item(first, "Empty Trash…", "empty", [this] { emptyTrash(); });
            break;
        case SidebarRow::Kind::header:
        case SidebarRow::Kind::placeholder:
            item(first, "New Note", "new", [this] { newNote(); });
            break;
    }
    menu->append_section(first);
    if (second->get_n_items() > 0) menu->append_section(second);
    auto& sidebar = window_->sidebar();
    sidebar.insert_action_group("row", rowActions_);
    if (rowMenu_) rowMenu_->unparent();
    rowMenu_ = std::make_unique<Gtk::PopoverMenu>(menu);
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
    if (!open_ || typed.find_first_not_of(' ') == std::string::npos) return;
    searchTimer_ = Glib::signal_timeout().connect(
        [this, typed, number] {
            if (!open_) return false;
            open_->session->searchNotes(typed, mostHits, [this, number](const std::vector<SearchHit>& hits) {
                if (number == searching_ && open_ && window_)
                    window_->results().show(hits, open_->session->indexing.get());
            });
            return false;
        },
        searchDelay);
}

void DesktopApplication::showLinks() {
    if (!window_ || !window_->isInspectorShown()) return;
    auto& inspector = window_->inspector();
    if (!open_ || !open_->surface->loadedPath())
        return inspector.showMessage("insert-link-symbolic", "No note selected",
                                     "Pick a note to see what links to it.");
    if (open_->session->indexing.get())
        return inspector.showMessage("insert-link-symbolic", "Reading the vault",
                                     "Indexing the vault — links appear when it finishes.");
    const auto& path = *open_->surface->loadedPath();
    try {
        const auto& index = open_->session->index();
        const auto row = [&](const std::string& to) {
            const auto title = index.title(to);
            return LinkRow{to, decodedText(title.value_or(std::string(stem(to)))),
                           decodedText(std::string(parentFolder(to)))};
        };
        const auto add = [](std::vector<LinkRow>& rows, LinkRow link) {
            const auto same = [&](const LinkRow& known) {
                return known.path == link.path && known.title == link.title;
            };
            if (std::none_of(rows.begin(), rows.end(), same)) rows.push_back(std::move(link));
        };
        std::vector<LinkRow> backlinks, outgoing;
        for (const auto& from : index.backlinks(path))
            if (from != path) add(backlinks, row(from));
        for (const auto& [target, resolved] : index.outgoingLinks(path))
            add(outgoing, resolved ? row(*resolved) : LinkRow{"", target, "Not there yet"});
        inspector.showLinks(backlinks, outgoing,
                            "Nothing links here yet.\nType [[" + decodedText(std::string(stem(path))) +
                                "]] in another note and it appears in this list.");
    } catch (const std::exception&) {
        inspector.showMessage("dialog-warning-symbolic", "Couldn't read the link index.", "");
    }
}

std::shared_ptr<const Completion::Candidates> DesktopApplication::candidates(
    const Completion::Prefix& prefix) {
    if (!open_) return nullptr;
    switch (prefix.kind) {
        case Completion::Prefix::Kind::note:
            return open_->lists.names;
        case Completion::Prefix::Kind::tag: {
            std::vector<Completion::Candidate> tags;
            try {
                for (const auto& [tag, count] : open_->session->index().allTags())
                    tags.push_back({tag, count});
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
    if (!open_ || !open_->surface->loadedPath() || Vault::leavesVault(target)) return {};
    const auto& vault = open_->session->vault();
    const auto folder = std::string(parentFolder(*open_->surface->loadedPath()));
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
    if (!open_ || !open_->surface->loadedPath()) return;
    try {
        const auto path = open_->session->vault().saveAttachment(
            bytes, extension, stemName, seams_.clock.now(), open_->services.calendar);
        window_->note().editor().insertText(utf16(Vault::attachmentEmbed(path)));
    } catch (const std::exception&) {
        tell(describe(std::current_exception()));
    }
}

void DesktopApplication::attachFiles(const std::vector<FilePath>& files) {
    for (const auto& file : files) {
        const auto extension = lowercasedExtension(file.string());
        if (!Vault::attachmentExtensions().contains(extension)) {
            tell("“" + decodedText(file.filename().string()) +
                 "” can't be put into a note: it is no picture, recording or PDF.");
            continue;
        }
        std::error_code failure;
        const auto size = std::filesystem::file_size(file, failure);
        if (failure || size > largestAttachment) {
            tell("“" + decodedText(file.filename().string()) + "” is too large to put into a note.");
            continue;
        }
        std::ifstream input(file, std::ios::binary);
        std::string bytes{std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>()};
        if (!input) {
            tell("“" + decodedText(file.filename().string()) + "” can't be read.");
            continue;
        }
        attach(std::move(bytes), extension, std::string(stem(file.string())));
    }
}

void DesktopApplication::follow(const LinkAt& link) {
    if (!open_ || !open_->surface->loadedPath()) return;
    const auto openTarget = [this](const std::string& target) {
        bridge_.flushAllPendingSaves();  // so that the index knows the link as it stands
        try {
            for (const auto& [name, resolved] :
                 open_->session->index().outgoingLinks(*open_->surface->loadedPath()))
                if (NoteIndex::linkKey(name) == NoteIndex::linkKey(target) && resolved)
                    return showNote(*resolved, true);
        } catch (const std::exception&) {
            tell("Couldn't read the link index.");
            return;
        }
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
    if (!open_) return;
    if (Vault::leavesVault(name)) {
        prompt_.tell("“" + name + "” points outside the vault, so Vesk won't create it. ",
                     "Rename the link to something inside the vault folder.");
        return;
    }
    auto* dialog = ADW_MESSAGE_DIALOG(adw_message_dialog_new(window_->window(),
                                                             ("“" + name + "” isn't there yet").c_str(),
                                                             "Shall Vesk begin a note of that name?"));
    adw_message_dialog_add_response(dialog, "cancel", "Cancel");
    adw_message_dialog_add_response(dialog, "create", "Create Note");
    adw_message_dialog_set_response_appearance(dialog, "create", ADW_RESPONSE_SUGGESTED);
    adw_message_dialog_set_default_response(dialog, "create");
    adw_message_dialog_set_close_response(dialog, "cancel");
    onSignal(dialog, "response::create", [this, name] {
        if (!open_) return;
        try {
            const auto folder = parentFolder(name);
            const auto note = open_->session->vault().createNote(stem(name), folder, "");
            open_->session->notesChanged({note.relativePath});
            list();
            showNote(note.relativePath, true);
        } catch (const std::exception&) {
            tell(describe(std::current_exception()));
        }
    });
    gtk_window_present(GTK_WINDOW(dialog));
}

}  // namespace vesk::views
