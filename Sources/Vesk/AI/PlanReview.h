// The review of a plan without its widgets: what is listed where, what is ticked, where a note is to go. Main
// thread.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Brain/VaultPlanExecutor.h"
#include "VeskCore/Support/Localised.h"

namespace vesk {

class PlanReview {
public:
    using Preview = VaultPlanExecutor::Preview;

    static constexpr std::string_view title = marked("Proposed changes");
    static constexpr std::string_view promise =
        marked("Nothing has been changed yet. Vesk applies only what you tick.");
    static constexpr std::string_view missingBefore = marked("(does not exist)");
    static constexpr std::string_view missingAfter = marked("(removed)");
    static constexpr std::string_view emptyFolder = marked("(no notes in this folder)");
    static constexpr std::string_view destinationHelp =
        marked("Where this note goes. The other folder is where its nearest filed notes are.");

    struct Section {
        std::string title;      ///< empty for the operations of a conversation
        std::vector<int> rows;  ///< ids of previews
        bool operator==(const Section&) const = default;
    };
    /// What an expanded row shows.
    struct Details {
        std::string beforeTitle, before, afterTitle, after;
        bool operator==(const Details&) const = default;
    };

    explicit PlanReview(std::vector<Preview> previews);

    /// In the order they are shown, empty ones left out.
    std::vector<Section> sections() const;
    /// As the plan has it.
    const Preview& proposed(int id) const;
    /// The alternative that was chosen for it.
    std::optional<std::size_t> chosen(int id) const;
    /// As it is with the destination that was chosen for it.
    Preview preview(int id) const;
    Details details(int id) const;
    bool isApplicable(int id) const;

    bool isTicked(int id) const { return approved_.contains(id); }
    /// An operation that can't be applied stays unticked.
    void tick(int id, bool ticked);
    void selectAll();
    void selectNone();
    /// Chooses one of the alternative folders, or none for the proposed one.
    void switchDestination(int id, std::optional<std::size_t> alternative);

    std::size_t tickedCount() const { return approved_.size(); }
    std::string countLabel() const;  ///< "2 of 3 selected"
    std::string applyLabel() const;  ///< "Apply 2"

    /// What BrainSession::applyPendingPlan() takes.
    std::vector<Preview> approved() const;
    std::map<int, VaultOperation> destinations() const;

    std::optional<int> expanded;

private:
    const Preview* find(int id) const;

    std::vector<Preview> previews_;
    std::set<int> approved_;
    std::map<int, std::size_t> switched_;
};

}  // namespace vesk
