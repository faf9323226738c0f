// Replies to closed questions, whose choices stand before the first empty line, and the titles that a model
// gives: a pick is always one of the choices, a title always the name of a file.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "VeskCore/Brain/ChoiceParser.h"
#include "VeskCore/Brain/NoteTitler.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"

namespace {

using namespace vesk;

void require(bool condition) {
    if (!condition) std::abort();
}

void choose(const std::string& reply, const std::vector<ChoiceSlot>& slots) {
    try {
        const auto answer = ChoiceParser::parse(reply, slots);
        require(!answer.picks.empty());
        for (const auto& [name, pick] : answer.picks) {
            const auto slot = std::find_if(slots.begin(), slots.end(), [&name = name](const ChoiceSlot& one) {
                return one.name == name;
            });
            require(slot != slots.end());
            require(std::find(slot->choices.begin(), slot->choices.end(), pick) != slot->choices.end());
        }
    } catch (const ChoiceError& error) {
        const auto* failure = std::get_if<ChoiceError::Unparseable>(&error.value);
        require(failure && failure->raw == reply && failure->slots.size() == slots.size());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > (1 << 14)) return 0;
    const auto text = repairedUtf8({reinterpret_cast<const char*>(data), size});
    const auto gap = text.find("\n\n");
    const auto reply = gap == text.npos ? text : text.substr(gap + 2);
    ChoiceSlot slot{.name = "folder", .description = {}, .choices = {}};
    for (const auto line : splitLines(std::string_view(text).substr(0, gap))) slot.choices.emplace_back(line);
    choose(reply, {slot});
    choose(reply, {slot, {.name = "2", .description = {}, .choices = {"Work", "Home"}}});

    if (const auto title = NoteTitler::parse(reply)) {
        require(!title->empty() && characterCount(*title) <= NoteTitler::maxTitleLength);
        require(title->find('/') == title->npos && !title->starts_with('.'));
    }
    require(characterCount(NoteTitler::excerpt(text)) <= NoteTitler::maxExcerptCharacters);
    return 0;
}
