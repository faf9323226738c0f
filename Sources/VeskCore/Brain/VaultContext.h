// What of a vault goes to a model with a question.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "VeskCore/Index/RetrievedChunk.h"

namespace vesk {

struct VaultContext {
    struct Coverage {
        struct Whole {
            int notes = 0;
            bool operator==(const Whole&) const = default;
        };
        struct Partial {
            int includedNotes = 0, totalNotes = 0;
            bool operator==(const Partial&) const = default;
        };
        struct Empty {
            std::string reason;
            bool operator==(const Empty&) const = default;
        };
        std::variant<Whole, Partial, Empty> value = Empty{};

        /// The paragraph of the system prompt.
        std::string promptDescription() const;
        bool operator==(const Coverage&) const = default;
    };

    std::vector<RetrievedChunk> chunks;
    Coverage coverage;
    int estimatedTokens = 0;
    std::vector<std::string> undelivered;  ///< paths of notes that could not be read now
    int pageCount = 0, stylesheetCount = 0;
    int pagesLeftOut = 0, stylesheetsLeftOut = 0;

    /// The line above the answer.
    std::string summary() const;
    bool operator==(const VaultContext&) const = default;
};

}  // namespace vesk
