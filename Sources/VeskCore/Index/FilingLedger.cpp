#include "VeskCore/Index/FilingLedger.h"

#include <algorithm>

#include "VeskCore/Support/PathText.h"

namespace vesk {

std::string_view rawValue(FilingTier tier) {
    return tier == FilingTier::confident ? "confident" : "unsure";
}

std::optional<FilingTier> filingTier(std::string_view word) {
    for (const auto tier : {FilingTier::confident, FilingTier::unsure})
        if (rawValue(tier) == word) return tier;
    return {};
}

std::map<FilingLedgerKey, FilingDecision> InMemoryFilingLedger::lookup(
    const std::vector<FilingLedgerKey>& keys) const {
    const std::lock_guard guard(lock_);
    std::map<FilingLedgerKey, FilingDecision> found;
    for (const auto& key : keys) {
        const auto row = rows_.find(key);
        if (row == rows_.end()) continue;
        auto decision = row->second.decision;
        decision.fromCache = true;
        decision.appliedTo = row->second.applied;
        found.emplace(key, std::move(decision));
    }
    return found;
}

void InMemoryFilingLedger::record(const Entries& entries) {
    const std::lock_guard guard(lock_);
    for (const auto& [key, decision] : entries) rows_[key] = {.decision = decision, .applied = {}};
}

void InMemoryFilingLedger::markApplied(const std::map<std::string, std::string>& moves,
                                       std::string_view modelKey) {
    const std::lock_guard guard(lock_);
    for (const auto& [from, to] : moves) {
        if (from == to) continue;
        const auto isOf = [&](const std::string& path) {
            return [&](const auto& row) { return row.first.path == path && row.first.modelKey == modelKey; };
        };
        std::erase_if(rows_, isOf(to));
        for (auto row = std::find_if(rows_.begin(), rows_.end(), isOf(from)); row != rows_.end();
             row = std::find_if(rows_.begin(), rows_.end(), isOf(from))) {
            auto moved = rows_.extract(row);
            const std::string folder(parentFolder(to));
            moved.key().path = to;
            moved.mapped().applied = folder;
            if (auto* filed = std::get_if<FilingDecision::Filed>(&moved.mapped().decision.verdict))
                filed->folder = folder;
            rows_.insert(std::move(moved));
        }
    }
}

void InMemoryFilingLedger::forgetDecisions(const std::vector<std::string>& paths, std::string_view modelKey) {
    const std::lock_guard guard(lock_);
    const std::set<std::string_view> gone(paths.begin(), paths.end());
    std::erase_if(rows_, [&](const auto& row) {
        return row.first.modelKey == modelKey && gone.contains(row.first.path);
    });
}

std::set<std::string> InMemoryFilingLedger::userPlaced(const std::vector<FilingLedgerKey>& keys) const {
    const std::lock_guard guard(lock_);
    std::set<std::pair<std::string_view, std::string_view>> applied;
    for (const auto& [key, row] : rows_)
        if (row.applied) applied.emplace(key.path, key.contentHash);
    std::set<std::string> placed;
    for (const auto& key : keys)
        if (applied.contains({key.path, key.contentHash})) placed.insert(key.path);
    return placed;
}

}  // namespace vesk
