// The review of a rewrite without its widgets: the words around the diff, and the diff itself, made in the
// background. Main thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Brain/NoteEdit.h"
#include "VeskCore/Brain/WordDiff.h"
#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Observable.h"

namespace vesk {

class DiffApproval : public std::enable_shared_from_this<DiffApproval> {
public:
    enum class Tab { changes, newText };

    static constexpr std::string_view comparing = marked("Comparing this against what's in the note…");
    static constexpr std::string_view noChanges = marked("No changes");
    static constexpr std::string_view identical =
        marked("The rewrite came back identical to what's already in the note.");
    static constexpr std::string_view coarse = marked(
        "This rewrite changes too much of the note to line up word by word, so the changed section is shown "
        "whole: everything struck through is replaced by everything underlined. Use “New text” to read the "
        "result on its own.");
    static constexpr std::string_view promise = marked("Nothing is written until you click Approve.");
    static constexpr std::string_view noHandler =
        marked("Vesk can't write this into the note from here yet. Copy it and paste it where you want it.");

    static std::string title(const NoteEdit& edit);
    static std::string subtitle(const NoteEdit& edit);
    /// "12 added"; empty for none.
    static std::string addedLabel(const WordDiff::Result& result);
    static std::string removedLabel(const WordDiff::Result& result);

    /// Begins to compare. Without `apply` the review offers copying and closing only. `apply` is called with
    /// the approved edit on a later turn of the main queue, once the review has closed.
    static std::shared_ptr<DiffApproval> make(NoteEdit edit, MainQueue& mainQueue, Background& background,
                                              std::function<void(const NoteEdit&)> apply);
    ~DiffApproval();

    const NoteEdit& edit() const { return edit_; }
    Observable<std::optional<WordDiff::Result>> result;  ///< none while it compares
    Observable<Tab> tab;
    /// Why there is nothing to approve; none if there is.
    std::optional<std::string_view> unavailableReason() const;

    /// With the text as the user left it.
    void approve(std::string text);

private:
    DiffApproval(NoteEdit edit, MainQueue& mainQueue, std::function<void(const NoteEdit&)> apply);

    NoteEdit edit_;
    MainQueue& mainQueue_;
    std::function<void(const NoteEdit&)> apply_;  ///< none once it was called
    bool isAvailable_ = false;
    TaskHandle comparing_;
};

}  // namespace vesk
