#include "Vesk/Views/Assistant.h"

#include "Vesk/AI/DiffApproval.h"
#include "Vesk/AI/PlanReview.h"
#include "Vesk/Views/AssistantPlanReport.h"
#include "Vesk/Views/AssistantPlanSheet.h"
#include "Vesk/Views/AssistantRewriteSheet.h"
#include "Vesk/Views/AssistantSettings.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk::views {

Assistant::Assistant(const DesktopSeams& seams, Workspace& workspace, EditorBridge& bridge,
                     AssistantHost host)
    : seams_(seams),
      workspace_(workspace),
      bridge_(bridge),
      host_(std::move(host)),
      settings_(ProviderSettings::make(seams_.providers, seams_.secrets, seams_.defaults, seams_.mainQueue,
                                       seams_.background)),
      brain_(BrainSession::make(services())),
      titles_(
          [this](std::string_view text, std::function<void(std::optional<std::string>)> done) {
              return brain_->suggestTitle(text, std::move(done));
          },
          [this](const std::string& path, const std::string& title) {
              return workspace_.renameNote(path, title);
          }),
      pane_(brain_, paneActions()),
      titleCard_(titles_) {
    connect();
    sessionChanged();
    surfaceChanged();
}

Assistant::~Assistant() {
    proposedTimer_.disconnect();
    passageTimer_.disconnect();
    subscriptions_.clear();
    brain_->onNotesMoved = nullptr;
    settings_->onChanged = nullptr;
    brain_->cancel();
}

BrainServices Assistant::services() {
    const auto& providers = seams_.providers;
    return {.clock = seams_.clock,
            .mainQueue = seams_.mainQueue,
            .background = seams_.background,
            .defaults = seams_.defaults,
            .providers = {
                .options = [&providers] { return providers.options(); },
                .probe = [&providers](
                             std::stop_token stop) { providers.probeLocalServers(true, std::move(stop)); }},
            .embeddings = seams_.embeddings,
            .languages = seams_.languages,
            .systemVersion = seams_.systemVersion,
            .flushPendingSaves = [this] { bridge_.flushAllPendingSaves(); }};
}

AssistantPaneActions Assistant::paneActions() {
    return {.subject = [this] { return BrainActions::subject(*this); },
            .run = [this](QuickAction action) { run(action); },
            .fileNote = [this] { fileNote(); },
            .organise = [this] { organise(); },
            .openSettings = [this] { openSettings(); },
            .reviewEdit = [this] { reviewEdit(); },
            .reviewPlan = [this] { reviewPlan(); },
            .cite = [this](const CitedNote& note) { cite(note); },
            .follow = [this](const AnswerLink& link) { follow(link); }};
}

void Assistant::connect() {
    settings_->onChanged = [this] { brain_->refreshProviders(true); };
    brain_->onNotesMoved = [this](const std::map<std::string, std::string>& moved,
                                  const std::set<std::string>& trashed) {
        workspace_.followStructureChange(moved, trashed);
    };
    subscriptions_.push_back(workspace_.session.subscribe([this](const auto&) { sessionChanged(); }));
    subscriptions_.push_back(workspace_.surface.subscribe([this](const auto&) { surfaceChanged(); }));
    subscriptions_.push_back(workspace_.selection.subscribe([this](const std::optional<std::string>& path) {
        const auto before = std::exchange(shownNote_, path);
        if (before && before != path) left(*before);
    }));
    subscriptions_.push_back(workspace_.notes.subscribe([this](const auto&) {
        const auto offer = titles_.pending.get();
        if (offer && !workspace_.note(offer->path)) titles_.withdraw(offer->path);
    }));
    const auto readyChanged = [this](const auto&) { host_.readyChanged(); };
    subscriptions_.push_back(brain_->options.subscribe(readyChanged));
    subscriptions_.push_back(brain_->activeProviderID.subscribe(readyChanged));
    subscriptions_.push_back(brain_->pendingEdit.subscribe([this](const auto& edit) {
        if (edit) proposed();
    }));
    subscriptions_.push_back(brain_->pendingPlan.subscribe([this](const auto& plan) {
        if (!plan.empty()) proposed();
    }));
}

void Assistant::sessionChanged() {
    sessionSubscriptions_.clear();
    const auto session = workspace_.session.get();
    pane_.setIndexing(session && session->indexing.get());
    if (!session) return;
    sessionSubscriptions_.push_back(
        session->indexing.subscribe([this](bool indexing) { pane_.setIndexing(indexing); }));
    brain_->attach(session);
}

void Assistant::surfaceChanged() {
    surfaceSubscriptions_.clear();
    passage_.reset();
    if (const auto surface = workspace_.surface.get())
        surfaceSubscriptions_.push_back(surface->loadGeneration.subscribe([this](int) { placePassage(); }));
}

// What keys and menus do

void Assistant::ask() {
    BrainActions::askVesk(*brain_, *this);
    pane_.focusComposer();
}

void Assistant::run(QuickAction action) {
    BrainActions::run(action, *brain_, *this);
}

void Assistant::fileNote() {
    BrainActions::fileNote(*brain_, *this);
}

void Assistant::organise() {
    if (!workspace_.session.get()) return;
    if (!brain_->canAsk()) return openSettings();
    openPanel();
    // The plan is reviewed as soon as it stands, where the keyboard waits for it.
    pane_.focusComposer();
    brain_->organiseVault();
}

void Assistant::stop() {
    pane_.stop();
}

