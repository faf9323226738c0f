// Stands between a model's plan and the disk: shows what each operation would do, and carries out those that
// the user ticked, each checked once more at that moment. Nothing happens outside the vault, what became
// stale is skipped, one failure doesn't stop the rest, and what goes away goes into the vault's trash.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "VeskCore/Brain/VaultPlan.h"
#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Support/Time.h"
#include "VeskCore/Vault/ForeignEdit.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk::VaultPlanExecutor {

struct Preview {
    int id = 0;  ///< the operation's place in the plan
    VaultOperation operation;
    std::string description;
    /// Of a note, its text now and as it would be; of a folder, the lists of its notes; none where there is
    /// nothing.
    std::optional<std::string> before, after;
    std::optional<PlanIssue> issue;
    std::optional<PlanAnnotation> annotation;

    bool isBlocked() const { return issue && issue->severity == PlanIssue::Severity::blocking; }
    /// The same with another operation in its place.
    Preview switchingTo(VaultOperation other, std::optional<PlanIssue> itsIssue) const;
    bool operator==(const Preview&) const = default;
};

struct Report {
    struct Left {
        std::string operation, reason;  ///< its description, and why it was not done
        bool operator==(const Left&) const = default;
    };
    /// A note that went from its path: to another, or into the trash.
    struct Departure {
        std::string from;
        std::optional<std::string> to;
        bool operator==(const Departure&) const = default;
    };

    std::vector<std::string> applied;
    std::vector<Left> skipped, failed;
    std::map<std::string, std::string> renamed;  ///< from the path before the run to the path after it
    std::set<std::string> removed;
    std::vector<Departure> departures;  ///< each by itself, in the order they happened

    /// "3 applied · 1 skipped".
    std::string summary() const;
    bool operator==(const Report&) const = default;
};

/// Puts a note's text on the disk, only while `expected` is what stands there; may throw anything.
using Write =
    std::function<void(const std::string& text, const FilePath& path, const ForeignEdit::Disk& expected)>;

/// One preview for each operation, in order, each seeing the effect of those before it; an annotation's
/// alternatives are moves, and each gets its issue in the same way. Writes nothing. With `limitToNote` only
/// that note may be touched.
std::vector<Preview> validate(const VaultPlan& plan, const Vault& vault,
                              const std::optional<std::string>& limitToNote = {},
                              const std::vector<std::string>& forbiddenFolders = {});

/// Carries out what isn't blocked, in order. Never throws.
Report apply(const std::vector<Preview>& previews, const Vault& vault, const Write& write);

/// The text with a property set; or why that isn't done, in the user's words.
struct Setting {
    std::optional<std::string> text, refusal;
};
Setting setting(std::string_view key, std::string_view value, std::string_view text);
/// The text without the property; a reminder takes its repeat along.
std::string removing(std::string_view key, std::string_view text);
/// A path below the folder `from` as it is once that is called `to`.
std::string remapped(std::string_view path, std::string_view from, std::string_view to);

}  // namespace vesk::VaultPlanExecutor
