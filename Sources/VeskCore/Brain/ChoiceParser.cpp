#include "VeskCore/Brain/ChoiceParser.h"

#include <algorithm>

#include "VeskCore/Brain/BalancedJson.h"
#include "VeskCore/Brain/WireJson.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::ChoiceParser {

namespace {

/// The choice that spells `value` so, or so but for its case.
const std::string* spelled(std::string_view value, const std::vector<std::string>& choices) {
    for (const auto& choice : choices) {
        if (choice == value) return &choice;
    }
    for (const auto& choice : choices) {
        if (equalsIgnoringCase(choice, value)) return &choice;
    }
    return nullptr;
}

/// The one choice that `fits`; none if several do.
template <class Fits>
const std::string* onlyOne(const std::vector<std::string>& choices, Fits fits) {
    const std::string* found = nullptr;
    for (const auto& choice : choices) {
        if (!fits(choice)) continue;
        if (found) return nullptr;
        found = &choice;
    }
    return found;
}

/// Without quotes and backticks around it and a "/" behind it.
std::string_view unwrapped(std::string_view value) {
    constexpr std::string_view marks[] = {"\"", "'", "`", "“", "”", "‘", "’", "«", "»"};
    for (bool changed = true; changed;) {
        changed = false;
        for (auto mark : marks) {
            if (value.starts_with(mark)) {
                value.remove_prefix(mark.size());
                changed = true;
            }
            if (value.ends_with(mark)) {
                value.remove_suffix(mark.size());
                changed = true;
            }
        }
        if (value.ends_with('/')) {
            value.remove_suffix(1);
            changed = true;
        }
    }
    return trim(value);
}

std::string textOf(const Json& value) {
    const auto* text = value.asString();
    return text ? *text : value.dump();
}

}  // namespace

std::string replyInstructions(const std::vector<ChoiceSlot>& slots) {
    std::string text = "Reply with ONLY a JSON object, no prose: {";
    if (slots.size() == 1) {
        return text + "\"" + slots.front().name + "\": \"<one of the folders, exactly as written>\"}.";
    }
    for (std::size_t i = 0; i < slots.size(); ++i) {
        if (i > 0) text += ", ";
        text += "\"" + slots[i].name + "\": \"<folder>\"";
    }
    return text + "}. Every value must be one of the folders exactly as written.";
}

std::optional<std::string> match(std::string_view given, const std::vector<std::string>& choices) {
    const auto value = trim(given);
    if (value.empty()) return std::nullopt;
    if (const auto* choice = spelled(value, choices)) return *choice;
    const auto bare = unwrapped(value);
    if (bare.empty()) return std::nullopt;
    if (const auto* choice = spelled(bare, choices)) return *choice;
    const auto last = lastComponent(bare);
    if (const auto* choice = onlyOne(choices, [&](const std::string& candidate) {
            return equalsIgnoringCase(lastComponent(candidate), last);
        })) {
        return *choice;
    }
    const auto folded = caseFolded(bare);
    if (const auto* choice = onlyOne(choices, [&](const std::string& candidate) {
            return std::string_view(caseFolded(candidate)).starts_with(folded);
        })) {
        return *choice;
    }
    return std::nullopt;
}

ChoiceAnswer parse(std::string_view reply, const std::vector<ChoiceSlot>& slots) {
    const auto fenced = firstFenced(reply);
    auto object = fenced ? balancedJson(*fenced) : std::nullopt;
    if (!object) object = balancedJson(reply);
    ChoiceAnswer answer;
    const auto json = object ? parsedJson(*object) : std::nullopt;
    for (const auto& slot : slots) {
        const Json* value = json ? json->find(slot.name) : nullptr;
        if (!value || value->isNull()) continue;
        if (const auto choice = match(textOf(*value), slot.choices)) answer.picks[slot.name] = *choice;
    }
    if (!answer.picks.empty()) return answer;

    if (slots.size() == 1) {
        const auto& slot = slots.front();
        const auto text = fenced.value_or(reply);
        auto tries = splitLines(text, true);
        tries.push_back(text);
        for (auto line = tries.rbegin(); line != tries.rend(); ++line) {
            if (const auto choice = match(*line, slot.choices)) {
                return {.picks = {{slot.name, *choice}}};
            }
        }
    }
    std::vector<std::string> names;
    for (const auto& slot : slots) names.push_back(slot.name);
    throw ChoiceError(ChoiceError::Unparseable{.slots = std::move(names), .raw = std::string(reply)});
}

}  // namespace vesk::ChoiceParser
