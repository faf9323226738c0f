// The assistant's panel: the conversation, what it was drawn from, and where it goes on. Thin: it shows the
// session of the conversation and tells it what the person does.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Vesk/AI/BrainSession.h"
#include "Vesk/Views/AssistantComposer.h"
#include "Vesk/Views/AssistantPicker.h"
#include "Vesk/Views/AssistantTurn.h"
#include "Vesk/Views/Toolkit.h"
#include "VeskCore/Brain/QuickAction.h"

namespace vesk::views {

/// What the panel needs of the window around it.
struct AssistantPaneActions {
    std::function<AskSubject()> subject;
    std::function<void(QuickAction)> run;
    std::function<void()> fileNote, organise, openSettings, reviewEdit, reviewPlan;
    std::function<void(const CitedNote&)> cite;
    std::function<void(const AnswerLink&)> follow;
};

class AssistantPane final : public Gtk::Box {
public:
    AssistantPane(std::shared_ptr<BrainSession> brain, AssistantPaneActions actions);
    ~AssistantPane() override;

    /// The search index is not whole yet.
    void setIndexing(bool indexing);
    /// Ends the answer; a pass of the organiser ends after the note at hand, and at once the second time.
    void stop();
    void focusComposer() { composer_.focusText(); }
    /// The keyboard is in the panel, and nothing is being typed there: a sheet may take it.
    bool awaitsSheet() const;
    void showQuickActions() { quickActions_.popup(); }

private:
    void buildBar();
    void buildConversation();
    void connect();
    void send(const std::string& draft);
    /// What changed is shown with the next frame, however often it changes.
    void queueRefresh();
    void refresh();
    void refreshTurns();
    void refreshNotices();
    void followEnd();

    std::shared_ptr<BrainSession> brain_;
    AssistantPaneActions actions_;
    AssistantTurnActions turnActions_;
    AssistantPicker picker_;
    AssistantComposer composer_;
    Gtk::Box bar_{Gtk::Orientation::HORIZONTAL, 2}, turns_{Gtk::Orientation::VERTICAL, 14};
    Gtk::MenuButton quickActions_;
    Gtk::Button clear_;
    Gtk::Stack stack_;
    Gtk::ScrolledWindow scroller_;
    Gtk::Box notices_{Gtk::Orientation::VERTICAL};
    Gtk::Label coverage_, indexing_, report_, unready_;
    Gtk::Box setUp_{Gtk::Orientation::VERTICAL, 8};
    Gtk::Button settings_{_("AI Settings…")};
    std::vector<AssistantTurn*> shown_;
    std::vector<Subscription> subscriptions_;
    guint tick_ = 0;
    gint64 refreshed_ = 0;  ///< on the frame clock, microseconds
    sigc::connection following_;
    bool isIndexing_ = false, staysAtEnd_ = true, isScrolling_ = false;
};

}  // namespace vesk::views
