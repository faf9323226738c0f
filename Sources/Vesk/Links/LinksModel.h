// The links pane without its widgets: what links to the selected note, what it links to, and mentions of it
// that could become links.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Vesk/Links/LinkEditor.h"
#include "Vesk/Workspace.h"
#include "VeskCore/Index/LinkQueries.h"
#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Observable.h"

namespace vesk {

/// Keeps only the latest of overlapping refreshes.
class LinkRefreshCoalescer {
public:
    std::uint64_t begin() { return ++generation_; }
    bool isLatest(std::uint64_t generation) const { return generation == generation_; }

private:
    std::uint64_t generation_ = 0;
};

/// Follows the workspace's selection and its session, both borrowed. Main thread.
class LinksModel : public std::enable_shared_from_this<LinksModel> {
public:
    /// What the pane says where it has nothing to list; the heading may be empty.
    struct Message {
        std::string heading, text;
        bool operator==(const Message&) const = default;
    };
    enum class State { noNote, noIndex, indexing, reading, shown };

    /// `mainQueue` and `background` outlive it.
    static std::shared_ptr<LinksModel> make(Workspace& workspace, MainQueue& mainQueue,
                                            Background& background);

    Observable<State> state{State::noNote};
    Observable<LinkOverview> overview;
    Observable<UnlinkedMentionScan> mentions;
    Observable<bool> scanning;
    LinkEditor editor;

    /// Nothing is read while nobody looks.
    void setVisible(bool visible);
    void refresh();

    std::optional<Message> message() const;           ///< in place of the whole pane
    std::optional<Message> backlinksMessage() const;  ///< in place of the list
    std::optional<Message> outgoingMessage() const;
    std::optional<Message> mentionsMessage() const;  ///< in place of the list or below it

    /// The backlinks of one note.
    struct Group {
        std::string path, title;
        std::vector<Backlink> links;
        bool operator==(const Group&) const = default;
    };
    std::vector<Group> groups() const;
    /// Each place once.
    std::vector<OutgoingLink> outgoing() const;
    /// True for a note that the index lists and the vault doesn't hold any more.
    bool isStale(const std::string& path) const { return stale_.contains(path); }
    static std::string staleMessage(std::string_view path);

    PendingLink pendingLink(const UnlinkedMention& mention) const;
    /// The pending link as it was put in, for undo(); none, with the editor's lastError, if it was not.
    std::optional<PendingLink> link(const UnlinkedMention& mention);
    bool undo(const PendingLink& link);

    /// A link that leads to no note: where one would be made, or why it can't be.
    struct MissingTarget {
        std::string name, folder;
        std::optional<Message> refusal;
        bool operator==(const MissingTarget&) const = default;
    };
    static MissingTarget missingTarget(std::string_view target);
    /// Makes the note of a target that isn't refused, and selects it. Failures go to the workspace's
    /// folderError.
    bool createMissing(std::string_view target);

private:
    LinksModel(Workspace& workspace, MainQueue& mainQueue, Background& background);
    void watch();
    void watchSession();
    void show(State next);
    void forget();
    void scanLater();
    void scan();
    void stopScan();

    Workspace& workspace_;
    MainQueue& mainQueue_;
    Background& background_;
    bool isVisible_ = false;
    std::string path_;      ///< of the note that the lists are of; empty for none
    std::string linkName_;  ///< what a link to it is called
    std::set<std::string> stale_;
    LinkRefreshCoalescer refreshes_, scans_;
    TaskHandle reading_, scan_;
    TimerHandle scanTimer_;
    std::vector<Subscription> subscriptions_, sessionSubscriptions_;
};

}  // namespace vesk
