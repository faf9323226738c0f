#include "Vesk/Views/AssistantPlanReport.h"

namespace vesk::views {
namespace {

using Left = VaultPlanExecutor::Report::Left;

constexpr int width = 560, height = 480;

}  // namespace

class AssistantPlanReport::Row final : public SheetRow {
public:
    explicit Row(const AssistantPlanReport& report) : report_(report) {
        for (auto* label : {&title_, &reason_}) {
            label->set_xalign(0);
            label->set_wrap(true);
            label->set_wrap_mode(Pango::WrapMode::WORD_CHAR);
            append(*label);
        }
        set_valign(Gtk::Align::CENTER);
        reason_.add_css_class("caption");
        reason_.add_css_class("dim-label");
    }
    void show(int id) override {
        const auto& line = report_.lines_[static_cast<std::size_t>(id)];
        title_.set_text(line.operation);
        reason_.set_text(line.reason);
        reason_.set_visible(!line.reason.empty());
    }

private:
    const AssistantPlanReport& report_;
    Gtk::Label title_, reason_;
};

void AssistantPlanReport::show(GtkWindow* parent, const VaultPlanExecutor::Report& report) {
    new AssistantPlanReport(parent, report);
}

AssistantPlanReport::AssistantPlanReport(GtkWindow* parent, const VaultPlanExecutor::Report& report)
    : AssistantSheet(parent, report.summary(), width, height),
      list_([this] { return Gtk::make_managed<Row>(*this); }) {
    no_.set_visible(false);
    yes_.set_label(_("Close"));
    yes_.signal_clicked().connect([this] { close(); });
    promise_.set_visible(false);
    std::vector<Left> applied;
    for (const auto& one : report.applied) applied.push_back({one, {}});
    std::vector<SheetList::Section> sections;
    const auto add = [&](const char* title, const std::vector<Left>& lines) {
        if (lines.empty()) return;
        sections.push_back({.title = title, .rows = {}});
        for (const auto& line : lines) {
            sections.back().rows.push_back(static_cast<int>(lines_.size()));
            lines_.push_back(line);
        }
    };
    add(_("Failed"), report.failed);
    add(_("Skipped"), report.skipped);
    add(_("Applied"), applied);
    list_.setSections(sections);
    page_.append(list_);
    present(page_, yes_);
}

}  // namespace vesk::views
