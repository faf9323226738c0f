#include "Vesk/Views/AssistantPlanSheet.h"

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"

namespace vesk::views {
namespace {

constexpr int width = 640, height = 640, tallestText = 220, detailsMargin = 12;
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

void AssistantPlanSheet::show(GtkWindow* parent, std::vector<VaultPlanExecutor::Preview> previews,
                              const std::string& summary, const std::vector<std::string>& coverage,
                              Actions actions) {
    new AssistantPlanSheet(parent, std::move(previews), summary, coverage, std::move(actions));
}

AssistantPlanSheet::AssistantPlanSheet(GtkWindow* parent, std::vector<VaultPlanExecutor::Preview> previews,
                                       const std::string& summary, const std::vector<std::string>& coverage,
                                       Actions actions)
    : AssistantSheet(parent, std::string(PlanReview::title), width, height),
      review_(std::move(previews)),
      actions_(std::move(actions)) {
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
    promise_.set_text(std::string(PlanReview::promise));
    content_.set_margin(18);
    if (!summary.empty()) content_.append(sheetText(summary));
    if (!coverage.empty()) {
        auto* lines = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
        lines->set_spacing(2);
        for (const auto& line : coverage) lines->append(sheetText(line, {"caption", "dim-label"}));
        content_.append(*lines);
    }
    auto* bar = Gtk::make_managed<Gtk::Box>();
    bar->set_spacing(6);
    count_.set_xalign(0);
    count_.set_hexpand(true);
    count_.add_css_class("dim-label");
    all_.signal_clicked().connect([this] {
        review_.selectAll();
        for (const auto& row : rows_) showRow(row.first);
        showCounts();
    });
    none_.signal_clicked().connect([this] {
        review_.selectNone();
        for (const auto& row : rows_) showRow(row.first);
        showCounts();
    });
    again_.set_visible(actions_.decideAgain != nullptr);
    again_.signal_clicked().connect([this] {
        const auto decided = actions_.decideAgain;
        close();
        if (decided) decided();
    });
    for (auto* button : {&again_, &all_, &none_}) button->add_css_class("flat");
    bar->append(count_);
    bar->append(again_);
    bar->append(all_);
    bar->append(none_);
    content_.append(*bar);
    for (const auto& section : review_.sections()) addSection(section);
    auto* clamp = ADW_CLAMP(adw_clamp_new());
    adw_clamp_set_child(clamp, raw(content_));
    gtk_scrolled_window_set_child(scroller_.gobj(), GTK_WIDGET(clamp));
    // The texts get the height they need, not the least that shows them.
    gtk_scrollable_set_vscroll_policy(GTK_SCROLLABLE(gtk_scrolled_window_get_child(scroller_.gobj())),
                                      GTK_SCROLL_NATURAL);
    scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    scroller_.set_vexpand(true);
    page_.append(scroller_);
    showCounts();
    // No key that was meant for the note carries anything out.
    present(page_, all_);
}

void AssistantPlanSheet::addSection(const PlanReview::Section& section) {
    auto* group = ADW_PREFERENCES_GROUP(adw_preferences_group_new());
    if (!section.title.empty()) {
        char* title = g_markup_escape_text(section.title.c_str(), -1);
        adw_preferences_group_set_title(group, title);
        g_free(title);
    }
    for (const int id : section.rows) addRow(group, id);
    gtk_box_append(content_.gobj(), GTK_WIDGET(group));
}

void AssistantPlanSheet::addRow(AdwPreferencesGroup* group, int id) {
    auto* expander = ADW_EXPANDER_ROW(adw_expander_row_new());
    adw_preferences_row_set_use_markup(ADW_PREFERENCES_ROW(expander), FALSE);
    auto* tick = Gtk::make_managed<Gtk::CheckButton>();
    tick->set_valign(Gtk::Align::CENTER);
    tick->signal_toggled().connect([this, id, tick] {
        if (isShowing_) return;
        review_.tick(id, tick->get_active());
        showRow(id);
        showCounts();
    });
    adw_expander_row_add_prefix(expander, raw(*tick));
    auto* details = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
    details->set_spacing(10);
    details->set_margin(detailsMargin);
    adw_expander_row_add_row(expander, raw(*details));
    rows_[id] = {.row = expander, .tick = tick, .details = details};
    onSignal(expander, "notify::expanded", [this, id, expander] {
        if (!adw_expander_row_get_expanded(expander)) {
            if (review_.expanded == id) review_.expanded.reset();
            return;
        }
        const auto before = std::exchange(review_.expanded, id);
        if (before && before != id) adw_expander_row_set_expanded(rows_.at(*before).row, FALSE);
        fillDetails(id);
    });
    addDestinations(expander, id);
    adw_preferences_group_add(group, GTK_WIDGET(expander));
    showRow(id);
}

void AssistantPlanSheet::addDestinations(AdwExpanderRow* row, int id) {
    const auto preview = review_.preview(id);
    if (!preview.annotation || preview.annotation->alternatives.empty()) return;
    const auto* move = std::get_if<VaultOperation::RenameNote>(&preview.operation.value);
    std::vector<Glib::ustring> folders{move ? decodedText(std::string(parentFolder(move->to)))
                                            : std::string()};
    // The proposed folder may be among the alternatives, and stands first already.
    std::vector<std::optional<std::size_t>> choices{std::nullopt};
    const auto& alternatives = preview.annotation->alternatives;
    for (std::size_t index = 0; index < alternatives.size(); ++index) {
        if (alternatives[index].operation == preview.operation) continue;
        folders.push_back(decodedText(alternatives[index].folder));
        choices.emplace_back(index);
    }
    if (choices.size() == 1) return;
    auto* menu = Gtk::make_managed<Gtk::DropDown>(folders);
    menu->set_valign(Gtk::Align::CENTER);
    menu->set_tooltip_text(std::string(PlanReview::destinationHelp));
    setAccessibleName(*menu, _("Where this note goes"));
    menu->property_selected().signal_changed().connect([this, id, menu, choices] {
        const auto chosen = menu->get_selected();
        if (chosen < choices.size()) review_.switchDestination(id, choices[chosen]);
        rows_.at(id).isFilled = false;
        if (review_.expanded == id) fillDetails(id);
        showRow(id);
        showCounts();
    });
    adw_expander_row_add_action(row, raw(*menu));
}

void AssistantPlanSheet::fillDetails(int id) {
    auto& row = rows_.at(id);
    if (std::exchange(row.isFilled, true)) return;
    while (auto* child = row.details->get_first_child()) row.details->remove(*child);
    const auto preview = review_.preview(id);
    const auto risk = preview.operation.riskNote();
    if (isExplained(preview) && risk) row.details->append(sheetText(*risk));
    const auto details = review_.details(id);
    const int available = gtk_widget_get_width(GTK_WIDGET(row.row)) - 2 * detailsMargin;
    addSide(*row.details, available, details.beforeTitle, details.before);
    addSide(*row.details, available, details.afterTitle, details.after);
}

void AssistantPlanSheet::showRow(int id) {
    const auto& row = rows_.at(id);
    const auto preview = review_.preview(id);
    adw_preferences_row_set_title(ADW_PREFERENCES_ROW(row.row), preview.description.c_str());
    const auto risk = preview.operation.riskNote();
    const auto words = preview.issue          ? preview.issue->message
                       : isExplained(preview) ? preview.annotation->reason
                                              : risk.value_or("");
    adw_expander_row_set_subtitle(row.row, words.c_str());
    auto* widget = GTK_WIDGET(row.row);
    preview.isBlocked() ? gtk_widget_add_css_class(widget, "plan-blocked")
                        : gtk_widget_remove_css_class(widget, "plan-blocked");
    isShowing_ = true;
    row.tick->set_sensitive(review_.isApplicable(id));
    row.tick->set_active(review_.isTicked(id));
    isShowing_ = false;
    setAccessibleName(*row.tick, Glib::ustring::compose(_("Apply: %1"), preview.description).c_str());
}

void AssistantPlanSheet::showCounts() {
    count_.set_text(review_.countLabel());
    yes_.set_label(review_.applyLabel());
    yes_.set_sensitive(review_.tickedCount() > 0);
}

}  // namespace vesk::views
