// The language model that belongs to the machine itself: small, free, and nothing leaves the device.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "VeskCore/Support/Error.h"

namespace vesk {

/// How the model fails at an answer.
class GenerationError : public Error {
public:
    enum class Kind {
        exceededContextWindowSize,
        guardrailViolation,
        unsupportedLanguageOrLocale,
        rateLimited,
        concurrentRequests,
        refusal,
        cancelled,
        other,
    };
    explicit GenerationError(Kind what, std::string more = {}) : kind(what), detail(std::move(more)) {}
    std::string description() const override { return detail.empty() ? "The model failed." : detail; }

    Kind kind;
    std::string detail;
};

struct GenerationOptions {
    int maximumResponseTokens = 0;
    std::optional<double> temperature;
    bool operator==(const GenerationOptions&) const = default;
};

/// The form that a guided answer must have: an object with one string for each property.
struct GenerationSchema {
    struct Property {
        std::string name, description;
        std::vector<std::string> anyOf;  ///< the only answers there are
        bool operator==(const Property&) const = default;
    };
    std::string name;
    std::vector<Property> properties;
    bool operator==(const GenerationSchema&) const = default;
};

/// Any thread; the two calls for an answer block a worker.
class SystemLanguageModel {
public:
    enum class Unavailability { systemTooOld, deviceNotEligible, notEnabled, modelNotReady, other };

    virtual ~SystemLanguageModel() = default;
    /// None if the model can be asked. Never waits.
    virtual std::optional<Unavailability> unavailability() const = 0;
    /// Tokens of instructions, prompt and answer together; none where the system doesn't say.
    virtual std::optional<int> contextSize() const = 0;
    /// Each snapshot is the whole answer so far. Throws GenerationError.
    virtual void streamResponse(const std::string& instructions, const std::string& prompt,
                                const GenerationOptions& options,
                                const std::function<void(const std::string& snapshot)>& onSnapshot,
                                std::stop_token stop) = 0;
    /// The properties' values by name. Throws GenerationError.
    virtual std::map<std::string, std::string> respond(const std::string& instructions,
                                                       const std::string& prompt,
                                                       const GenerationSchema& schema,
                                                       const GenerationOptions& options,
                                                       std::stop_token stop) = 0;
};

}  // namespace vesk
