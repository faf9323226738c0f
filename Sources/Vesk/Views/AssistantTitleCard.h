// The offer of a title to a note that is still called "Untitled", above the note pane. It never takes the
// keyboard: the person may be typing in another note.
#pragma once

#include <memory>
#include <vector>

#include "Vesk/AI/TitleProposals.h"
#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

class AssistantTitleCard final : public Gtk::Box {
public:
    explicit AssistantTitleCard(TitleProposals& proposals);

private:
    void show(const std::shared_ptr<TitleProposal>& proposal);
    void refresh();

    TitleProposals& proposals_;
    std::shared_ptr<TitleProposal> proposal_;
    std::vector<Subscription> subscriptions_;  ///< to the offer
    Subscription pending_;
    Gtk::Revealer revealer_;
    Gtk::Box card_{Gtk::Orientation::VERTICAL, 8}, fields_{Gtk::Orientation::HORIZONTAL, 8};
    Gtk::Label heading_, message_, problem_;
    Gtk::Spinner spinner_;
    Gtk::Entry title_;
    Gtk::Button keep_, use_;
    bool isShowing_ = false;
};

}  // namespace vesk::views
