#include "VeskCore/Brain/SlashCommand.h"

#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::SlashCommand {

namespace {

struct Typed {
    std::string_view token, rest;
    bool tokenEnded = false;
};

std::optional<Typed> typed(std::string_view text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    if (!text.starts_with('/')) return std::nullopt;
    text.remove_prefix(1);
    std::size_t end = 0;
    for (std::size_t next = 0; next < text.size(); end = next) {
        if (isSpaceOrNewline(nextCodePoint(text, next))) {
            return Typed{.token = text.substr(0, end), .rest = text.substr(end), .tokenEnded = true};
        }
    }
    return Typed{.token = text, .rest = {}, .tokenEnded = false};
}

}  // namespace

std::optional<Parsed> parse(std::string_view text, const std::vector<std::string>& commands) {
    const auto found = typed(text);
    if (!found) return std::nullopt;
    auto candidates = completions("/" + std::string(found->token), commands);
    for (const auto& command : candidates) {
        if (lowercased(command) == lowercased(found->token)) candidates = {std::string(command)};
    }
    if (candidates.size() != 1) return std::nullopt;
    return Parsed{.command = candidates.front(),
                  .remainder = std::string(trim(found->rest)),
                  .tokenEnded = found->tokenEnded};
}

std::vector<std::string> completions(std::string_view text, const std::vector<std::string>& commands) {
    const auto found = typed(text);
    if (!found || found->tokenEnded) return {};
    const auto token = lowercased(found->token);
    std::vector<std::string> matching;
    for (const auto& command : commands) {
        if (lowercased(command).starts_with(token)) matching.push_back(command);
    }
    return matching;
}

}  // namespace vesk::SlashCommand
