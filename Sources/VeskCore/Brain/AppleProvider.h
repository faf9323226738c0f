// The on-device model. Its context is small, so everything here fits a request into a tight budget.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Brain/BrainProvider.h"
#include "VeskCore/Brain/Choice.h"
#include "VeskCore/Platform/SystemLanguageModel.h"

namespace vesk {

/// Any thread. Borrows the model.
class AppleProvider final : public BrainProvider {
public:
    static constexpr std::string_view modelID = "apple-on-device";

    explicit AppleProvider(SystemLanguageModel& model);

    BrainProviderID id() const override { return BrainProviderID::apple; }
    std::string displayName() const override { return std::string(vesk::displayName(id())); }
    bool isConfigured() const override { return !unavailableReason(); }
    std::vector<BrainModel> models() const override;
    void stream(const BrainRequest& request, const std::string& model, const Sink& sink,
                std::stop_token stop) const override;
    /// The model can't answer outside the choices. Throws ChoiceError and BrainError.
    ChoiceAnswer choose(const ChoiceQuestion& question, const std::string& model,
                        std::stop_token stop) const override;
    int preferredChoiceBatchSize() const override { return 1; }

    /// Why the model can't be asked, in the user's words; none if it can.
    std::optional<std::string> unavailableReason() const;

    // The budgets, in tokens.
    int contextSize() const { return contextSize_; }
    int maxOutputTokens() const;
    int contextTokenBudget() const;
    int choiceBudgetTokens() const;

    /// Errs on the high side: one for each code point beyond ASCII and for three within.
    static int estimatedTokens(std::string_view text);
    /// As many chunks, in order, as fit; the first whole whatever its size. "" without chunks.
    static std::string contextBlock(const std::vector<RetrievedChunk>& chunks, int budgetTokens);
    static std::string instructions(const BrainRequest& request, int budgetTokens);
    static std::string prompt(const BrainRequest& request);
    static std::string message(const GenerationError& error);

private:
    SystemLanguageModel& model_;
    const int contextSize_;
};

}  // namespace vesk
