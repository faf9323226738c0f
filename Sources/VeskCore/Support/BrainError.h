// How a model's back-end fails, in the words the user reads.
#pragma once

#include <string>
#include <variant>

#include "VeskCore/Support/Error.h"

namespace vesk {

/// Every failure of a model provider or an embedding provider.
class BrainError : public Error {
public:
    struct MissingAPIKey {
        std::string provider;  ///< the provider's display name
        bool operator==(const MissingAPIKey&) const = default;
    };
    struct Http {
        int status = 0;
        std::string body;
        bool operator==(const Http&) const = default;
    };
    struct Decoding {
        std::string detail;
        bool operator==(const Decoding&) const = default;
    };
    struct Unavailable {
        std::string message;  ///< the whole message for the user
        bool operator==(const Unavailable&) const = default;
    };
    struct Cancelled {
        bool operator==(const Cancelled&) const = default;
    };
    using Value = std::variant<MissingAPIKey, Http, Decoding, Unavailable, Cancelled>;

    explicit BrainError(Value failure) : value(std::move(failure)) {}
    std::string description() const override;
    bool operator==(const BrainError& other) const { return value == other.value; }

    Value value;
};

}  // namespace vesk
