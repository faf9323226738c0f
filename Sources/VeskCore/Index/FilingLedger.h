// What the organiser has decided about notes, so that a later pass asks a model only about what changed.
#pragma once

#include <compare>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vesk {

/// How sure the organiser is of a folder.
enum class FilingTier { confident, unsure };
/// "confident", "unsure".
std::string_view rawValue(FilingTier tier);
std::optional<FilingTier> filingTier(std::string_view rawValue);

/// A decision holds for this text of the note, judged against these folders by this model.
struct FilingLedgerKey {
    std::string path, contentHash, targetsHash, modelKey;
    auto operator<=>(const FilingLedgerKey&) const = default;
};

struct FilingDecision {
    struct Filed {
        std::string folder;
        FilingTier tier = FilingTier::unsure;
        bool operator==(const Filed&) const = default;
    };
    struct Declined {
        std::string reason;
        bool operator==(const Declined&) const = default;
    };
    std::variant<Declined, Filed> verdict;
    bool fromCache = false;
    std::optional<std::string> appliedTo;  ///< the folder that the user let it be moved to
    bool operator==(const FilingDecision&) const = default;
};

/// Any thread. Operations throw what storing throws.
class FilingLedger {
public:
    using Entries = std::vector<std::pair<FilingLedgerKey, FilingDecision>>;

    virtual ~FilingLedger() = default;
    /// The decisions that are known, of those asked for.
    virtual std::map<FilingLedgerKey, FilingDecision> lookup(
        const std::vector<FilingLedgerKey>& keys) const = 0;
    /// Takes the place of what was decided under the same keys.
    virtual void record(const Entries& entries) = 0;
    /// The user let these notes be moved: from the old path to the new one.
    virtual void markApplied(const std::map<std::string, std::string>& moves, std::string_view modelKey) = 0;
    virtual void forgetDecisions(const std::vector<std::string>& paths, std::string_view modelKey) = 0;
    /// Paths of notes that were moved by an earlier pass and have the same text since.
    virtual std::set<std::string> userPlaced(const std::vector<FilingLedgerKey>& keys) const = 0;
};

/// Where no index is open: gone with the process.
class InMemoryFilingLedger final : public FilingLedger {
public:
    std::map<FilingLedgerKey, FilingDecision> lookup(const std::vector<FilingLedgerKey>& keys) const override;
    void record(const Entries& entries) override;
    void markApplied(const std::map<std::string, std::string>& moves, std::string_view modelKey) override;
    void forgetDecisions(const std::vector<std::string>& paths, std::string_view modelKey) override;
    std::set<std::string> userPlaced(const std::vector<FilingLedgerKey>& keys) const override;

private:
    struct Record {
        FilingDecision decision;
        std::optional<std::string> applied;  ///< the folder it was moved to
    };
    mutable std::mutex lock_;  // guards the map
    std::map<FilingLedgerKey, Record> rows_;
};

}  // namespace vesk
