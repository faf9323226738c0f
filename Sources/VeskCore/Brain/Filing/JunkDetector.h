// Finds by rule the notes in an inbox that hold nothing worth filing. Nothing is deleted for it: each is
// offered as a move. Pure; any thread.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VeskCore/Brain/Filing/FilingCandidate.h"

namespace vesk {

struct JunkVerdict {
    struct Duplicate {
        std::string of;  ///< the path of the note that stays
        bool operator==(const Duplicate&) const = default;
    };
    enum class Plain { empty, hashtagsOnly, bareCode, linkOnly };
    std::variant<Duplicate, Plain> rule;
    std::string reason;  ///< for the user
    bool operator==(const JunkVerdict&) const = default;
};

namespace JunkDetector {

/// By path. `filedHashes`: the filed notes of each content hash.
std::map<std::string, JunkVerdict> classify(
    const std::vector<FilingCandidate>& candidates,
    const std::map<std::string, std::vector<std::string>>& filedHashes);
/// Of one note by itself.
std::optional<JunkVerdict> verdict(const FilingCandidate& candidate);

}  // namespace JunkDetector

}  // namespace vesk
