// What became of a plan of which something was left out: what was done, and what was not and why.
#pragma once

#include "Vesk/Views/AssistantSheet.h"
#include "Vesk/Views/SheetList.h"
#include "VeskCore/Brain/VaultPlanExecutor.h"

namespace vesk::views {

class AssistantPlanReport final : public AssistantSheet {
public:
    static void show(GtkWindow* parent, const VaultPlanExecutor::Report& report);

private:
    class Row;

    AssistantPlanReport(GtkWindow* parent, const VaultPlanExecutor::Report& report);

    std::vector<VaultPlanExecutor::Report::Left> lines_;  ///< by the rows' ids
    Gtk::Box page_{Gtk::Orientation::VERTICAL};
    SheetList list_;
};

}  // namespace vesk::views
