// Models' replies: the three providers' streams, cut at two seeds' will, and replies to closed questions. The
// first byte chooses the reader, the second the size of the pieces; the rest is the reply.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Brain/AnthropicStream.h"
#include "VeskCore/Brain/ChatStream.h"
#include "VeskCore/Brain/ChoiceParser.h"
#include "VeskCore/Brain/GeminiStream.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"

namespace {

using namespace vesk;

void require(bool condition) {
    if (!condition) std::abort();
}

std::unique_ptr<ModelStream> reader(unsigned choice) {
    if (choice == 0) return std::make_unique<AnthropicStream>();
    if (choice == 1) return std::make_unique<ChatStream>("Server");
    return std::make_unique<GeminiStream>();
}

struct Reading {
    std::vector<BrainEvent> events;
    std::optional<BrainError::Value> failure;
    bool operator==(const Reading&) const = default;
};

Reading read(unsigned choice, std::string_view reply, std::size_t pieceSize) {
    Reading reading;
    const auto sink = [&](const BrainEvent& event) { reading.events.push_back(event); };
    const auto stream = reader(choice);
    try {
        for (std::size_t at = 0; at < reply.size(); at += pieceSize) {
            stream->feed(reply.substr(at, pieceSize), sink);
        }
        stream->finish(sink);
    } catch (const BrainError& error) {
        require(isValidUtf8(error.description()));
        reading.failure = error.value;
    }
    return reading;
}

/// Adjacent pieces may come together or apart; done comes once, at the end, and not with a failure.
void requireSound(const Reading& reading) {
    std::size_t ends = 0;
    for (const auto& event : reading.events) {
        match(
            event,
            [](const BrainEvent::Text& text) { require(!text.text.empty() && isValidUtf8(text.text)); },
            [](const BrainEvent::Thinking& text) { require(!text.text.empty() && isValidUtf8(text.text)); },
            [](const BrainEvent::Usage&) {},
            [&](const BrainEvent::Done& done) {
                ++ends;
                require(isValidUtf8(done.stopReason.value_or("")));
            });
    }
    require(ends == (reading.failure ? 0 : 1));
    require(ends == 0 || std::holds_alternative<BrainEvent::Done>(reading.events.back().value) ||
            !reading.failure);
}

void choose(std::string_view reply) {
    const std::vector<std::string> folders{"Work", "Home/Garden", "Home/Kitchen", "Ärzte"};
    const std::vector<ChoiceSlot> both{{.name = "1", .description = {}, .choices = folders},
                                       {.name = "2", .description = {}, .choices = {"a"}}};
    for (const auto& slots : {std::vector<ChoiceSlot>{both[0]}, both}) {
        try {
            const auto answer = ChoiceParser::parse(reply, slots);
            require(!answer.picks.empty());
            for (const auto& [slot, pick] : answer.picks) {
                require(ChoiceParser::match(pick, slot == "1" ? folders : both[1].choices) == pick);
            }
        } catch (const ChoiceError& error) {
            require(std::holds_alternative<ChoiceError::Unparseable>(error.value));
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2 || size > (1 << 16)) return 0;
    const unsigned choice = data[0] % 4;
    const std::string_view reply(reinterpret_cast<const char*>(data) + 2, size - 2);
    if (choice == 3) {
        const auto text = repairedUtf8(reply);
        choose(text);
        ChatStream::explain(text);
        return 0;
    }
    const auto whole = read(choice, reply, reply.size() + 1);
    requireSound(whole);
    require(read(choice, reply, 1 + data[1] % 64) == whole);
    return 0;
}
