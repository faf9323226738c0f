// A closed question to a model, and the answer that names one of the given choices for each slot.
#pragma once

#include <map>
#include <string>
#include <variant>
#include <vector>

#include "VeskCore/Support/Error.h"

namespace vesk {

struct ChoiceSlot {
    std::string name, description;
    std::vector<std::string> choices;
    bool operator==(const ChoiceSlot&) const = default;
};

struct ChoiceQuestion {
    std::string instructions, prompt;
    std::vector<ChoiceSlot> slots;
    double temperature = 0;
    bool operator==(const ChoiceQuestion&) const = default;
};

struct ChoiceAnswer {
    std::map<std::string, std::string> picks;  ///< the chosen text by slot name; a slot may be missing
    bool operator==(const ChoiceAnswer&) const = default;
};

/// How a closed question fails, beside the BrainError of its call.
class ChoiceError : public Error {
public:
    struct Declined {
        std::string words;
        bool operator==(const Declined&) const = default;
    };
    struct Unparseable {
        std::vector<std::string> slots;
        std::string raw;  ///< the reply
        bool operator==(const Unparseable&) const = default;
    };
    struct TooLong {
        bool operator==(const TooLong&) const = default;
    };
    struct Busy {
        bool operator==(const Busy&) const = default;
    };
    using Value = std::variant<Declined, Unparseable, TooLong, Busy>;

    explicit ChoiceError(Value failure) : value(std::move(failure)) {}
    std::string description() const override;
    bool operator==(const ChoiceError& other) const { return value == other.value; }

    Value value;
};

}  // namespace vesk
