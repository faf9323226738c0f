// The review of a rewrite: what goes and what comes, word by word, and the new text by itself, which can be
// changed before it is approved.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "Vesk/AI/DiffApproval.h"
#include "Vesk/Views/AssistantSheet.h"

namespace vesk::views {

class AssistantRewriteSheet final : public AssistantSheet {
public:
    /// `approved` is called when the sheet is about to close with the text approved, `rejected` when the
    /// rewrite is turned down. Closed in another way the review waits.
    static void show(GtkWindow* parent, std::shared_ptr<DiffApproval> approval,
                     std::function<void()> approved, std::function<void()> rejected);

private:
    AssistantRewriteSheet(GtkWindow* parent, std::shared_ptr<DiffApproval> approval,
                          std::function<void()> approved, std::function<void()> rejected);
    void buildChanges();
    void buildNewText();
    void showResult();
    void showTab();
    void approve();

    std::shared_ptr<DiffApproval> approval_;
    std::function<void()> approved_, rejected_;
    std::vector<Subscription> subscriptions_;
    Gtk::Box page_{Gtk::Orientation::VERTICAL}, changes_{Gtk::Orientation::VERTICAL},
        counts_{Gtk::Orientation::HORIZONTAL, 8}, tabs_;
    Gtk::ToggleButton changesTab_{_("Changes")}, newTextTab_{_("New text")};
    Gtk::Label added_, removed_, coarse_;
    Gtk::Stack stack_, state_;
    Gtk::Spinner spinner_;
    Gtk::ScrolledWindow diffScroller_, textScroller_;
    Gtk::TextView diff_, text_;
};

}  // namespace vesk::views
