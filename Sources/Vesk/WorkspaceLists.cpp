// The lists that the sidebar shows, and when they are read anew.
#include <algorithm>
#include <tuple>

#include "Vesk/WorkspaceTasks.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Vault/RecentlyChanged.h"

namespace vesk {

namespace {

constexpr auto reloadPause = std::chrono::duration_cast<Duration>(Seconds{0.5});
constexpr Seconds restampPause{2.0}, longestBurst{20.0};

std::vector<Note> notesOf(const VaultTree& tree) {
    std::vector<Note> notes;
    std::vector<const VaultTree::Node*> nodes{&tree.root()};
    while (!nodes.empty()) {
        const auto* node = nodes.back();
        nodes.pop_back();
        notes.insert(notes.end(), node->notes.begin(), node->notes.end());
        for (const auto& child : node->children) nodes.push_back(child.get());
    }
    return notes;
}

}  // namespace

void Workspace::setNotes(std::vector<Note> list) {
    notes.set(std::move(list));
    if (const auto& open = session.get()) {
        std::vector<std::string> paths;
        paths.reserve(notes.get().size());
        for (const Note& note : notes.get()) paths.push_back(note.relativePath);
        open->setListedNotes(std::move(paths));
    }
    rebuildTree();
    followDepartedSelection();
}

void Workspace::setDocuments(std::vector<VaultDocument> list) {
    documents.set(std::move(list));
    if (session.get()) session.get()->documentListReloaded(documents.get());
    rebuildTree();
}

void Workspace::rebuildTree() {
    tree.set(VaultTree(notes.get(), emptyFolders.get(), attachments.get(), documents.get()));
    refreshHome();
}

/// A selected note that another device moved stays selected where it is now.
void Workspace::followDepartedSelection() {
    const auto selected = selection.get();
    if (!selected || !session.get() || Vault::isDocument(*selected)) return;
    // Unsaved text may have made way for another note that got its name.
    const auto shown = surface.get()->loadedPath();
    if (shown && shown != selected) return selection.set(shown);
    if (note(*selected)) return;
    const auto destination = session.get()->departures().destination(*selected);
    if (!destination || !note(*destination)) return;
    surface.get()->follow(*selected, *destination);
    pathChanged(*selected, *destination);
    selection.set(*destination);
}

void Workspace::refreshHome() {
    if (!vault.get()) return;
    // The tree is a cheap copy; what takes long with many notes is done with it on the worker.
    offMain(
        Priority::userInitiated,
        [open = *vault.get(), folders = tree.get(),
         reminders = session.get() ? session.get()->reminders.get() : decltype(HomeSections::comingUp)()] {
            const auto listed = RecentlyChanged::byRecency(notesOf(folders));
            return HomeSections(reminders, listed, UnfiledNotes::detect(open, folders, listed));
        },
        [this, number = ++homeRefresh_](HomeSections sections) {
            if (number == homeRefresh_) home.setIfChanged(std::move(sections));
        });
}

void Workspace::reload() {
    if (!vault.get()) return;
    try {
        setNotes(RecentlyChanged::byRecency(vault.get()->enumerateNotes()));
    } catch (const Error&) {  // the list stays as it was
    }
    refreshTrash();
    refreshFolders();
    refreshNoteIcons();
}

void Workspace::refreshFolders() {
    if (!vault.get()) return;
    using Lists = std::tuple<std::vector<std::string>, std::vector<std::string>, std::vector<VaultDocument>>;
    offMain(
        Priority::utility,
        [open = *vault.get()] {
            return Lists{open.emptyFolderPaths(), open.enumerateAttachments(), open.enumerateDocuments()};
        },
        [this](Lists lists) {
            auto& [folders, files, pages] = lists;
            const bool filesDiffer = folders != emptyFolders.get() || files != attachments.get();
            emptyFolders.setIfChanged(std::move(folders));
            attachments.setIfChanged(std::move(files));
            if (pages != documents.get()) {
                setDocuments(std::move(pages));
            } else if (filesDiffer) {
                rebuildTree();
            }
        });
}

void Workspace::refreshTrash() {
    std::pair<std::vector<TrashedNote>, int> found;
    try {
        if (vault.get()) found = VaultTrash(*vault.get()).trashedNotes();
    } catch (const Error&) {  // a trash that can't be read shows nothing
    }
    trashedNotes.setIfChanged(std::move(found.first));
    trashedOtherItems.setIfChanged(found.second);
}

void Workspace::refreshNoteIcons() {
    // A reindex holds the index for seconds in a large vault; its end brings the icons.
    if (!session.get() || session.get()->indexing.get()) return;
    std::map<std::string, std::string> icons;
    try {
        session.get()->index().query("SELECT note_path, value_text FROM properties WHERE key = ?",
                                     {SQLValue::text(Charm::frontmatterKey)}, [&](const Row& row) {
                                         auto symbol = row.text(1);
                                         if (!symbol.empty())
                                             icons.insert_or_assign(std::string(row.text(0)),
                                                                    std::string(symbol));
                                     });
    } catch (const Error&) {  // as far as it was read
    }
    noteIcons.setIfChanged(std::move(icons));
}

void Workspace::scheduleExternalReload() {
    externalReload_ = services_.mainQueue.postAfter(reloadPause, [this] {
        if (!vault.get()) return;
        offMain(
            Priority::userInitiated,
            [open = *vault.get()] { return RecentlyChanged::byRecency(open.enumerateNotes()); },
            [this](std::vector<Note> list) {
                setNotes(std::move(list));
                refreshTrash();
                refreshFolders();
                refreshNoteIcons();
                style.setIfChanged(VaultStyle::load(*vault.get()));
                retryOwedReminderActions();
            });
    });
}

void Workspace::noteWritten(const std::string& path) {
    const TimePoint now = services_.clock.now();
    if (writtenNotes_.empty()) writtenSince_ = now;
    writtenNotes_.insert(path);
    const Seconds left = std::max(longestBurst - Seconds(now - writtenSince_), Seconds{0});
    restamp_ =
        services_.mainQueue.postAfter(std::chrono::duration_cast<Duration>(std::min(left, restampPause)),
                                      [this] { restampWrittenNotes(); });
}

void Workspace::restampWrittenNotes() {
    if (!vault.get()) return;
    struct Stamp {
        TimePoint modified;
        std::int64_t size;
    };
    using Stamps = std::map<std::string, Stamp>;
    offMain(
        Priority::utility,
        [open = *vault.get(), written = std::exchange(writtenNotes_, {})] {
            Stamps stamps;
            for (const auto& path : written) {
                try {
                    if (const auto info = FilePlatform::current().files->info(open.absolutePath(path)))
                        stamps[path] = {info->modified, static_cast<std::int64_t>(info->size)};
                } catch (const Error&) {  // keeps the date it has
                }
            }
            return stamps;
        },
        [this](const Stamps& stamps) {
            auto list = notes.get();
            bool isChanged = false;
            for (Note& note : list) {
                const auto stamp = stamps.find(note.relativePath);
                if (stamp == stamps.end() ||
                    (stamp->second.modified == note.modified && stamp->second.size == note.size))
                    continue;
                note.modified = stamp->second.modified;
                note.size = stamp->second.size;
                isChanged = true;
            }
            if (isChanged) setNotes(RecentlyChanged::byRecency(std::move(list)));
        });
}

}  // namespace vesk
