// The one conversation of the assistant's panel: its turns, which model answers, and what a reply proposes.
// Nothing is written to a note here: rewrites and plans wait for the user's review.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VeskCore/Brain/BrainEvent.h"
#include "VeskCore/Brain/BrainRequest.h"
#include "VeskCore/Brain/NoteEdit.h"
#include "VeskCore/Brain/ProviderSelection.h"
#include "VeskCore/Brain/QuickAction.h"
#include "VeskCore/Brain/VaultContext.h"
#include "VeskCore/Brain/VaultPlan.h"
#include "VeskCore/Brain/VaultPlanExecutor.h"
#include "VeskCore/Index/FilingLedger.h"
#include "VeskCore/Platform/LanguageRecogniser.h"
#include "VeskCore/Platform/SentenceEmbedding.h"
#include "VeskCore/Platform/UserDefaults.h"
#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Observable.h"
#include "VeskCore/Support/Time.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

class VaultSession;

/// What a question is about.
enum class AIScope { vault, note, selection };
std::string_view rawValue(AIScope scope);
std::optional<AIScope> aiScope(std::string_view rawValue);

struct ChatTurn {
    enum class Role { user, assistant };

    std::string id;  ///< a UUID
    Role role = Role::user;
    std::string text;
    std::vector<RetrievedChunk> citations;
    AIScope scope = AIScope::vault;
    std::optional<std::string> failure;  ///< shown in place of the text, or under it
    bool streaming = false;
    bool answeredWithoutContext = false;
    bool offersUnsourcedAnswer = false;  ///< "Answer without my notes" is offered
    std::optional<int> inputTokens, outputTokens;
    std::optional<std::string> providerLabel;
    std::optional<int> planOperations;  ///< how many operations it proposed
    bool proposedRewrite = false;
    bool isOrganiserReport = false;
    bool operator==(const ChatTurn&) const = default;
};

/// What the panel shows of a turn's text.
std::string shownText(const ChatTurn& turn);
/// "From 2 notes"; none without citations.
std::optional<std::string> citationsLabel(const ChatTurn& turn);

/// The selected text of the editor.
struct EditorSelection {
    std::string text;
    std::optional<std::size_t> location;  ///< in the note's text, UTF-16 units
    bool operator==(const EditorSelection&) const = default;
};

/// What the person has before them while they ask.
struct AskSubject {
    std::optional<Note> note;
    std::optional<std::string> noteText;  ///< as it stands in the editor
    std::optional<EditorSelection> selection;
};

/// Where the session gets its providers from. Both are called on workers, since reading keys and asking
/// servers may take a while.
struct ProviderSource {
    std::function<std::vector<ProviderOption>()> options;
    std::function<void(std::stop_token)> probe;  ///< asks what runs on this machine anew; may throw
};

/// All outlive the session.
struct BrainServices {
    Clock& clock;
    MainQueue& mainQueue;
    Background& background;
    UserDefaults& defaults;
    ProviderSource providers;
    SentenceEmbeddingSource& embeddings;
    LanguageRecogniser& languages;
    std::string systemVersion;                ///< of the operating system: "12.5.0"
    std::function<void()> flushPendingSaves;  ///< of every editor
};

/// Main thread only. Tasks of its own hold it weakly.
class BrainSession : public std::enable_shared_from_this<BrainSession> {
public:
    static constexpr std::string_view noProviderConfigured = marked(
        "No AI provider is set up yet. Vesk can use a local model with nothing to pay for — start LM Studio "
        "or Ollama, turn on Apple Intelligence, or paste a key. All three live in Settings → AI (⌘,).");
    static constexpr std::string_view emptyPanelTitle = marked("Ask about your notes");
    static constexpr std::string_view emptyPanelText = marked(
        "Answers are drawn from your vault and cite the notes they came from. Nothing is written to a note "
        "without your approval.");
    static constexpr std::string_view indexingNotice = marked("indexing — keyword answers only");

    static std::shared_ptr<BrainSession> make(BrainServices services);
    ~BrainSession();
    BrainSession(const BrainSession&) = delete;
    BrainSession& operator=(const BrainSession&) = delete;

    // What the panel watches

    Observable<std::vector<ChatTurn>> turns;
    Observable<bool> isStreaming;
    Observable<AIScope> scope;
    Observable<std::vector<ProviderOption>> options;
    Observable<std::optional<BrainProviderID>> activeProviderID;
    Observable<std::string> activeModelID;
    Observable<std::optional<std::string>> lastCoverage;
    /// What the last plan would do, operations that can't be applied among them; empty without a plan that
    /// waits for review.
    Observable<std::vector<VaultPlanExecutor::Preview>> pendingPlan;
    Observable<std::string> pendingPlanSummary;
    Observable<std::vector<std::string>> pendingPlanCoverage;  ///< lines; empty but for an organiser's plan
    Observable<bool> isOrganising, organiseStopRequested;
    Observable<std::optional<std::string>> lastPlanReport;
    Observable<std::optional<NoteEdit>> pendingEdit;
    Observable<bool> discovering;
    /// What the model sends, as it comes.
    EventStream<BrainEvent> events;

    /// A plan moved or trashed notes: moved paths, trashed paths.
    std::function<void(const std::map<std::string, std::string>&, const std::set<std::string>&)> onNotesMoved;
    /// The last plan that was applied, in full.
    const std::optional<VaultPlanExecutor::Report>& lastReport() const { return lastReport_; }

    // The vault and the providers

