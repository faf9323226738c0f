#include "VeskCore/Brain/BrainModel.h"

#include <fmt/format.h>

#include <cmath>

namespace vesk {

std::string BrainModel::priceLabel() const {
    if (!inputPricePerMTok || !outputPricePerMTok) return "Free · runs locally";
    if (!std::isfinite(*inputPricePerMTok) || !std::isfinite(*outputPricePerMTok)) {
        return note.value_or("Pricing varies — check with the provider");
    }
    return fmt::format("${:g} in / ${:g} out per M tokens", *inputPricePerMTok, *outputPricePerMTok);
}

}  // namespace vesk
