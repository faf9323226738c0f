// The review of a plan: each change with a tick, what stands before it and after it, and where a note goes.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Vesk/AI/PlanReview.h"
#include "Vesk/Views/AssistantSheet.h"

namespace vesk::views {

class AssistantPlanSheet final : public AssistantSheet {
public:
    /// `apply` gets the review when the sheet closes with it. Closed in another way the plan waits.
    static void show(GtkWindow* parent, std::vector<VaultPlanExecutor::Preview> previews,
                     const std::string& summary, std::function<void(const PlanReview&)> apply,
                     std::function<void()> discard);

private:
    AssistantPlanSheet(GtkWindow* parent, std::vector<VaultPlanExecutor::Preview> previews,
                       const std::string& summary, std::function<void(const PlanReview&)> apply,
                       std::function<void()> discard);
    struct Row {
        AdwExpanderRow* row = nullptr;
        Gtk::CheckButton* tick = nullptr;
        Gtk::Box* details = nullptr;
        bool isFilled = false;
    };
    void addSection(const PlanReview::Section& section);
    void addRow(AdwPreferencesGroup* group, int id);
    void addDestinations(AdwExpanderRow* row, int id);
    void fillDetails(int id);
    void showRow(int id);
    void showCounts();

    PlanReview review_;
    std::function<void(const PlanReview&)> apply_;
    std::function<void()> discard_;
    std::map<int, Row> rows_;
    Gtk::Box page_{Gtk::Orientation::VERTICAL}, content_{Gtk::Orientation::VERTICAL, 18};
    Gtk::ScrolledWindow scroller_;
    Gtk::Label count_;
    Gtk::Button all_{"Select All"}, none_{"Select None"};
    bool isShowing_ = false;
};

}  // namespace vesk::views
