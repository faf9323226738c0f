// A note that waits to be filed, and how much of it a question shows.
#pragma once

#include <cstddef>
#include <string>

#include "VeskCore/Support/Time.h"

namespace vesk {

/// One note that may be filed.
struct FilingCandidate {
    std::string path, title;
    std::string excerpt;  ///< VaultOrganiser::excerpt() of its body
    std::string contentHash;
    TimePoint modified;
    bool operator==(const FilingCandidate&) const = default;
};

/// How much of a note a question shows. One that is too long for a model steps down.
struct FilingAttempt {
    enum class Kind { shortened, full, noHints, titleOnly };
    Kind kind = Kind::full;
    std::size_t characters = 0;  ///< of a shortened one

    static FilingAttempt shortened(std::size_t characters) { return {Kind::shortened, characters}; }
    static FilingAttempt full() { return {Kind::full, 0}; }
    static FilingAttempt noHints() { return {Kind::noHints, 0}; }
    static FilingAttempt titleOnly() { return {Kind::titleOnly, 0}; }

    /// "short 600", "full", "no hints", "title only".
    std::string label() const;
    bool operator==(const FilingAttempt&) const = default;
};

}  // namespace vesk
