// Choosing, opening and leaving vaults.
#include "Vesk/Workspace.h"

#include <algorithm>
#include <cstdlib>

#include "Vesk/WorkspaceTasks.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/RecentlyChanged.h"

namespace vesk {

namespace {

constexpr std::size_t alternativesShown = 3;
constexpr auto iconsPause = std::chrono::duration_cast<Duration>(Seconds{3});

std::optional<FilePath> homeFolder(const char* below) {
    const char* home = std::getenv("HOME");
    if (!home || !*home) return {};
    const FilePath folder = FilePath(home) / below;
    try {
        const auto info = FilePlatform::current().files->info(folder);
        if (info && info->kind == FileKind::directory) return folder;
    } catch (const Error&) {  // the panel starts where it likes
    }
    return {};
}

std::string folderName(const FilePath& folder) {
    return decodedText(folder.filename().native());
}

}  // namespace

const std::set<std::string>& Workspace::sessionWarningCodes() {
    static const std::set<std::string> codes{"index", "recovered", "released", "keptInTrash"};
    return codes;
}

Workspace::Workspace(WorkspaceServices services)
    : services_(std::move(services)),
      bookmarks_(services_.defaults, services_.bookmarks),
      writtenSince_(distantPast()),
      life_(std::make_shared<Life>(Life{this})) {
    needsOnboarding.set(!services_.defaults.boolean(onboardedKey).value_or(false));
    auto& defaults = services_.defaults;
    showInspector.set(defaults.boolean(inspectorShownKey).value_or(false));
    inspectorTab.set(defaults.string(inspectorTabKey) == rawValue(InspectorTab::ai) ? InspectorTab::ai
                                                                                    : InspectorTab::links);
    subscriptions_.push_back(
        showInspector.subscribe([&defaults](bool shows) { defaults.set(inspectorShownKey, shows); }));
    subscriptions_.push_back(inspectorTab.subscribe(
        [&defaults](InspectorTab tab) { defaults.set(inspectorTabKey, std::string(rawValue(tab))); }));
    subscriptions_.push_back(selection.subscribe([this](const auto& path) { selectionChanged(path); }));
    services_.reminderCenter.onOpen = [this](const std::string& path, const std::string& root) {
        openFromReminder(path, root);
    };
    services_.reminderCenter.onAction = [this](const ReminderAction& action, TimePoint tappedAt) {
        if (action.vault.empty() || isOpen(action.vault))
            return applyReminderAction(action.path, action.kind, tappedAt);
        services_.reminderCenter.carryOut(action, tappedAt);
    };
}

Workspace::~Workspace() {
    services_.reminderCenter.onOpen = nullptr;
    services_.reminderCenter.onAction = nullptr;
    leaveSession();
}

void Workspace::finishOnboarding() {
    services_.defaults.set(onboardedKey, true);
    needsOnboarding.setIfChanged(false);
}

void Workspace::restoreLastVault() {
    using Restored = VaultBookmarks::Restored;
    match(
        bookmarks_.restoreMostRecent(), [&](const Restored::Vault& found) { open(found.path); },
        [&](const Restored::Unavailable& gone) {
            launchProblem.set(VaultLaunchProblem{
                .path = gone.path, .alternatives = bookmarks_.olderVaultsThatOpen(alternativesShown)});
        },
        [&](const Restored::NothingRemembered&) { launchProblem.set(std::nullopt); });
}

void Workspace::chooseVault(StartIn start) {
    const FolderPanel panel{
        .prompt = localised("Open Vault"),
        .message = localised(
            "Choose a folder for your notes. Put it in iCloud Drive to sync across devices, or anywhere "
            "else to keep it on this Mac."),
        .directory = start == StartIn::documents
                         ? homeFolder("Documents")
                         : homeFolder("Library/Mobile Documents/com~apple~CloudDocs")};
    services_.chooseFolder(panel, [this, weak = std::weak_ptr<Life>(life_)](std::optional<FilePath> folder) {
        if (folder && weak.lock()) openAndRemember(*folder);
    });
}

void Workspace::openAndRemember(const FilePath& folder, std::function<void(bool)> opened) {
    open(folder, [this, folder, opened = std::move(opened)](bool isOpen) {
        if (isOpen) bookmarks_.store(folder);
        if (opened) opened(isOpen);
    });
}

void Workspace::open(const FilePath& folder, std::function<void(bool)> opened) {
    services_.bridge.flushAllPendingSaves();
    services_.bridge.confirmLeavingUnsavedText(
        LeavingContext::openingAnotherVault,
        [this, weak = std::weak_ptr<Life>(life_), folder, opened = std::move(opened)](bool safe) {
            if (!weak.lock()) return;
            if (safe) openConfirmed(folder);
            if (opened) opened(safe);
        });
}

void Workspace::leaveSession() {
    sessionSubscriptions_.clear();
    if (const auto former = session.get()) {
        if (surface.get()) surface.get()->close();
        former->stop();
    }
    owedReminderActions_.clear();
    owedReminderSaid_.clear();
    waitingForIndex_.clear();
    externalReload_.cancel();
    restamp_.cancel();
    iconsAgain_.cancel();
}

void Workspace::close() {
    leaveSession();
    surface.set(nullptr);
    session.set(nullptr);
}

void Workspace::openConfirmed(const FilePath& folder) {
    leaveSession();
    dropWarnings(sessionWarningCodes());
    launchProblem.setIfChanged(std::nullopt);
    vault.set(Vault(folder));
    const Vault& open = *vault.get();
    try {
        open.ensureSupportDirectory();
    } catch (const Error&) {  // a folder that can't be written to can still be read
    }
    writtenNotes_.clear();
    surface.set(nullptr);
    session.set(nullptr);
    selection.set(std::nullopt);
    history_.clear();
    publishHistory();
    notes.set({});
    documents.set({});
    emptyFolders.set({});
    attachments.set({});
    home.setIfChanged({});
    rebuildTree();
    noteIcons.set({});
    style.set({});
    status.set(localised("Opening {}…", folderName(open.root())));
    startListing();

    // The stream of a session that is being stopped may still have an event under way.
    if (fileEvents_) formerEvents_.push_back(std::move(fileEvents_));
    fileEvents_ = services_.fileEvents(open);
    const SessionServices seams{.clock = services_.clock,
                                .mainQueue = services_.mainQueue,
                                .background = services_.background,
                                .log = services_.log,
                                .defaults = services_.defaults,
                                .fileEvents = *fileEvents_,
                                .fileVersions = services_.fileVersions,
                                .embeddings = services_.embeddings,
                                .calendar = services_.calendar};
    try {
        const auto made = VaultSession::make(open, seams);
        session.set(made);
        surface.set(EditorSurface::make(made, services_.bridge, seams));
    } catch (const std::exception&) {
        surface.set(nullptr);
        session.set(nullptr);
        warnings.modify([](auto& list) {
            list.push_back(
                {.code = "index",
                 .title = localised("Search index unavailable"),
                 .detail = localised("Vesk couldn't open its index, so search and AI will be limited. Your "
                                     "notes are unaffected."),
                 .severity = VaultWarning::Severity::warning});
        });
        return;
    }
    wireSession();
    session.get()->start();
    warnOfSession(session.get()->heldTextWarnings());
}

void Workspace::wireSession() {
    auto& open = *session.get();
    const auto weak = std::weak_ptr<Life>(life_);
    open.onExternalChange = [weak] {
        if (const auto life = weak.lock()) life->workspace->scheduleExternalReload();
    };
    open.onNoteWritten = [weak](const std::string& path) {
        if (const auto life = weak.lock()) life->workspace->noteWritten(path);
    };
    open.onPendingDrained = [weak] {
        if (const auto life = weak.lock()) life->workspace->dropWarnings({"evicted"});
    };
    sessionSubscriptions_.push_back(open.reminders.subscribe([this](const auto& list) {
        if (vault.get()) services_.reminderCenter.sync(list, *vault.get());
        refreshHome();
    }));
    sessionSubscriptions_.push_back(open.indexing.subscribe([this](bool indexing) {
        if (indexing) return;
        refreshNoteIcons();
        for (const auto& action : std::exchange(waitingForIndex_, {})) action();
    }));
    sessionSubscriptions_.push_back(surface.get()->saved.subscribe(
        [this](const std::string& path, const std::string&, const ForeignEdit::Outcome&) {
            // The shown text may have gone to another place with the save.
            const auto& shown = surface.get()->loadedPath();
            if (shown && selection.get() == path && *shown != path) selection.set(shown);
        }));
}

void Workspace::warnOfSession(std::vector<VaultWarning> found) {
    if (found.empty()) return;
    warnings.modify([&](auto& list) {
        list.insert(list.begin(), std::make_move_iterator(found.begin()),
                    std::make_move_iterator(found.end()));
    });
}

void Workspace::dropWarnings(const std::set<std::string>& codes) {
    auto list = warnings.get();
    std::erase_if(list, [&](const VaultWarning& warning) { return codes.contains(warning.code); });
    warnings.setIfChanged(std::move(list));
}

void Workspace::startListing() {
    offMain(
        Priority::userInitiated,
        [open = *vault.get()] { return RecentlyChanged::byRecency(open.enumerateNotes()); },
        [this](std::vector<Note> list) {
            const auto count = list.size();
            setNotes(std::move(list));
            status.set(localised("{} notes", count) + " · " +
                       localised(displayName(vault.get()->provider())));
            diagnose();
            refreshFolders();
            refreshTrash();
            style.set(VaultStyle::load(*vault.get()));
            refreshNoteIcons();
            iconsAgain_ = services_.mainQueue.postAfter(iconsPause, [this] { refreshNoteIcons(); });
        });
}

/// Goes through the whole folder again, which the list doesn't wait for.
void Workspace::diagnose() {
    offMain(
        Priority::utility, [open = *vault.get()] { return open.diagnose(); },
        [this](const std::vector<VaultWarning>& found) {
            auto list = warnings.get();
            std::erase_if(list, [](const auto& one) { return !sessionWarningCodes().contains(one.code); });
            list.insert(list.end(), found.begin(), found.end());
            warnings.set(std::move(list));
        });
}

void Workspace::selectionChanged(const std::optional<std::string>& path) {
    path ? history_.visit(*path) : history_.leave();
    publishHistory();
    const auto& pane = surface.get();
    if (!pane) return;
    if (!path || Vault::isDocument(*path)) {
        if (pane->loadedPath()) pane->close();
        return;
    }
    if (pane->loadedPath() != *path) pane->load(*path);
}

void Workspace::go(std::optional<std::string> (NoteHistory::*step)()) {
    while (const auto path = (history_.*step)()) {
        const auto moved =
            note(*path) || !session.get() ? std::nullopt : session.get()->departures().destination(*path);
        if (moved && note(*moved)) {
            history_.moved(*path, *moved);
            selection.set(moved);
            return;
        }
        if (note(*path) || openDocument(*path)) {
            selection.setIfChanged(path);
            return publishHistory();
        }
        history_.removed(*path);
    }
    // Nothing is left that way; what is shown goes on being shown.
    if (selection.get()) step == &NoteHistory::goBack ? history_.goForward() : history_.goBack();
    publishHistory();
}

void Workspace::pathChanged(const std::string& from, const std::string& to) {
    history_.moved(from, to);
    publishHistory();
}

void Workspace::pathsRemoved(const std::set<std::string>& paths) {
    for (const auto& path : paths) history_.removed(path);
    publishHistory();
}

void Workspace::publishHistory() {
    canGo.setIfChanged({history_.canGoBack(), history_.canGoForward()});
}

void Workspace::select(const std::optional<std::string>& path) {
    if (path && Vault::isDocument(*path)) {
        openDocument(*path);
        return;
    }
    if (path && (path->empty() || Vault::leavesVault(*path))) return;
    selection.setIfChanged(path);
}

std::optional<Note> Workspace::note(std::string_view path) const {
    const auto& list = notes.get();
    const auto found = std::find_if(list.begin(), list.end(),
                                    [&](const Note& candidate) { return candidate.relativePath == path; });
    if (found == list.end()) return {};
    return *found;
}

std::optional<Note> Workspace::selectedNote() const {
    return selection.get() ? note(*selection.get()) : std::nullopt;
}

std::optional<VaultDocument> Workspace::selectedDocument() const {
    for (const auto& candidate : documents.get()) {
        if (candidate.relativePath == selection.get()) return candidate;
    }
    return {};
}

}  // namespace vesk
