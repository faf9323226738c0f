// Offering a title to a note that is still called "Untitled", without the sheet's widgets. Main thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Observable.h"

namespace vesk {

/// One offer, as the sheet watches it.
struct TitleProposal {
    std::string id;  ///< a UUID
    std::string path, noteName, text;
    Observable<std::optional<std::string>> suggestion;
    Observable<bool> loading;
    Observable<std::string> draft;  ///< the title field
    Observable<std::optional<std::string>> problem;
    TaskHandle request;

    static constexpr std::string_view heading = marked("Name this note?");
    static constexpr std::string_view thinking = marked("Thinking of a title…");
    static constexpr std::string_view noSuggestion =
        marked("Vesk couldn't think of one — type a title or keep Untitled.");
    static constexpr std::string_view field = marked("Title");
    static constexpr std::string_view keep = marked("Keep Untitled");
    static constexpr std::string_view use = marked("Use Title");
    static constexpr std::string_view renameFailed = marked("Couldn't rename this note.");

    /// The words below the heading.
    std::string message() const;
    bool canUse() const;
};

class TitleProposals {
public:
    /// Asks for a title of a text, as BrainSession::suggestTitle does: `done` is called once on the main
    /// thread, unless the handle was cancelled.
    using Suggest = std::function<TaskHandle(std::string_view text,
                                             std::function<void(std::optional<std::string>)> done)>;
    /// Renames the note at a path; the new path, or none if that failed.
    using Rename =
        std::function<std::optional<std::string>(const std::string& path, const std::string& title)>;

    TitleProposals(Suggest suggest, Rename rename);
    ~TitleProposals();

    Observable<std::shared_ptr<TitleProposal>> pending;

    /// Offers a title if the note is untitled, says enough and was not turned down before, and no other offer
    /// stands; whether it does.
    bool consider(const std::string& path, std::string_view text);
    /// Renames to the draft; a failure is told in the sheet.
    void useTitle();
    void keepUntitled();
    /// The note went away or got a name by another hand.
    void withdraw(std::string_view path);

private:
    void close(TitleProposal& offer);

    Suggest suggest_;
    Rename rename_;
    std::set<std::string, std::less<>> declined_;
};

}  // namespace vesk
