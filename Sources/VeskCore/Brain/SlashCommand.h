// Commands typed at the beginning of a message: "/note what is missing?". Pure.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vesk::SlashCommand {

struct Parsed {
    std::string command;
    std::string remainder;    ///< trimmed
    bool tokenEnded = false;  ///< white space follows the token
    bool operator==(const Parsed&) const = default;
};

/// None unless the text begins with the name of a command, or with the beginning of just one.
std::optional<Parsed> parse(std::string_view text, const std::vector<std::string>& commands);
/// The commands that the token begins, until white space ends it.
std::vector<std::string> completions(std::string_view text, const std::vector<std::string>& commands);

}  // namespace vesk::SlashCommand
