// The application's model: what is open, what is selected, what the sidebar shows, and the door for
// everything a person does to the structure of the vault. One per application; outlasts the sessions of the
// vaults opened in it. Main thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Vesk/Editor/EditorBridge.h"
#include "Vesk/Editor/EditorSurface.h"
#include "Vesk/HomeSections.h"
#include "Vesk/NoteHistory.h"
#include "Vesk/Reminders/ReminderCenter.h"
#include "Vesk/VaultSession.h"
#include "VeskCore/Platform/Bookmarks.h"
#include "VeskCore/Vault/VaultBookmarks.h"
#include "VeskCore/Vault/VaultStyle.h"
#include "VeskCore/Vault/VaultTrash.h"
#include "VeskCore/Vault/VaultTree.h"

namespace vesk {

/// The remembered vault can't be opened.
struct VaultLaunchProblem {
    std::optional<std::string> path;
    std::vector<FilePath> alternatives;  ///< older vaults that open
    bool operator==(const VaultLaunchProblem&) const = default;
};

/// A folder to be chosen by the person.
struct FolderPanel {
    std::string prompt, message;
    std::optional<FilePath> directory;  ///< where it starts
    bool operator==(const FolderPanel&) const = default;
};

/// What the workspace borrows; all outlive it.
struct WorkspaceServices {
    Clock& clock;
    MainQueue& mainQueue;
    Background& background;
    Log& log;
    UserDefaults& defaults;
    const Bookmarks& bookmarks;
    FileVersions& fileVersions;
    SentenceEmbeddingSource& embeddings;
    std::function<Calendar()> calendar;  ///< asked anew each time: the device may travel
    EditorBridge& bridge;
    ReminderCenter& reminderCenter;
    std::function<std::unique_ptr<FileEventSource>(const Vault&)> fileEvents;
    /// Asks for a folder; answers on the main thread, none if the person cancelled.
    std::function<void(const FolderPanel&, std::function<void(std::optional<FilePath>)>)> chooseFolder;
};

class Workspace {
public:
    enum class InspectorTab { links, ai };
    static std::string_view rawValue(InspectorTab tab) { return tab == InspectorTab::ai ? "ai" : "links"; }
    static constexpr std::string_view onboardedKey = "vesk.onboarded";
    static constexpr std::string_view inspectorShownKey = "vesk.window.inspector.shown";
    static constexpr std::string_view inspectorTabKey = "vesk.window.inspector.tab";
    static const std::set<std::string>& sessionWarningCodes();

    explicit Workspace(WorkspaceServices services);
    ~Workspace();
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;

    // What the interface watches

    Observable<std::optional<Vault>> vault;
    Observable<std::shared_ptr<VaultSession>> session;
    /// The note pane of the open session; none without a session.
    Observable<std::shared_ptr<EditorSurface>> surface;
    Observable<std::vector<Note>> notes;  ///< newest first
    Observable<std::vector<VaultDocument>> documents;
    Observable<std::optional<std::string>> selection;  ///< the relative path of a note or document
    Observable<std::vector<VaultWarning>> warnings;
    Observable<bool> showInspector;  ///< remembered from run to run, as is the tab
    Observable<InspectorTab> inspectorTab;
    Observable<std::string> status;
    Observable<bool> needsOnboarding;
    Observable<std::optional<VaultLaunchProblem>> launchProblem;
    Observable<VaultStyle> style;
    Observable<std::map<std::string, std::string>> noteIcons;  ///< path → name of a symbol
    Observable<std::vector<TrashedNote>> trashedNotes;
    Observable<int> trashedOtherItems;
    Observable<VaultTree> tree;
    Observable<std::vector<std::string>> emptyFolders, attachments;
    Observable<HomeSections> home;
    /// Whether there is a note to go back to, and one to go forward to.
    Observable<std::pair<bool, bool>> canGo;
    /// The message of the last structural act that failed; shown by the view and cleared by it.
    Observable<std::optional<std::string>> folderError;
    /// The editor wants the keyboard.
    EventStream<> editorFocusRequested;

    std::optional<Note> selectedNote() const;
    std::optional<VaultDocument> selectedDocument() const;
    std::optional<Note> note(std::string_view path) const;

    // Choosing a vault

    void restoreLastVault();
    enum class StartIn { documents = 1, cloudDrive = 2 };
    void chooseVault(StartIn start);
    /// `opened` tells whether the vault is open now; false if the person stayed with unsaved text.
    void open(const FilePath& folder, std::function<void(bool opened)> opened = {});
    /// open(), and remembered as the last vault if it does.
    void openAndRemember(const FilePath& folder, std::function<void(bool opened)> opened = {});
    void finishOnboarding();
    /// Saves and stops the session; the application is about to end.
    void close();

