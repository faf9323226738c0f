// A proposed set of changes to the vault, as a model writes it. Plain values: what a plan may do is judged by
// VaultPlanExecutor.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VeskCore/Index/FilingLedger.h"
#include "VeskCore/Support/Error.h"

namespace vesk {

/// One change. Paths are relative to the vault.
struct VaultOperation {
    struct CreateNote {
        std::string path, content;
        bool operator==(const CreateNote&) const = default;
    };
    struct UpdateNote {
        std::string path, content;
        bool operator==(const UpdateNote&) const = default;
    };
    struct RenameNote {
        std::string from, to;
        bool operator==(const RenameNote&) const = default;
    };
    struct SetProperty {
        std::string path, key, value;
        bool operator==(const SetProperty&) const = default;
    };
    struct RemoveProperty {
        std::string path, key;
        bool operator==(const RemoveProperty&) const = default;
    };
    struct TrashNote {
        std::string path;
        bool operator==(const TrashNote&) const = default;
    };
    struct CreateFolder {
        std::string path;
        bool operator==(const CreateFolder&) const = default;
    };
    struct RenameFolder {
        std::string from, to;
        bool operator==(const RenameFolder&) const = default;
    };
    struct TrashFolder {
        std::string path;
        bool operator==(const TrashFolder&) const = default;
    };
    using Value = std::variant<CreateNote, UpdateNote, RenameNote, SetProperty, RemoveProperty, TrashNote,
                               CreateFolder, RenameFolder, TrashFolder>;

    Value value;

    /// The name in plans: "set_property".
    std::string_view op() const;
    /// The note paths that it names; none for folders.
    std::vector<std::string> notePaths() const;
    /// Its line in the review.
    std::string describedForReview() const;
    std::optional<std::string> riskNote() const;
    bool operator==(const VaultOperation&) const = default;
};

struct PlanIssue {
    enum class Severity { blocking, warning };
    Severity severity = Severity::blocking;
    int operationIndex = 0;
    std::string message;
    bool operator==(const PlanIssue&) const = default;
};

/// What the organiser adds to an operation of its own.
struct PlanAnnotation {
    enum class Group { move, junk };
    struct Alternative {
        std::string folder;
        VaultOperation operation;
        std::optional<PlanIssue> issue;
        bool operator==(const Alternative&) const = default;
    };
    Group group = Group::move;
    std::optional<FilingTier> tier;
    std::string reason;
    std::vector<Alternative> alternatives;
    bool tickedByDefault = true;
    bool fromCache = false;
    bool operator==(const PlanAnnotation&) const = default;
};

struct VaultPlan {
    std::string summary;
    std::vector<VaultOperation> operations;
    std::map<std::string, PlanAnnotation> annotations;  ///< by note path
    bool operator==(const VaultPlan&) const = default;
};

/// Why a reply holds no plan that can be read.
class VaultPlanError : public Error {
public:
    struct Malformed {
        std::string detail;
        bool operator==(const Malformed&) const = default;
    };
    struct NoPlanFound {
        bool operator==(const NoPlanFound&) const = default;
    };
    using Value = std::variant<Malformed, NoPlanFound>;

    explicit VaultPlanError(Value failure) : value(std::move(failure)) {}
    std::string description() const override;

    Value value;
};

}  // namespace vesk
