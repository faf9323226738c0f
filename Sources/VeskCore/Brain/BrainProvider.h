// The one interface through which every language model is asked.
#pragma once

#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "VeskCore/Brain/BrainEvent.h"
#include "VeskCore/Brain/BrainModel.h"
#include "VeskCore/Brain/BrainProviderID.h"
#include "VeskCore/Brain/BrainRequest.h"
#include "VeskCore/Brain/Choice.h"

namespace vesk {

/// Any thread; several calls may run at once.
class BrainProvider {
public:
    /// Takes the events in order, on the thread of the call.
    using Sink = std::function<void(const BrainEvent&)>;

    virtual ~BrainProvider() = default;
    virtual BrainProviderID id() const = 0;
    virtual std::string displayName() const = 0;
    /// For a provider with a key: whether the secret store holds one.
    virtual bool isConfigured() const = 0;
    virtual std::vector<BrainModel> models() const = 0;
    /// Blocks a worker until the reply is complete: any number of thinking, text and usage events, then one
    /// done. Throws BrainError, and nothing else, in place of done, after whatever text already came;
    /// `cancelled` once `stop` is requested.
    virtual void stream(const BrainRequest& request, const std::string& model, const Sink& sink,
                        std::stop_token stop) const = 0;
    /// Makes the reply to a closed question into picks; a slot that the model left out has none. Throws
    /// ChoiceError and BrainError.
    virtual ChoiceAnswer choose(const ChoiceQuestion& question, const std::string& model,
                                std::stop_token stop) const;
    /// How many items one choose() takes.
    virtual int preferredChoiceBatchSize() const { return 20; }

    std::string shortDisplayName() const { return std::string(shortName(displayName())); }
};

}  // namespace vesk
