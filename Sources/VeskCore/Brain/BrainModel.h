// One selectable model of a provider.
#pragma once

#include <optional>
#include <string>

namespace vesk {

struct BrainModel {
    std::string id;  ///< what goes on the wire
    std::string displayName;
    int contextWindow = 0;                                        ///< tokens
    int maxOutput = 0;                                            ///< tokens
    std::optional<double> inputPricePerMTok, outputPricePerMTok;  ///< US dollars per million tokens
    std::optional<std::string> note;                              ///< one line for the model picker

    /// "$5 in / $25 out per M tokens"; a model without prices runs locally.
    std::string priceLabel() const;
    bool operator==(const BrainModel&) const = default;
};

}  // namespace vesk
