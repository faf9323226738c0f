#include "Vesk/Views/AssistantPlanReport.h"

namespace vesk::views {
namespace {

constexpr int width = 560, height = 480, margin = 18;

}  // namespace

void AssistantPlanReport::show(GtkWindow* parent, const VaultPlanExecutor::Report& report) {
    new AssistantPlanReport(parent, report);
}

AssistantPlanReport::AssistantPlanReport(GtkWindow* parent, const VaultPlanExecutor::Report& report)
    : AssistantSheet(parent, report.summary(), width, height) {
    no_.set_visible(false);
    yes_.set_label("Close");
    yes_.signal_clicked().connect([this] { close(); });
    promise_.set_visible(false);
    content_.set_margin(margin);
    addSection("Failed", report.failed);
    addSection("Skipped", report.skipped);
    std::vector<VaultPlanExecutor::Report::Left> applied;
    for (const auto& one : report.applied) applied.push_back({one, {}});
    addSection("Applied", applied);
    auto* clamp = ADW_CLAMP(adw_clamp_new());
    adw_clamp_set_child(clamp, raw(content_));
    gtk_scrolled_window_set_child(scroller_.gobj(), GTK_WIDGET(clamp));
    scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    scroller_.set_vexpand(true);
    page_.append(scroller_);
    present(page_, yes_);
}

void AssistantPlanReport::addSection(const char* title,
                                     const std::vector<VaultPlanExecutor::Report::Left>& rows) {
    if (rows.empty()) return;
    auto* group = ADW_PREFERENCES_GROUP(adw_preferences_group_new());
    adw_preferences_group_set_title(group, title);
    for (const auto& row : rows) {
        auto* line = ADW_ACTION_ROW(adw_action_row_new());
        adw_preferences_row_set_use_markup(ADW_PREFERENCES_ROW(line), FALSE);
        adw_preferences_row_set_title(ADW_PREFERENCES_ROW(line), row.operation.c_str());
        adw_action_row_set_subtitle(line, row.reason.c_str());
        adw_preferences_group_add(group, GTK_WIDGET(line));
    }
    gtk_box_append(content_.gobj(), GTK_WIDGET(group));
}

}  // namespace vesk::views