void Assistant::newConversation() {
    brain_->cancel();
    brain_->clear();
    ask();
}

void Assistant::openSettings() {
    showAssistantSettings(host_.window(), settings_);
}

std::optional<std::string> Assistant::liveText(const std::string& path) {
    const auto surface = workspace_.surface.get();
    using State = EditorSurface::LoadState;
    const bool isLoaded = surface && surface->loadedPath() == path &&
                          surface->state->value == decltype(State::value)(State::Plain::loaded);
    return isLoaded ? std::optional(surface->text()) : std::nullopt;
}

// Proposals

void Assistant::proposed() {
    if (proposedTimer_.connected()) return;
    proposedTimer_ = Glib::signal_idle().connect([this] {
        if (pane_.awaitsSheet()) review();
        return false;
    });
}

void Assistant::review() {
    if (brain_->pendingEdit.get()) return reviewEdit();
    if (!brain_->pendingPlan->empty()) return reviewPlan();
    host_.inform(_("Nothing waits for review."));
}

void Assistant::reviewEdit() {
    const auto edit = brain_->pendingEdit.get();
    if (!edit) return;
    const auto approval =
        DiffApproval::make(*edit, seams_.mainQueue, seams_.background,
                           [this, weak = std::weak_ptr<int>(life_)](const NoteEdit& approved) {
                               if (weak.expired()) return;
                               if (const auto problem = brain_->applyEdit(approved))
                                   return host_.tell(*problem);
                               host_.inform(Glib::ustring::compose(_("“%1” holds the new text."),
                                                                   decodedText(approved.noteTitle)));
                           });
    const auto discard = [this, weak = std::weak_ptr<int>(life_)] {
        if (!weak.expired()) brain_->discardPendingEdit();
    };
    AssistantRewriteSheet::show(host_.window(), approval, discard, discard);
}

void Assistant::reviewPlan() {
    const auto& plan = brain_->pendingPlan.get();
    if (plan.empty()) return;
    AssistantPlanSheet::Actions actions;
    actions.apply = [this, weak = std::weak_ptr<int>(life_)](const PlanReview& review) {
        if (weak.expired()) return;
        brain_->applyPendingPlan(review.approved(), review.destinations());
        const auto& report = brain_->lastReport();
        if (!report) return;
        // Counts alone don't say what was left out, and why.
        const bool isWhole = report->skipped.empty() && report->failed.empty();
        isWhole ? host_.inform(report->summary()) : AssistantPlanReport::show(host_.window(), *report);
    };
    actions.discard = [this, weak = std::weak_ptr<int>(life_)] {
        if (!weak.expired()) brain_->discardPendingPlan();
    };
    const auto& coverage = brain_->pendingPlanCoverage.get();
    if (!coverage.empty())
        actions.decideAgain = [this, weak = std::weak_ptr<int>(life_)] {
            if (weak.expired()) return;
            pane_.focusComposer();
            brain_->decideAgain();
        };
    AssistantPlanSheet::show(host_.window(), plan, brain_->pendingPlanSummary, coverage, std::move(actions));
}

// Citations and links

void Assistant::cite(const CitedNote& note) {
    if (!workspace_.vault.get()) return;
    if (note.documentLabel) return host_.openFile(workspace_.vault.get()->absolutePath(note.path));
    if (!workspace_.note(note.path))
        return host_.tell(
            Glib::ustring::compose(_("“%1” isn't in the vault any more."), decodedText(note.title)));
    passage_ = Passage{note.path, note.passage};
    host_.showNote(note.path);
    placePassage();
}

void Assistant::placePassage() {
    if (!passage_ || passageTimer_.connected()) return;
    // The editor shows a text when all that follow its loading were told.
    passageTimer_ = Glib::signal_idle().connect([this] {
        const auto text = passage_ ? liveText(passage_->path) : std::nullopt;
        if (!text) return false;
        if (const auto range = Citations::passage(*text, passage_->text)) host_.goTo(*range);
        passage_.reset();
        return false;
    });
}

void Assistant::follow(const AnswerLink& link) {
    if (link.kind == AnswerLink::Kind::address) return host_.openAddress(link.target);
    std::string name = Glib::uri_unescape_string(link.target);
    if (name.empty()) name = link.target;
    name = name.substr(0, name.find('#'));
    const Note* found = nullptr;
    for (const auto& note : workspace_.notes.get()) {
        const bool isPath = note.relativePath == name || note.relativePath == name + ".md";
        if (isPath || (!found && equalsIgnoringCase(note.title, name))) found = &note;
        if (isPath) break;
    }
    if (!found)
        return host_.tell(Glib::ustring::compose(_("There is no note called “%1”."), decodedText(name)));
    host_.showNote(std::string(found->relativePath));
}

// Titles

void Assistant::left(const std::string& path) {
    const auto session = workspace_.session.get();
    if (!session || !Vault::isUntitled(path) || !brain_->canAsk()) return;
    seams_.background.run(Priority::utility, [this, path, file = session->vault().absolutePath(path),
                                              weak = std::weak_ptr<int>(life_),
                                              &mainQueue = seams_.mainQueue](const std::stop_token&) {
        try {
            const auto text = AtomicWrite::read(file);
            if (!text) return;
            mainQueue.post([this, weak, path, text = *text] {
                if (!weak.expired() && workspace_.selection.get() != path) titles_.consider(path, text);
            });
        } catch (const std::exception&) {
            return;  // gone, or not readable now: nothing to offer
        }
    });
}

}  // namespace vesk::views
