#include "VeskCore/Brain/ChatModels.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "VeskCore/Support/Text.h"

namespace vesk::ChatModels {

namespace {

// Where nobody says how much fits: what servers load a model with when they aren't told otherwise, or more.
constexpr int unknownContext = 8192;
constexpr int unknownServiceContext = 128000;
constexpr int unknownServiceOutput = 16384;
/// A price that is there but isn't known.
constexpr double unknownPrice = std::numeric_limits<double>::infinity();

std::string shownName(std::string_view id) {
    constexpr std::string_view latest = ":latest";
    if (id.ends_with(latest) && id.size() > latest.size()) id.remove_suffix(latest.size());
    return std::string(id);
}

const BrainModel* tableRow(std::string_view id) {
    const auto& table = openAIModels();
    const auto row =
        std::find_if(table.begin(), table.end(), [id](const BrainModel& model) { return model.id == id; });
    return row != table.end() ? &*row : nullptr;
}

}  // namespace

const std::vector<BrainModel>& openAIModels() {
    static const std::vector<BrainModel> models{
        {.id = "gpt-5-mini",
         .displayName = "GPT-5 mini",
         .contextWindow = 272000,
         .maxOutput = 128000,
         .inputPricePerMTok = 0.25,
         .outputPricePerMTok = 2.00,
         .note = "Vesk's default for OpenAI. Cheapest of the GPT-5 family."},
        {.id = "gpt-5",
         .displayName = "GPT-5",
         .contextWindow = 272000,
         .maxOutput = 128000,
         .inputPricePerMTok = 1.25,
         .outputPricePerMTok = 10.00,
         .note = "Best answers about your vault."},
        {.id = "gpt-5.1",
         .displayName = "GPT-5.1",
         .contextWindow = 272000,
         .maxOutput = 128000,
         .inputPricePerMTok = 1.25,
         .outputPricePerMTok = 10.00,
         .note = "Same price as GPT-5, newer training."},
        {.id = "gpt-4.1",
         .displayName = "GPT-4.1",
         .contextWindow = 1000000,
         .maxOutput = 32768,
         .inputPricePerMTok = 2.00,
         .outputPricePerMTok = 8.00,
         .note = "The previous generation, with a million-token window."},
        {.id = "gpt-4.1-mini",
         .displayName = "GPT-4.1 mini",
         .contextWindow = 1000000,
         .maxOutput = 32768,
         .inputPricePerMTok = 0.40,
         .outputPricePerMTok = 1.60,
         .note = "Cheap, with a million-token window."},
    };
    return models;
}

bool isEmbeddingModel(std::string_view id) {
    const auto lowered = asciiLowercased(id);
    for (std::size_t at = 0; at < lowered.size();) {
        if (!isAsciiAlphanumeric(lowered[at])) {
            ++at;
            continue;
        }
        auto end = at;
        while (end < lowered.size() && isAsciiAlphanumeric(lowered[end])) ++end;
        const auto word = std::string_view(lowered).substr(at, end - at);
        if (word == "embed" || word == "embedding" || word == "embeddings") return true;
        at = end;
    }
    return false;
}

std::string_view datedSnapshotBase(std::string_view id) {
    constexpr std::string_view form = "-dddd-dd-dd";
    if (id.size() < form.size()) return id;
    const auto ending = id.substr(id.size() - form.size());
    for (std::size_t i = 0; i < form.size(); ++i) {
        if (form[i] == 'd' ? !isAsciiDigit(ending[i]) : ending[i] != form[i]) return id;
    }
    return id.substr(0, id.size() - form.size());
}

BrainModel openAIModel(const std::string& id) {
    if (const auto* row = tableRow(id)) return *row;
    const auto base = datedSnapshotBase(id);
    if (const auto* row = tableRow(base)) {
        BrainModel model = *row;
        model.id = id;
        model.displayName += " (" + id.substr(base.size() + 1) + ")";
        return model;
    }
    return {.id = id,
            .displayName = id,
            .contextWindow = unknownServiceContext,
            .maxOutput = unknownServiceOutput,
            .inputPricePerMTok = unknownPrice,
            .outputPricePerMTok = unknownPrice,
            .note = "Vesk doesn't know this model's pricing — see OpenAI's pricing page."};
}

BrainModel chatModel(const std::string& id, const std::optional<LoadedModelInfo>& loaded) {
    const auto size = loaded ? loaded->loadedContextLength.value_or(0) : 0;
    const auto largest = loaded ? loaded->maxContextLength.value_or(0) : 0;
    BrainModel model{
        .id = id, .displayName = shownName(id), .contextWindow = size > 0 ? size : unknownContext};
    model.maxOutput = model.contextWindow / 2;
    model.note =
        size > 0 && size < largest
            ? fmt::format(
                  "Loaded with {}k of its {}k context. Reload it in the server with a larger context to "
                  "send more of your vault at once.",
                  size / 1024, largest / 1024)
            : "Context length depends on how the server loaded this model.";
    return model;
}

BrainModel typedModel(const std::string& id) {
    return {.id = id,
            .displayName = shownName(id),
            .contextWindow = unknownServiceContext,
            .maxOutput = unknownServiceOutput,
            .inputPricePerMTok = unknownPrice,
            .outputPricePerMTok = unknownPrice};
}

}  // namespace vesk::ChatModels
