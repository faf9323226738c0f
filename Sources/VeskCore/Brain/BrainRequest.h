// What a caller asks of a model.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "VeskCore/Brain/BrainMessage.h"
#include "VeskCore/Index/RetrievedChunk.h"

namespace vesk {

struct BrainRequest {
    std::optional<std::string> system;  ///< the system prompt
    std::vector<BrainMessage> messages;
    int maxTokens = 0;  ///< the longest reply wished for; a provider clamps it to the model's maxOutput
    std::optional<double> temperature;
    std::vector<RetrievedChunk> context;  ///< quoted material from the vault, most relevant first
    std::optional<std::string> focus;     ///< the one passage that a small model must not lose
    bool operator==(const BrainRequest&) const = default;
};

}  // namespace vesk
