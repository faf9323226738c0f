#include "Vesk/Views/AssistantPlanSheet.h"

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"

namespace vesk::views {
namespace {

constexpr int width = 640, height = 640, tallestText = 220, margin = 18, spacing = 10;
constexpr std::size_t mostText = 40'000;  // bytes of a side that are laid out

void addSide(Gtk::Box& details, int available, const std::string& title, const std::string& text) {
    auto* box = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
    box->set_spacing(4);
    box->append(sheetText(title, {"caption-heading", "dim-label"}));
    std::string shown(characterPrefixFitting(text, mostText));
    if (shown.size() < text.size()) shown += "…";
    for (std::size_t at = shown.find('\0'); at != shown.npos; at = shown.find('\0', at))
        shown.replace(at, 1, "\uFFFD");
    auto& view = sheetText(shown, {"plan-text"});
    view.set_selectable(true);
    view.set_yalign(0);
    auto* scroller = Gtk::make_managed<Gtk::ScrolledWindow>();
    scroller->set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    scroller->add_css_class("plan-side");
    scroller->set_child(view);
    box->append(*scroller);
    details.append(*box);
    // A list gives its rows the least height that they can do with, so that is what the text needs.
    int least = 0, natural = 0, baseline = 0;
    view.measure(Gtk::Orientation::VERTICAL, available, least, natural, baseline, baseline);
    scroller->set_min_content_height(std::min(natural, tallestText));
}

bool isExplained(const VaultPlanExecutor::Preview& preview) {
    return preview.annotation && !preview.annotation->reason.empty();
}

}  // namespace

/// One change: a tick, what it does and why, where it goes, and below that what changes.
class AssistantPlanSheet::Row final : public SheetRow {
public:
    explicit Row(AssistantPlanSheet& sheet) : sheet_(sheet) {
        tick_.set_valign(Gtk::Align::CENTER);
        tick_.signal_toggled().connect([this] {
            if (!isShowing_) sheet_.tick(id_, tick_.get_active());
        });
        words_.set_valign(Gtk::Align::CENTER);
        words_.set_hexpand(true);
        for (auto* label : {&title_, &reason_}) {
            label->set_xalign(0);
            label->set_wrap(true);
            label->set_wrap_mode(Pango::WrapMode::WORD_CHAR);
            words_.append(*label);
        }
        title_.add_css_class("title");
        reason_.add_css_class("caption");
        reason_.add_css_class("dim-label");
        expander_.set_valign(Gtk::Align::CENTER);
        expander_.add_css_class("flat");
        expander_.add_css_class("details-arrow");
        expander_.set_icon_name("adw-expander-arrow-symbolic");
        expander_.set_tooltip_text(_("What changes"));
        expander_.signal_clicked().connect([this] { sheet_.toggle(id_); });
        line_.set_spacing(spacing);
        line_.append(tick_);
        line_.append(words_);
        line_.append(expander_);
        details_.set_spacing(spacing);
        details_.set_margin_top(spacing);
        append(line_);
        append(details_);
    }

    void show(int id) override {
        isShowing_ = true;
        const auto& review = sheet_.review_;
        const auto preview = review.preview(id);
        if (std::exchange(id_, id) != id) showFolders(preview);
        const auto risk = preview.operation.riskNote();
        const auto words = preview.issue          ? preview.issue->message
                           : isExplained(preview) ? preview.annotation->reason
                                                  : risk.value_or("");
        title_.set_text(preview.description);
        reason_.set_text(words);
        reason_.set_visible(!words.empty());
        preview.isBlocked() ? add_css_class("plan-blocked") : remove_css_class("plan-blocked");
        tick_.set_sensitive(review.isApplicable(id));
        tick_.set_active(review.isTicked(id));
        setAccessibleName(tick_, Glib::ustring::compose(_("Apply: %1"), preview.description).c_str());
        const bool isExpanded = review.expanded == id;
        isExpanded ? expander_.add_css_class("open") : expander_.remove_css_class("open");
        setAccessibleName(expander_,
                          Glib::ustring::compose(_("What changes: %1"), preview.description).c_str());
        gtk_accessible_update_state(GTK_ACCESSIBLE(expander_.gobj()), GTK_ACCESSIBLE_STATE_EXPANDED,
                                    isExpanded ? TRUE : FALSE, -1);
        showDetails(preview, isExpanded);
        isShowing_ = false;
    }

private:
    void showFolders(const VaultPlanExecutor::Preview& preview) {
        choices_.clear();
        std::vector<Glib::ustring> names;
        const auto& proposed = sheet_.review_.proposed(id_);
        if (preview.annotation && !preview.annotation->alternatives.empty()) {
            const auto* move = std::get_if<VaultOperation::RenameNote>(&proposed.operation.value);
            names.push_back(move ? decodedText(std::string(parentFolder(move->to))) : std::string());
            // The proposed folder may be among the alternatives, and stands first already.
            choices_.emplace_back(std::nullopt);
            const auto& alternatives = proposed.annotation->alternatives;
            for (std::size_t index = 0; index < alternatives.size(); ++index) {
                if (alternatives[index].operation == proposed.operation) continue;
                names.push_back(decodedText(alternatives[index].folder));
                choices_.emplace_back(index);
            }
        }
        if (folders_) folders_->set_visible(choices_.size() > 1);
        if (choices_.size() < 2) return;
        if (!folders_) makeFolders();
        folders_->set_model(Gtk::StringList::create(names));
        const auto chosen = std::find(choices_.begin(), choices_.end(), sheet_.review_.chosen(id_));
        folders_->set_selected(chosen == choices_.end() ? 0 : static_cast<guint>(chosen - choices_.begin()));
    }

