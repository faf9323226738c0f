// The chunks of Gemini's generate-content stream.
#pragma once

#include <optional>
#include <string>

#include "VeskCore/Brain/ModelStream.h"

namespace vesk {

class GeminiStream final : public ModelStream {
protected:
    void payload(std::string_view data, const Sink& sink) override;
    void end(const Sink& sink) override;

private:
    std::optional<BrainEvent::Usage> usage_;
    std::optional<std::string> finishReason_;
    bool wroteText_ = false;
};

}  // namespace vesk
