// The note pane without its widgets: what text stands in the editor, when it is saved, and what the user is
// told when a save doesn't simply succeed.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Vesk/Editor/EditorBridge.h"
#include "Vesk/VaultSession.h"
#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Observable.h"
#include "VeskCore/Support/TextRange.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/ForeignEdit.h"

namespace vesk {

/// Main thread. Outlives no session: the workspace makes one per window and tells it which session is open.
class EditorSurface : public std::enable_shared_from_this<EditorSurface> {
public:
    struct LoadState {
        struct Failed {
            std::string message;
            bool operator==(const Failed&) const = default;
        };
        enum class Plain { idle, downloading, loaded };
        std::variant<Failed, Plain> value = Plain::idle;
        bool operator==(const LoadState&) const = default;
    };

    struct SaveNotice {
        struct KeptBoth {
            std::string copyPath;
            bool operator==(const KeptBoth&) const = default;
        };
        struct Failed {
            std::string message;
            bool operator==(const Failed&) const = default;
        };
        struct Waiting {
            std::string message;
            bool operator==(const Waiting&) const = default;
        };
        struct Followed {
            std::string to;
            bool operator==(const Followed&) const = default;
        };
        struct Recovered {
            std::string copyPath;
            bool operator==(const Recovered&) const = default;
        };
        using Kind = std::variant<KeptBoth, Failed, Waiting, Followed, Recovered>;
        std::string notePath;
        Kind kind;
        bool operator==(const SaveNotice&) const = default;
    };
    /// The banner of a notice.
    struct Banner {
        std::string heading, text;
        std::vector<std::string> actions;
        bool operator==(const Banner&) const = default;
    };
    /// `noteIsShown`: the notice's note is the one in the editor.
    static Banner banner(const SaveNotice& notice, bool noteIsShown);

    /// Survives note switches: what is known of each note's file, and what could not be saved.
    struct Ledger {
        std::string id;  ///< the owner's identity in the held-text store
        std::map<std::string, std::string> baselines;
        int seenRevision = 0;
        std::map<std::string, std::string> unsaved;
        /// By path, who holds the text in the store: `id`, and names made from it where more than one text is
        /// held, so that two notes of which one came to the other's path stay apart there.
        std::map<std::string, std::string> owners;
    };

    struct DiskLook {
        struct Current {
            std::string text;
            bool operator==(const Current&) const = default;
        };
        struct OutOfDate {
            std::optional<std::string> text;
            bool operator==(const OutOfDate&) const = default;
        };
        struct Nothing {
            bool operator==(const Nothing&) const = default;
        };
        std::variant<Current, OutOfDate, Nothing> value = Nothing{};
        bool operator==(const DiskLook&) const = default;
        static DiskLook at(const FilePath& path);
    };

    static std::shared_ptr<EditorSurface> make(std::shared_ptr<VaultSession> session, EditorBridge& bridge,
                                               const SessionServices& services);
    ~EditorSurface();

    // What the view shows

    const std::string& text() const { return text_; }
    const std::optional<std::string>& loadedPath() const { return loadedPath_; }
    Observable<LoadState> state;
    /// Raised each time the text is replaced from outside the editor.
    Observable<int> loadGeneration;
    Observable<std::optional<SaveNotice>> notice;
    Observable<std::optional<std::string>> olderCopyPath;
    std::string title;
    /// UTF-16 units; the view keeps it up to date, a reload maps it.
    TextRange selection;
    const Ledger& ledger() const { return ledger_; }

    /// Every save that was decided, for those who follow along.
    EventStream<std::string, std::string, ForeignEdit::Outcome> saved;  ///< path, text, outcome

    // What the person does

    /// The whole buffer after a keystroke. A change of a note that isn't loaded is not accepted: false. Where
    /// the text isn't as a file gives it back (line ends as CR LF, a byte order mark) it is shown anew as it
    /// is.
    bool edit(std::string text);
    /// A change that the application makes to the shown note: shown with the caret where it was, and saved at
    /// once as what is typed is. False where no note is loaded.
    bool change(const std::string& text);
    void load(const std::string& path);
    /// Leaves the note: what was typed is saved first.
    void close();
    void flush();
    void retrySave();
    void dismissNotice();

    /// When the session's disk revision changes, or, unannounced, when the application comes to the front.
    void followDisk(bool evenIfUnannounced);
    /// The application itself moved a note or folder: what is known of its notes goes with them.
    void follow(const std::string& from, const std::string& to);

private:
    EditorSurface(std::shared_ptr<VaultSession> session, EditorBridge& bridge,
                  const SessionServices& services);
    void begin(const std::string& path);
    void loaded(const std::string& text, const std::string& path);
    void download(const std::string& path);
    void downloaded(const FreshRead& fresh, const std::string& path);
    void failed(std::string message);
    void adopt(const DiskLook& look, const std::string& path);
    /// Another text in the place of the shown one, the selection mapped.
    void replaceText(const std::string& text);
    void leave();
    void write(const std::string& text, const std::string& path, bool waitingForNewerVersion);
    std::optional<std::string> baselineOf(const std::string& path) const;
    bool holdsNow(const std::string& text, const std::string& path) const;
    void keepUnlessTrashed(const ForeignEdit::Outcome& outcome, const std::string& text,
                           const std::string& path);
    void record(const ForeignEdit::Outcome& outcome, const std::string& text, const std::string& path);
    void takeOver(const std::string& disk, const std::string& text, const std::string& path);
    void followShown(const std::string& from, const std::string& to);
    void show(std::optional<SaveNotice> next, const std::optional<std::string>& ifUnsavedFor);
    void hold(const std::string& text, const std::string& path);
    void letGoOf(const std::string& path);
    const std::string& ownerOf(const std::string& path);
    void makeWayFor(const std::string& from, const std::string& to);
    std::vector<std::string> retryHeldBeforeLeaving();
    bool isLoaded() const {
        return state.get().value == decltype(LoadState::value)(LoadState::Plain::loaded);
    }

    std::shared_ptr<VaultSession> session_;
    EditorBridge& bridge_;
    SessionServices services_;
    EditorCoordinator coordinator_;
    std::shared_ptr<EditorHandle> handle_;
    std::string text_;
    std::optional<std::string> loadedPath_;
    Ledger ledger_;
    int loadToken_ = 0;
    int lookToken_ = 0;  ///< of looks at the disk, whose answers may overtake each other
    TaskHandle reading_;
    std::vector<Subscription> subscriptions_;
};

}  // namespace vesk
