#include "Simulation/Oracle.h"

#include <algorithm>

namespace vesk::simulation {

namespace {

constexpr std::string_view fence = "---\n";

bool isReminderKey(std::string_view line) {
    return line.starts_with("remind:") || line.starts_with("repeat:") || line.starts_with("priority:");
}

std::string_view trimmedBlank(std::string_view text) {
    const auto first = text.find_first_not_of("\n");
    if (first == text.npos) return {};
    return text.substr(first, text.find_last_not_of("\n") + 1 - first);
}

}  // namespace

std::string essence(std::string_view text) {
    std::string plain;
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\r') plain += text[at];
    }
    std::string_view rest = plain;
    std::string keys;
    if (rest.starts_with(fence)) {
        const auto end = rest.find("\n---\n", fence.size() - 1);
        if (end != rest.npos) {
            auto lines = rest.substr(fence.size(), end + 1 - fence.size());
            rest.remove_prefix(end + 5);
            while (!lines.empty()) {
                const auto line = lines.substr(0, lines.find('\n') + 1);
                lines.remove_prefix(line.size());
                if (!isReminderKey(line)) keys += line;
            }
        }
    }
    return keys + std::string(trimmedBlank(rest));
}

std::optional<int> Oracle::known(const std::string& part) const {
    const auto found = numbers_.find(part);
    return found == numbers_.end() ? std::nullopt : std::optional(found->second);
}

int Oracle::number(std::string_view text) {
    const auto [place, isNew] = numbers_.try_emplace(essence(text), static_cast<int>(texts_.size()));
    if (isNew) texts_.emplace_back();
    return place->second;
}

void Oracle::made(std::string_view text, const std::optional<std::string>& seen) {
    const int made = number(text);
    if (!seen) return;
    const int from = number(*seen);
    if (from == made) return;
    auto& list = texts_[static_cast<std::size_t>(made)].from;
    if (std::find(list.begin(), list.end(), from) == list.end()) list.push_back(from);
}

void Oracle::owed(std::string_view text) {
    texts_[static_cast<std::size_t>(number(text))].isOwed = true;
}

void Oracle::stands(std::string_view text) {
    auto& entry = texts_[static_cast<std::size_t>(number(text))];
    entry.isOwed = entry.isSaved = true;
}

void Oracle::gaveWay(std::string_view text) {
    texts_[static_cast<std::size_t>(number(text))].isOwed = false;
}

void Oracle::saved(std::string_view text) {
    texts_[static_cast<std::size_t>(number(text))].isSaved = true;
}

void Oracle::thrownAway(std::string_view text) {
    texts_[static_cast<std::size_t>(number(text))].isThrownAway = true;
}

void Oracle::givenUp(std::string_view text) {
    std::vector<int> open{number(text)};
    while (!open.empty()) {
        auto& given = texts_[static_cast<std::size_t>(open.back())];
        open.pop_back();
        if (given.isSaved || given.isGivenUp) continue;
        given.isGivenUp = true;
        open.insert(open.end(), given.from.begin(), given.from.end());
    }
}

std::vector<bool> Oracle::reached(std::vector<int> open) const {
    std::vector<bool> reached(texts_.size());
    while (!open.empty()) {
        const auto next = static_cast<std::size_t>(open.back());
        open.pop_back();
        if (reached[next]) continue;
        reached[next] = true;
        open.insert(open.end(), texts_[next].from.begin(), texts_[next].from.end());
    }
    return reached;
}

std::vector<bool> Oracle::safe(const std::vector<std::string>& found) const {
    std::vector<int> open;
    for (const auto& text : found) {
        if (const auto place = known(essence(text))) open.push_back(*place);
    }
    for (std::size_t i = 0; i < texts_.size(); ++i) {
        if (texts_[i].isThrownAway) open.push_back(static_cast<int>(i));
    }
    return reached(std::move(open));
}

bool Oracle::isSafe(std::string_view text, const std::vector<std::string>& found) const {
    const auto place = known(essence(text));
    return place && safe(found)[static_cast<std::size_t>(*place)];
}

std::vector<std::string> Oracle::lost(const std::vector<std::string>& found) const {
    const auto isSafe = safe(found);
    std::vector<std::string> missing;
    for (const auto& [text, place] : numbers_) {
        const auto& entry = texts_[static_cast<std::size_t>(place)];
        if (entry.isOwed && !entry.isGivenUp && !isSafe[static_cast<std::size_t>(place)])
            missing.push_back(text);
    }
    return missing;
}

bool Oracle::isMadeFrom(std::string_view later, std::string_view earlier) const {
    const auto from = known(essence(later)), to = known(essence(earlier));
    return from && to && reached({*from})[static_cast<std::size_t>(*to)];
}

}  // namespace vesk::simulation
