#include "Vesk/Views/AssistantTurn.h"

#include <fmt/core.h>

#include <algorithm>

namespace vesk::views {
namespace {

constexpr std::size_t mostListed = 60;
constexpr int widestText = 30;  // the pane's width is the person's, not its text's

const char* aboutWords(AIScope scope) {
    switch (scope) {
        case AIScope::vault:
            return "";
        case AIScope::note:
            return _("About this note");
        case AIScope::selection:
            return _("About the selection");
    }
    return "";
}

/// "940", "12.3k".
std::string rounded(int number) {
    return number < 10'000 ? std::to_string(std::max(number, 0)) : fmt::format("{:.1f}k", number / 1000.0);
}

/// "12,340".
std::string grouped(int number) {
    auto digits = std::to_string(std::max(number, 0));
    for (auto at = static_cast<std::ptrdiff_t>(digits.size()) - 3; at > 0; at -= 3)
        digits.insert(static_cast<std::size_t>(at), ",");
    return digits;
}

void asText(Gtk::Label& label) {
    label.set_wrap(true);
    label.set_wrap_mode(Pango::WrapMode::WORD_CHAR);
    label.set_max_width_chars(widestText);
    label.set_xalign(0);
}

void asCaption(Gtk::Label& label) {
    label.add_css_class("dim-label");
    label.add_css_class("caption");
    label.set_xalign(0);
    label.set_ellipsize(Pango::EllipsizeMode::END);
    label.set_max_width_chars(widestText);
}

}  // namespace

AssistantTurn::AssistantTurn(const ChatTurn& turn, const AssistantTurnActions& actions)
    : Gtk::Box(Gtk::Orientation::VERTICAL), actions_(actions), id_(turn.id) {
    set_spacing(6);
    turn.role == ChatTurn::Role::user ? buildQuestion(turn) : buildAnswer();
}

void AssistantTurn::buildQuestion(const ChatTurn& turn) {
    add_css_class("assistant-question-turn");
    auto* bubble = Gtk::make_managed<Gtk::Label>(turn.text);
    bubble->add_css_class("assistant-question");
    asText(*bubble);
    bubble->set_selectable(true);
    bubble->set_halign(Gtk::Align::END);
    bubble->set_margin_start(28);
    append(*bubble);
    if (turn.scope == AIScope::vault) return;
    caption_.set_text(aboutWords(turn.scope));
    asCaption(caption_);
    caption_.set_halign(Gtk::Align::END);
    append(caption_);
}

void AssistantTurn::buildAnswer() {
    asCaption(caption_);
    append(caption_);
    spinner_.set_size_request(16, 16);
    auto* words = Gtk::make_managed<Gtk::Label>(_("Thinking…"));
    words->add_css_class("dim-label");
    thinking_.set_spacing(8);
    thinking_.append(spinner_);
    thinking_.append(*words);
    append(thinking_);
    answer_.onLink = [this](const AnswerLink& link) { actions_.follow(link); };
    append(answer_);

    auto* icon = Gtk::make_managed<Gtk::Image>();
    icon->set_from_icon_name("dialog-warning-symbolic");
    icon->set_valign(Gtk::Align::START);
    icon->set_margin_top(2);
    asText(failureText_);
    failureText_.set_selectable(true);
    failureText_.set_hexpand(true);
    failure_.add_css_class("assistant-failure");
    failure_.append(*icon);
    failure_.append(failureText_);
    append(failure_);
    withoutNotes_.set_label(_("Answer without my notes"));
    withoutNotes_.set_halign(Gtk::Align::START);
    withoutNotes_.signal_clicked().connect([this] { actions_.answerWithoutNotes(); });
    append(withoutNotes_);
    review_.set_label(_("Review…"));
    review_.add_css_class("suggested-action");
    review_.set_halign(Gtk::Align::START);
    review_.signal_clicked().connect([this] { actions_.review(); });
    append(review_);

    sourcesArrow_.set_from_icon_name("pan-end-symbolic");
    sourcesContent_.set_spacing(4);
    sourcesContent_.append(sourcesArrow_);
    sourcesContent_.append(sourcesLabel_);
    sources_.set_child(sourcesContent_);
    sources_.add_css_class("flat");
    sources_.add_css_class("assistant-small");
    sources_.set_halign(Gtk::Align::START);
    sources_.signal_toggled().connect([this] {
        const bool isOpen = sources_.get_active();
        if (isOpen) fillCitations();
        sourcesArrow_.set_from_icon_name(isOpen ? "pan-down-symbolic" : "pan-end-symbolic");
        sourcesRevealer_.set_reveal_child(isOpen);
    });
    copy_.set_icon_name("edit-copy-symbolic");
    copy_.set_tooltip_text(_("Copy Answer"));
    copy_.add_css_class("flat");
    copy_.add_css_class("assistant-small");
    setAccessibleName(copy_, _("Copy Answer"));
    copy_.signal_clicked().connect([this] { get_clipboard()->set_text(copied_); });
    asCaption(tokens_);
    tokens_.set_hexpand(true);
    tokens_.set_xalign(1);
    footer_.append(sources_);
    footer_.append(tokens_);
    footer_.append(copy_);
    append(footer_);

    sourcesList_.add_css_class("boxed-list");
    sourcesList_.set_selection_mode(Gtk::SelectionMode::NONE);
    setAccessibleName(sourcesList_, _("Cited notes"));
    sourcesList_.signal_row_activated().connect([this](Gtk::ListBoxRow* row) {
        const auto index = static_cast<std::size_t>(row->get_index());
        if (index < cited_.size()) actions_.cite(CitedNote(cited_[index]));
    });
    sourcesRevealer_.set_child(sourcesList_);
    append(sourcesRevealer_);
}

void AssistantTurn::update(const ChatTurn& turn, bool waits, bool isLast) {
    if (turn.role == ChatTurn::Role::user) return;
    auto text = shownText(turn);
    const bool hasText = text.find_first_not_of(" \n\t") != std::string::npos;
    if (text != shown_) {
        answer_.show(text);
        shown_ = std::move(text);
    }
    answer_.set_visible(hasText);
    const bool isThinking = turn.streaming && !hasText;
    thinking_.set_visible(isThinking);
    spinner_.set_spinning(isThinking);
    auto label = turn.providerLabel.value_or("");
    if (turn.answeredWithoutContext)
        label += label.empty() ? _("Not from your notes") : _(" · not from your notes");
    caption_.set_text(label);
    caption_.set_visible(!label.empty());
    failure_.set_visible(turn.failure.has_value());
    failureText_.set_text(turn.failure.value_or(""));
    withoutNotes_.set_visible(turn.offersUnsourcedAnswer && isLast);
    const bool proposes = turn.proposedRewrite || turn.planOperations.value_or(0) > 0;
    review_.set_visible(proposes && waits && isLast && !turn.streaming);
    showCitations(turn);
    showFooter(turn);
}

void AssistantTurn::showCitations(const ChatTurn& turn) {
    if (hasCitations_ || turn.citations.empty()) return;
    hasCitations_ = true;
    cited_ = Citations::notes(turn.citations);
    const auto words = citationsLabel(turn).value_or("");
    sourcesLabel_.set_text(words);
    setAccessibleName(sources_, words.c_str());
}

void AssistantTurn::fillCitations() {
    if (std::exchange(isListFilled_, true)) return;
    const auto listed = std::min(cited_.size(), mostListed);
    for (std::size_t index = 0; index < listed; ++index) {
        const auto& cited = cited_[index];
        auto* row = ADW_ACTION_ROW(adw_action_row_new());
        adw_preferences_row_set_use_markup(ADW_PREFERENCES_ROW(row), FALSE);
        adw_preferences_row_set_title(ADW_PREFERENCES_ROW(row), cited.title.c_str());
        adw_action_row_set_title_lines(row, 1);
        adw_action_row_set_subtitle_lines(row, 2);
        const auto detail =
            cited.documentLabel ? fmt::format("{} · {}", *cited.documentLabel, cited.excerpt) : cited.excerpt;
        adw_action_row_set_subtitle(row, detail.c_str());
        gtk_list_box_row_set_activatable(GTK_LIST_BOX_ROW(row), TRUE);
        gtk_list_box_append(sourcesList_.gobj(), GTK_WIDGET(row));
    }
    if (listed == cited_.size()) return;
    auto* more =
        Gtk::make_managed<Gtk::Label>(Glib::ustring::compose(_("and %1 more"), cited_.size() - listed));
    more->add_css_class("dim-label");
    more->set_margin(8);
    auto* row = Gtk::make_managed<Gtk::ListBoxRow>();
    row->set_child(*more);
    row->set_activatable(false);
    sourcesList_.append(*row);
}

void AssistantTurn::showFooter(const ChatTurn& turn) {
    const bool isDone = !turn.streaming;
    copied_ = isDone ? turn.text : std::string();
    sources_.set_visible(isDone && !cited_.empty() && !turn.text.empty());
    copy_.set_visible(isDone && !turn.text.empty());
    const bool isCounted = isDone && turn.inputTokens && turn.outputTokens;
    tokens_.set_text(
        isCounted ? fmt::format("{} → {}", rounded(*turn.inputTokens), rounded(*turn.outputTokens)) : "");
    if (isCounted) {
        tokens_.set_tooltip_text(Glib::ustring::compose(
            _("%1 tokens read, %2 written"), grouped(*turn.inputTokens), grouped(*turn.outputTokens)));
    }
    footer_.set_visible(isDone && !turn.text.empty());
}

}  // namespace vesk::views
