// One turn of the conversation: a question, or an answer with what it was drawn from and what it proposes.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Vesk/AI/BrainSession.h"
#include "Vesk/AI/Citations.h"
#include "Vesk/Views/AssistantAnswer.h"
#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

/// What a turn's controls do.
struct AssistantTurnActions {
    std::function<void(const CitedNote&)> cite;
    std::function<void(const AnswerLink&)> follow;
    std::function<void()> answerWithoutNotes;
    std::function<void()> review;
};

class AssistantTurn final : public Gtk::Box {
public:
    AssistantTurn(const ChatTurn& turn, const AssistantTurnActions& actions);

    const std::string& id() const { return id_; }
    /// The same turn as it is now; `waits`: what it proposed is still to be reviewed. `isLast`: nothing was
    /// said since.
    void update(const ChatTurn& turn, bool waits, bool isLast);

private:
    void buildQuestion(const ChatTurn& turn);
    void buildAnswer();
    void showCitations(const ChatTurn& turn);
    void fillCitations();
    void showFooter(const ChatTurn& turn);

    const AssistantTurnActions& actions_;
    std::string id_, shown_, copied_;
    std::vector<CitedNote> cited_;
    bool hasCitations_ = false, isListFilled_ = false;
    Gtk::Label caption_, failureText_, tokens_, cutOff_;
    AssistantAnswer answer_;
    Gtk::Box thinking_, failure_{Gtk::Orientation::HORIZONTAL, 8}, footer_{Gtk::Orientation::HORIZONTAL, 6};
    Gtk::Spinner spinner_;
    Gtk::Button withoutNotes_, review_, copy_;
    Gtk::ToggleButton sources_;
    Gtk::Box sourcesContent_;
    Gtk::Label sourcesLabel_;
    Gtk::Image sourcesArrow_;
    Gtk::Revealer sourcesRevealer_;
    Gtk::ListBox sourcesList_;
};

}  // namespace vesk::views