    /// Another vault ends the conversation.
    void attach(const std::shared_ptr<VaultSession>& session);
    void refreshProviders(bool force);
    void choose(BrainProviderID provider, const std::optional<std::string>& model);
    const ProviderOption* activeOption() const;
    const BrainModel* activeModel() const;
    bool canAsk() const;
    std::string activeSummary() const;

    // Asking

    void ask(std::string_view text, const AskSubject& subject = {}, bool ignoringRetrieval = false);
    /// The last question once more, from what the model knows by itself.
    void askWithoutContext();
    void run(QuickAction action, const AskSubject& subject);
    /// Asks for the folder that the note belongs in; the answer is a plan to review.
    void fileNote(const Note& note, std::string_view noteText, const std::vector<std::string>& folders);
    /// A title for a note; none if the model has none. `done` is called on the main thread, unless the handle
    /// was cancelled. Leaves the conversation alone.
    TaskHandle suggestTitle(std::string_view noteText, std::function<void(std::optional<std::string>)> done);
    /// Files the notes that wait: asks about each and ends in a plan to review. Does nothing while an answer
    /// comes.
    void organiseVault();
    /// Ends the pass after the question at hand; what was decided until then goes to the review.
    void stopOrganising();
    /// Drops the organiser's plan and what it rests on, and asks again.
    void decideAgain();
    void cancel();
    /// Begins a new conversation.
    void clear();

    /// The composer's text: a scope's command is carried out, what remains is to be sent. None if nothing is.
    std::optional<std::string> submitted(std::string_view draft);

    // Proposals

    /// Carries out the reviewed previews. Where the review chose another destination for an operation, by its
    /// id, the plan is checked afresh with that.
    void applyPendingPlan(const std::vector<VaultPlanExecutor::Preview>& previews,
                          const std::map<int, VaultOperation>& destinations = {});
    void discardPendingPlan();
    /// Puts the approved text of an edit into its note. The problem in the user's words, or none.
    std::optional<std::string> applyEdit(const NoteEdit& edit);
    void discardPendingEdit();

private:
    explicit BrainSession(BrainServices services);

    /// The text that a question was about, kept so that a rewrite in the reply becomes an edit.
    struct AskContext {
        Note note;
        std::string original;
        bool isSelection = false;
        std::optional<std::string> noteTextAtAsk;
        std::optional<std::size_t> selectionLocation;
    };
    /// The same for an action.
    struct Rewrite {
        QuickAction action;
        AskContext of;
        std::optional<std::string> subjectDescription;
    };
    /// What a plan may do.
    struct FileNote {
        std::string path;  ///< only this note
    };
    struct Filing {};  ///< only moves
    using PlanFilter = std::variant<FileNote, Filing>;
    struct Answering;
    struct Gathered;
    struct Streaming;
    struct Mailbox;
    struct Organising;
    struct Organised;
    /// What an organiser's plan under review came from.
    struct OrganiseResult {
        std::shared_ptr<FilingLedger> ledger;
        std::string modelKey;
        std::vector<std::string> forbiddenFolders, paths;
    };

    // BrainSession.cpp
    void probed(std::uint64_t number, std::vector<ProviderOption> rows, bool isLast);
    void resolveActiveProvider();
    Answering answering() const;
    std::vector<BrainMessage> conversationHistory() const;
    void gather(const std::string& question, const AskSubject& subject, AIScope about,
                std::vector<BrainMessage> history, bool ignoringRetrieval);
    void gathered(Gathered gathered);
    void begin(std::string words, AIScope about);
    void append(ChatTurn turn);
    void appendFailure(std::string_view message);
    void appendNothingFound(AIScope about);

    // BrainStreaming.cpp
    void stream(Streaming streaming);
    void receive(std::uint64_t number, const std::shared_ptr<Mailbox>& mailbox);
    void ended(std::uint64_t number, const std::shared_ptr<Mailbox>& mailbox);
    void finishStreaming(std::optional<std::string> failure, const std::optional<std::string>& stopReason);
    void findProposal(ChatTurn& turn, const std::optional<std::string>& stopReason);
    /// Whether the text holds a replacement block, even an unchanged one.
    bool findRewrite(ChatTurn& turn, bool wasCut);
    void findPlan(ChatTurn& turn, const std::optional<std::string>& limitToNote, std::string_view unreadable);
    /// How many operations there are to review.
    int extractPlan(std::string_view text, const std::optional<std::string>& limitToNote);

    // BrainOrganiser.cpp
    void organise(std::optional<OrganiseResult> forgetting);
    void showOrganising();
    void finishOrganising(Organised organised);
    void endOrganising(std::string text, std::optional<std::string> failure,
                       std::optional<int> planOperations);
    /// What a cancelled pass leaves behind; none if there was no pass.
    std::optional<std::string> abandonOrganising();
    void rememberApplied(const std::map<std::string, std::string>& moves);

    BrainServices services_;
    std::weak_ptr<VaultSession> vaultSession_;
    std::optional<FilePath> attachedRoot_;
    std::optional<VaultContext::Coverage> lastCoverageKind_;
    std::optional<AskContext> pendingAskContext_;
    std::optional<PlanFilter> planFilter_;
    std::optional<std::string> pendingPlanLimit_;  ///< the one note that the pending plan may touch
    int lastPlanDropped_ = 0;
    std::optional<VaultPlanExecutor::Report> lastReport_;
    std::shared_ptr<Organising> organising_;  ///< the pass under way
    std::optional<OrganiseResult> organiseResult_;
    TaskHandle work_, probeTask_;
    std::uint64_t generation_ = 0, probeGeneration_ = 0;  ///< of what may still report back
    std::optional<Duration> lastProbe_;                   ///< on the monotonic clock
};

}  // namespace vesk
