#include "Vesk/AI/DiffApproval.h"

#include <utility>

namespace vesk {

std::string DiffApproval::title(const NoteEdit& edit) {
    return localised("{} — review before saving", edit.action);
}

std::string DiffApproval::subtitle(const NoteEdit& edit) {
    if (edit.isSelectionOnly) return localised("Replaces the text you selected in {}.", edit.noteTitle);
    if (edit.subjectDescription) return localised("Replaces {}.", *edit.subjectDescription);
    return localised("Replaces the whole of {}.", edit.noteTitle);
}

std::string DiffApproval::addedLabel(const WordDiff::Result& result) {
    return result.added == 0 ? "" : localised("{} added", result.added);
}

std::string DiffApproval::removedLabel(const WordDiff::Result& result) {
    return result.removed == 0 ? "" : localised("{} removed", result.removed);
}

std::shared_ptr<DiffApproval> DiffApproval::make(NoteEdit edit, MainQueue& mainQueue, Background& background,
                                                 std::function<void(const NoteEdit&)> apply) {
    const std::shared_ptr<DiffApproval> made(new DiffApproval(std::move(edit), mainQueue, std::move(apply)));
    const auto job = [weak = std::weak_ptr<DiffApproval>(made), &mainQueue, oldText = made->edit_.original,
                      newText = made->edit_.replacement](const std::stop_token& stop) {
        if (stop.stop_requested()) return;
        auto found = std::make_shared<WordDiff::Result>(WordDiff::compare(oldText, newText));
        mainQueue.post([weak, found = std::move(found)] {
            if (const auto review = weak.lock()) review->result.set(std::move(*found));
        });
    };
    made->comparing_ = background.run(Priority::userInitiated, job);
    return made;
}

DiffApproval::DiffApproval(NoteEdit edit, MainQueue& mainQueue, std::function<void(const NoteEdit&)> apply)
    : edit_(std::move(edit)),
      mainQueue_(mainQueue),
      apply_(std::move(apply)),
      isAvailable_(apply_ != nullptr) {}

DiffApproval::~DiffApproval() {
    comparing_.cancel();
}

std::optional<std::string_view> DiffApproval::unavailableReason() const {
    return isAvailable_ ? std::nullopt : std::optional(noHandler);
}

void DiffApproval::approve(std::string text) {
    if (!apply_) return;
    auto approved = edit_;
    approved.replacement = std::move(text);
    // Moved away: what is approved twice is written once.
    mainQueue_.post(
        [apply = std::exchange(apply_, nullptr), approved = std::move(approved)] { apply(approved); });
}

}  // namespace vesk
