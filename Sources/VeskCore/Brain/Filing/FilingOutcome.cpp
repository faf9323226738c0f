#include "VeskCore/Brain/Filing/FilingOutcome.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

constexpr std::string_view separator = " · ";

std::size_t asCount(int count) {
    return static_cast<std::size_t>(count);
}

/// "1 looks like junk", "3 look like junk".
std::string looksLikeJunk(int count) {
    return localisedCount("{} looks like junk", "{} look like junk", asCount(count), count);
}

}  // namespace

std::string FilingRunner::describe(double seconds) {
    if (!(seconds >= 10)) return localised("a few seconds");
    if (seconds < 90) return localised("about {} seconds", std::max(10L, std::lround(seconds / 5) * 5));
    return localised("about {} minutes", std::max(2L, std::lround(seconds / 60)));
}

std::string FilingPreflight::headline() const {
    const auto folders = static_cast<int>(taxonomy.targets.size());
    std::vector<std::string> parts{
        localised("{} waiting to be filed into {}",
                  localisedCount("{} note", "{} notes", asCount(askable), askable),
                  localisedCount("{} folder", "{} folders", asCount(folders), folders)),
        looksLikeJunk(junk), localised("{} decided earlier", decidedEarlier)};
    if (userPlaced > 0) parts.push_back(localised("{} placed by you", userPlaced));
    if (undelivered > 0) parts.push_back(localised("{} still downloading from iCloud", undelivered));
    parts.push_back(FilingRunner::describe(estimatedSeconds));
    auto text = join(parts, separator);
    if (hintsUnavailable)
        text += localised(" — without similar-note hints, so nothing will be ticked for you ({})",
                          *hintsUnavailable);
    return text;
}

std::vector<std::string> FilingPreflight::lines() const {
    std::vector<std::string> made{headline(), taxonomy.treatedAsInboxLine()};
    if (ledgerNote) made.push_back(*ledgerNote);
    return made;
}

bool FilingCoverage::identityHolds() const {
    return inScope == decidedNow + fromCache + userPlaced + declined + junk + undelivered + notLookedAt;
}

std::vector<std::string> FilingCoverage::lines(std::string_view providerName) const {
    std::vector<std::string> made{localisedCount(
        "Checked {} note in your inbox", "Checked {} notes in your inbox", asCount(inScope), inScope)};
    std::vector<std::string> parts{localised("{} decided now", decidedNow),
                                   localised("{} from last time", fromCache)};
    if (userPlaced > 0) parts.push_back(localised("{} placed by you", userPlaced));
    parts.push_back(localised("{} declined by {}", declined, providerName));
    parts.push_back(looksLikeJunk(junk));
    parts.push_back(localised("{} still downloading", undelivered));
    parts.push_back(localised("{} not looked at", notLookedAt));
    made.push_back(join(parts, separator));
    if (stoppedAfter) {
        made.push_back(localised("Stopped after {} of {} — run again to finish; decisions so far are kept",
                                 *stoppedAfter, askable));
    } else if (aborted) {
        std::string_view reason = *aborted;
        if (reason.ends_with('.')) reason.remove_suffix(1);
        made.push_back(
            localised("Stopped early — {}. Run again to finish; decisions so far are kept", reason));
    }
    return made;
}

std::optional<double> FilingReport::meanCallSeconds() const {
    if (callSeconds.empty()) return {};
    return std::accumulate(callSeconds.begin(), callSeconds.end(), 0.0) /
           static_cast<double>(callSeconds.size());
}

std::string FilingRunner::Refusal::description() const {
    return match(
        value,
        [](const TooFewFolders&) -> std::string {
            return localised(
                "Make two or more folders first — Vesk files notes into folders that already exist, and "
                "one folder is not a choice.");
        },
        [](const NothingToFile& it) -> std::string {
            if (it.noteCount == 0)
                return localised("Nothing is waiting to be filed — the vault has no notes yet.");
            return localisedCount("Nothing is waiting to be filed — all {} note is in folders.",
                                  "Nothing is waiting to be filed — all {} notes are in folders.",
                                  asCount(it.noteCount), it.noteCount);
        });
}

}  // namespace vesk
