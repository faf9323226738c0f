#include "Vesk/Views/AssistantTitleCard.h"

#include "VeskCore/Support/Localised.h"

namespace vesk::views {

AssistantTitleCard::AssistantTitleCard(TitleProposals& proposals) : proposals_(proposals) {
    card_.add_css_class("note-banner");
    heading_.set_text(localised(TitleProposal::heading));
    heading_.add_css_class("heading");
    heading_.set_xalign(0);
    for (auto* label : {&message_, &problem_}) {
        label->set_wrap(true);
        label->set_xalign(0);
    }
    problem_.add_css_class("error");
    title_.set_hexpand(true);
    title_.set_placeholder_text(localised(TitleProposal::field));
    setAccessibleName(title_, localised(TitleProposal::field).c_str());
    title_.signal_changed().connect([this] {
        if (proposal_ && !isShowing_) proposal_->draft.set(title_.get_text());
    });
    title_.signal_activate().connect([this] {
        if (proposal_ && proposal_->canUse()) proposals_.useTitle();
    });
    auto keys = Gtk::EventControllerKey::create();
    keys->signal_key_pressed().connect(
        [this](guint key, guint, Gdk::ModifierType) {
            if (key != GDK_KEY_Escape) return false;
            proposals_.keepUntitled();
            return true;
        },
        false);
    card_.add_controller(keys);
    keep_.set_label(localised(TitleProposal::keep));
    keep_.signal_clicked().connect([this] { proposals_.keepUntitled(); });
    use_.set_label(localised(TitleProposal::use));
    use_.add_css_class("suggested-action");
    use_.signal_clicked().connect([this] { proposals_.useTitle(); });
    fields_.append(spinner_);
    fields_.append(title_);
    fields_.append(keep_);
    fields_.append(use_);
    card_.append(heading_);
    card_.append(message_);
    card_.append(fields_);
    card_.append(problem_);
    revealer_.set_child(card_);
    revealer_.set_hexpand(true);
    append(revealer_);
    pending_ = proposals_.pending.subscribe(
        [this](const std::shared_ptr<TitleProposal>& proposal) { show(proposal); });
    show(proposals_.pending);
}

void AssistantTitleCard::show(const std::shared_ptr<TitleProposal>& proposal) {
    subscriptions_.clear();
    proposal_ = proposal;
    revealer_.set_reveal_child(proposal_ != nullptr);
    set_visible(proposal_ != nullptr);
    if (!proposal_) return;
    const auto watch = [this](auto& value) {
        subscriptions_.push_back(value.subscribe([this](const auto&) { refresh(); }));
    };
    watch(proposal_->loading);
    watch(proposal_->suggestion);
    watch(proposal_->draft);
    watch(proposal_->problem);
    refresh();
}

void AssistantTitleCard::refresh() {
    message_.set_text(proposal_->message());
    spinner_.set_spinning(proposal_->loading);
    spinner_.set_visible(proposal_->loading);
    isShowing_ = true;
    if (title_.get_text().raw() != proposal_->draft.get()) title_.set_text(proposal_->draft.get());
    isShowing_ = false;
    use_.set_sensitive(proposal_->canUse());
    problem_.set_visible(proposal_->problem->has_value());
    problem_.set_text(proposal_->problem->value_or(""));
}

}  // namespace vesk::views
