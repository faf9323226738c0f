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
    /// What the sheet closes with; closed in another way the plan waits.
    struct Actions {
        std::function<void(const PlanReview&)> apply;
        std::function<void()> discard;
        std::function<void()> decideAgain;  ///< none where nothing was decided
    };
    /// `coverage`: what the plan was drawn from, in lines.
    static void show(GtkWindow* parent, std::vector<VaultPlanExecutor::Preview> previews,
                     const std::string& summary, const std::vector<std::string>& coverage, Actions actions);

private:
    AssistantPlanSheet(GtkWindow* parent, std::vector<VaultPlanExecutor::Preview> previews,
                       const std::string& summary, const std::vector<std::string>& coverage, Actions actions);
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
    Actions actions_;
    std::map<int, Row> rows_;
    Gtk::Box page_{Gtk::Orientation::VERTICAL}, content_{Gtk::Orientation::VERTICAL, 18};
    Gtk::ScrolledWindow scroller_;
    Gtk::Label count_;
    Gtk::Button all_{"Select All"}, none_{"Select None"}, again_{"Decide again"};
    bool isShowing_ = false;
};

}  // namespace vesk::views
