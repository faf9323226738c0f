#include "Vesk/AI/PlanReview.h"

#include <algorithm>
#include <utility>

namespace vesk {

namespace {

using Preview = VaultPlanExecutor::Preview;

enum class Place { conversation, agreed, guess, junk, blocked };

/// By the proposed destination, so that a row stays where it is while another one is chosen.
Place placeOf(const Preview& preview) {
    if (preview.isBlocked()) return Place::blocked;
    if (!preview.annotation) return Place::conversation;
    if (preview.annotation->group == PlanAnnotation::Group::junk) return Place::junk;
    return preview.annotation->tier == FilingTier::confident ? Place::agreed : Place::guess;
}

std::string headingOf(Place place, std::size_t count) {
    switch (place) {
        case Place::conversation:
            return "";
        case Place::agreed:
            return localised("Similar notes agree ({})", count);
        case Place::guess:
            return localised("Best guess ({})", count);
        case Place::junk:
            return localised("Possibly junk ({})", count);
        case Place::blocked:
            return localised("Can't be applied");
    }
    return "";
}

}  // namespace

PlanReview::PlanReview(std::vector<Preview> previews) : previews_(std::move(previews)) {
    for (const auto& row : previews_) {
        const bool isWanted = !row.annotation || row.annotation->tickedByDefault;
        if (isWanted && !row.isBlocked()) approved_.insert(row.id);
    }
}

std::vector<PlanReview::Section> PlanReview::sections() const {
    std::vector<Section> all;
    for (const auto place : {Place::conversation, Place::agreed, Place::guess, Place::junk, Place::blocked}) {
        std::vector<int> rows;
        for (const auto& row : previews_) {
            if (placeOf(row) == place) rows.push_back(row.id);
        }
        if (rows.empty()) continue;
        auto heading = headingOf(place, rows.size());
        all.push_back({.title = std::move(heading), .rows = std::move(rows)});
    }
    return all;
}

const PlanReview::Preview* PlanReview::find(int id) const {
    // A plan's previews are counted through.
    const auto place = static_cast<std::size_t>(id);
    if (id >= 0 && place < previews_.size() && previews_[place].id == id) return &previews_[place];
    const auto found =
        std::find_if(previews_.begin(), previews_.end(), [id](const Preview& row) { return row.id == id; });
    return found == previews_.end() ? nullptr : &*found;
}

const PlanReview::Preview& PlanReview::proposed(int id) const {
    static const Preview none;
    const auto* row = find(id);
    return row ? *row : none;
}

std::optional<std::size_t> PlanReview::chosen(int id) const {
    const auto found = switched_.find(id);
    return found == switched_.end() ? std::nullopt : std::optional(found->second);
}

PlanReview::Preview PlanReview::preview(int id) const {
    const auto* row = find(id);
    if (!row) return {};
    const auto chosen = switched_.find(id);
    if (chosen == switched_.end()) return *row;
    const auto& alternative = row->annotation->alternatives[chosen->second];
    return row->switchingTo(alternative.operation, alternative.issue);
}

PlanReview::Details PlanReview::details(int id) const {
    const auto row = preview(id);
    const auto& operation = row.operation.value;
    const bool holdsNotes = std::holds_alternative<VaultOperation::RenameFolder>(operation) ||
                            std::holds_alternative<VaultOperation::TrashFolder>(operation);
    const bool isNewFolder = std::holds_alternative<VaultOperation::CreateFolder>(operation);
    return {.beforeTitle = localised(holdsNotes ? marked("Notes in this folder") : marked("Before")),
            .before = row.before.value_or(localised(missingBefore)),
            .afterTitle = localised("After"),
            .after = row.after.value_or(localised(isNewFolder ? emptyFolder : missingAfter))};
}

bool PlanReview::isApplicable(int id) const {
    return find(id) && !preview(id).isBlocked();
}

void PlanReview::tick(int id, bool ticked) {
    if (!ticked) {
        approved_.erase(id);
    } else if (isApplicable(id)) {
        approved_.insert(id);
    }
}

void PlanReview::selectAll() {
    for (const auto& row : previews_) tick(row.id, true);
}

void PlanReview::selectNone() {
    approved_.clear();
}

void PlanReview::switchDestination(int id, std::optional<std::size_t> alternative) {
    const auto* row = find(id);
    if (!row) return;
    if (!alternative) {
        switched_.erase(id);
    } else if (row->annotation && *alternative < row->annotation->alternatives.size()) {
        switched_.insert_or_assign(id, *alternative);
    }
    if (!isApplicable(id)) approved_.erase(id);
}

std::string PlanReview::countLabel() const {
    return localised("{} of {} selected", approved_.size(), previews_.size());
}

std::string PlanReview::applyLabel() const {
    return localised("Apply {}", approved_.size());
}

std::vector<PlanReview::Preview> PlanReview::approved() const {
    std::vector<Preview> ticked;
    for (const auto& row : previews_) {
        if (isTicked(row.id)) ticked.push_back(preview(row.id));
    }
    return ticked;
}

std::map<int, VaultOperation> PlanReview::destinations() const {
    std::map<int, VaultOperation> chosen;
    for (const auto& row : approved()) {
        if (!(row.operation == find(row.id)->operation)) chosen.emplace(row.id, row.operation);
    }
    return chosen;
}

}  // namespace vesk