    /// Costs more than the rest of the row, and most rows have none.
    void makeFolders() {
        folders_ = Gtk::make_managed<Gtk::DropDown>();
        folders_->set_valign(Gtk::Align::CENTER);
        folders_->set_tooltip_text(localised(PlanReview::destinationHelp));
        setAccessibleName(*folders_, _("Where this note goes"));
        folders_->property_selected().signal_changed().connect([this] {
            const auto chosen = folders_->get_selected();
            if (!isShowing_ && chosen < choices_.size()) sheet_.choose(id_, choices_[chosen]);
        });
        line_.insert_child_after(*folders_, words_);
    }

    void showDetails(const VaultPlanExecutor::Preview& preview, bool isExpanded) {
        while (auto* child = details_.get_first_child()) details_.remove(*child);
        details_.set_visible(isExpanded);
        if (!isExpanded) return;
        const auto risk = preview.operation.riskNote();
        if (isExplained(preview) && risk) details_.append(sheetText(*risk));
        const auto details = sheet_.review_.details(id_);
        const int available = line_.get_width();
        addSide(details_, available, details.beforeTitle, details.before);
        addSide(details_, available, details.afterTitle, details.after);
    }

    AssistantPlanSheet& sheet_;
    int id_ = -1;
    bool isShowing_ = false;
    Gtk::Box line_, words_{Gtk::Orientation::VERTICAL}, details_{Gtk::Orientation::VERTICAL};
    Gtk::CheckButton tick_;
    Gtk::Label title_, reason_;
    Gtk::DropDown* folders_ = nullptr;
    std::vector<std::optional<std::size_t>> choices_;  // of the folders, as the review counts them
    Gtk::Button expander_;
};

void AssistantPlanSheet::show(GtkWindow* parent, std::vector<VaultPlanExecutor::Preview> previews,
                              const std::string& summary, const std::vector<std::string>& coverage,
                              Actions actions) {
    new AssistantPlanSheet(parent, std::move(previews), summary, coverage, std::move(actions));
}

AssistantPlanSheet::AssistantPlanSheet(GtkWindow* parent, std::vector<VaultPlanExecutor::Preview> previews,
                                       const std::string& summary, const std::vector<std::string>& coverage,
                                       Actions actions)
    : AssistantSheet(parent, localised(PlanReview::title), width, height),
      review_(std::move(previews)),
      actions_(std::move(actions)),
      list_([this] { return Gtk::make_managed<Row>(*this); }) {
    no_.set_label(_("Discard"));
    no_.signal_clicked().connect([this] {
        const auto discarded = actions_.discard;
        close();
        if (discarded) discarded();
    });
    yes_.add_css_class("suggested-action");
    yes_.signal_clicked().connect([this] {
        const auto review = review_;
        const auto applied = actions_.apply;
        close();
        if (applied) applied(review);
    });
    promise_.set_text(localised(PlanReview::promise));
    buildHead(summary, coverage);
    auto* clamp = adw_clamp_new();
    limitSheetWidth(clamp);
    adw_clamp_set_child(ADW_CLAMP(clamp), raw(head_));
    gtk_box_append(page_.gobj(), clamp);
    list_.onActivated = [this](int id) { toggle(id); };
    std::vector<SheetList::Section> sections;
    for (auto& section : review_.sections())
        sections.push_back({.title = std::move(section.title), .rows = std::move(section.rows)});
    list_.setSections(sections);
    page_.append(list_);
    showCounts();
    // No key that was meant for the note carries anything out.
    present(page_, all_);
}

void AssistantPlanSheet::buildHead(const std::string& summary, const std::vector<std::string>& coverage) {
    head_.set_margin(margin);
    head_.set_margin_bottom(0);
    if (!summary.empty()) head_.append(sheetText(summary));
    if (!coverage.empty()) {
        auto* lines = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
        lines->set_spacing(2);
        for (const auto& line : coverage) lines->append(sheetText(line, {"caption", "dim-label"}));
        head_.append(*lines);
    }
    auto* bar = Gtk::make_managed<Gtk::Box>();
    bar->set_spacing(6);
    count_.set_xalign(0);
    count_.set_hexpand(true);
    count_.add_css_class("dim-label");
    bar->append(count_);
    for (auto* button : {&again_, &all_, &none_}) {
        button->add_css_class("flat");
        bar->append(*button);
    }
    all_.signal_clicked().connect([this] {
        review_.selectAll();
        list_.refreshAll();
        showCounts();
    });
    none_.signal_clicked().connect([this] {
        review_.selectNone();
        list_.refreshAll();
        showCounts();
    });
    again_.set_visible(actions_.decideAgain != nullptr);
    again_.signal_clicked().connect([this] {
        const auto decided = actions_.decideAgain;
        close();
        if (decided) decided();
    });
    head_.append(*bar);
}

void AssistantPlanSheet::tick(int id, bool ticked) {
    review_.tick(id, ticked);
    list_.refresh(id);
    showCounts();
}

void AssistantPlanSheet::choose(int id, std::optional<std::size_t> alternative) {
    review_.switchDestination(id, alternative);
    list_.refresh(id);
    showCounts();
}

void AssistantPlanSheet::toggle(int id) {
    const auto before = std::exchange(review_.expanded, std::nullopt);
    if (before != id) review_.expanded = id;
    if (before && before != id) list_.refresh(*before);
    list_.refresh(id);
}

void AssistantPlanSheet::showCounts() {
    count_.set_text(review_.countLabel());
    yes_.set_label(review_.applyLabel());
    yes_.set_sensitive(review_.tickedCount() > 0);
}

}  // namespace vesk::views
