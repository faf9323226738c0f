// The events of the Messages API, as Claude's answer streams in.
#pragma once

#include <optional>
#include <string>

#include "VeskCore/Brain/ModelStream.h"

namespace vesk {

class AnthropicStream final : public ModelStream {
protected:
    void payload(std::string_view data, const Sink& sink) override;
    void end(const Sink& sink) override;

private:
    void done(const Sink& sink);
    int inputTokens_ = 0;
    std::optional<std::string> stopReason_;
};

}  // namespace vesk
