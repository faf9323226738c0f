// What became of a plan of which something was left out: what was done, and what was not and why.
#pragma once

#include "Vesk/Views/AssistantSheet.h"
#include "VeskCore/Brain/VaultPlanExecutor.h"

namespace vesk::views {

class AssistantPlanReport final : public AssistantSheet {
public:
    static void show(GtkWindow* parent, const VaultPlanExecutor::Report& report);

private:
    AssistantPlanReport(GtkWindow* parent, const VaultPlanExecutor::Report& report);
    void addSection(const char* title, const std::vector<VaultPlanExecutor::Report::Left>& rows);

    Gtk::Box page_{Gtk::Orientation::VERTICAL}, content_{Gtk::Orientation::VERTICAL, 18};
    Gtk::ScrolledWindow scroller_;
};

}  // namespace vesk::views