    // Lists

    void reload();
    void refreshFolders();
    void refreshTrash();
    void refreshNoteIcons();
    /// The sections follow when a worker has drawn them up.
    void refreshHome();
    void scheduleExternalReload();

    // Structure. Paths that may be the ones that the act changes are taken by value.

    void select(const std::optional<std::string>& path);
    /// To the note that was selected before, or after; one that is gone by now is passed over.
    void goBack() { go(&NoteHistory::goBack); }
    void goForward() { go(&NoteHistory::goForward); }
    void newNote(const std::optional<std::string>& folder = {});
    void newReminder();
    /// The folder's path, or none after a failure.
    std::optional<std::string> createFolder(std::string_view name, std::string_view parent);
    /// The new path, or none after a failure.
    std::optional<std::string> renameFolder(std::string path, std::string_view name);
    /// The new path, or none after a failure.
    std::optional<std::string> renameNote(std::string path, std::string_view name);
    void moveNote(std::string path, const std::string& folder);
    void trashNote(std::string path);
    void trashFolder(std::string path);
    void restoreTrashed(const TrashedNote& note);
    void emptyTrash();
    void followStructureChange(const std::map<std::string, std::string>& renamed,
                               const std::set<std::string>& removed);
    void setFolderColor(const std::string& path, std::optional<FolderColor> color);
    std::optional<FolderColor> folderColor(const std::string& path) const;
    /// None takes the icon away.
    void setNoteIcon(const std::string& path, const std::optional<std::string>& symbol);
    bool openDocument(const std::string& path);
    /// The page or stylesheet that a link in a note leads to.
    std::optional<std::string> document(std::string_view link, const std::string& fromNote) const;

    // Reminders

    void applyReminderAction(const std::string& path, ReminderAction::Kind kind, TimePoint tappedAt,
                             bool retrying = false);
    void retryOwedReminderActions();
    void setReminder(const std::string& path, std::optional<TimePoint> date,
                     std::optional<NoteReminder::Repeat> repeat);
    void removeReminder(const std::string& path);
    void setPriority(const std::string& path, bool flagged);

private:
    struct Life;
    struct OwedAction {
        ReminderAction::Kind kind;
        TimePoint tappedAt;
    };

    void openConfirmed(const FilePath& folder);
    void leaveSession();
    void startListing();
    void diagnose();
    void wireSession();
    void selectionChanged(const std::optional<std::string>& path);
    void go(std::optional<std::string> (NoteHistory::*step)());
    void pathChanged(const std::string& from, const std::string& to);
    void pathsRemoved(const std::set<std::string>& paths);
    void publishHistory();
    void setNotes(std::vector<Note> list);
    void setDocuments(std::vector<VaultDocument> list);
    void rebuildTree();
    void followDepartedSelection();
    void noteWritten(const std::string& path);
    void restampWrittenNotes();
    void warnOfSession(std::vector<VaultWarning> found);
    void dropWarnings(const std::set<std::string>& codes);
    bool isOpen(const FilePath& root) const { return vault.get() && vault.get()->root() == root; }
    void fail(std::string message) { folderError.set(std::move(message)); }
    /// True if the action waits for the index and will be run then.
    bool waitingForIndex(std::function<void()> action);
    void rewriteFromRow(const std::string& path, std::string_view what,
                        const std::function<std::string(const std::string&)>& change);
    void openFromReminder(const std::string& path, const std::string& root);
    void oweReminderAction(const std::string& path, OwedAction action);
    void forgetOwedReminderAction(const std::string& path);
    std::string titleOf(const std::string& path) const;
    /// `job` on the main thread after `work` on a worker, unless another vault is open by then.
    template <class Work, class Job>
    void offMain(Priority priority, Work work, Job job);

    WorkspaceServices services_;
    VaultBookmarks bookmarks_;
    std::unique_ptr<FileEventSource> fileEvents_;
    std::vector<std::shared_ptr<FileEventSource>> formerEvents_;
    std::vector<Subscription> subscriptions_, sessionSubscriptions_;
    TimerHandle externalReload_, restamp_, iconsAgain_, indexWait_;
    std::set<std::string> writtenNotes_;
    TimePoint writtenSince_;
    std::uint64_t homeRefresh_ = 0;  ///< what an older refresh draws up is dropped
    std::map<std::string, OwedAction> owedReminderActions_;
    std::set<std::string> owedReminderSaid_;
    std::vector<std::function<void()>> waitingForIndex_;
    NoteHistory history_;
    std::shared_ptr<Life> life_;
};

}  // namespace vesk
