#include "VeskCore/Brain/BrainProvider.h"

#include "VeskCore/Brain/ChoiceParser.h"

namespace vesk {

ChoiceAnswer BrainProvider::choose(const ChoiceQuestion& question, const std::string& model,
                                   std::stop_token stop) const {
    const BrainRequest request{
        .system = question.instructions + "\n\n" + ChoiceParser::replyInstructions(question.slots),
        .messages = {{.role = BrainMessage::Role::user, .text = question.prompt}},
        .maxTokens = 256 + 64 * static_cast<int>(question.slots.size()),
        .temperature = question.temperature,
        .context = {},
        .focus = {}};
    std::string reply;
    stream(
        request, model,
        [&](const BrainEvent& event) {
            if (const auto* text = std::get_if<BrainEvent::Text>(&event.value)) reply += text->text;
        },
        stop);
    return ChoiceParser::parse(reply, question.slots);
}

}  // namespace vesk
