// The review of a plan: each change with a tick, what stands before it and after it, and where a note goes.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Vesk/AI/PlanReview.h"
#include "Vesk/Views/AssistantSheet.h"
#include "Vesk/Views/SheetList.h"

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
    class Row;

    AssistantPlanSheet(GtkWindow* parent, std::vector<VaultPlanExecutor::Preview> previews,
                       const std::string& summary, const std::vector<std::string>& coverage, Actions actions);
    void buildHead(const std::string& summary, const std::vector<std::string>& coverage);
    void tick(int id, bool ticked);
    void choose(int id, std::optional<std::size_t> alternative);
    void toggle(int id);
    void showCounts();

    PlanReview review_;
    Actions actions_;
    Gtk::Box page_{Gtk::Orientation::VERTICAL}, head_{Gtk::Orientation::VERTICAL, 12};
    SheetList list_;
    Gtk::Label count_;
    Gtk::Button all_{_("Select All")}, none_{_("Select None")}, again_{_("Decide again")};
};

}  // namespace vesk::views
