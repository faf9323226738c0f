#include "VeskCore/Support/BrainError.h"

#include <fmt/format.h>

#include <string_view>

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"

namespace vesk {

namespace {

std::string statusPhrase(int status) {
    if (status == 401 || status == 403) return localised("Rejected (check your API key)");
    if (status == 429) return localised("Rate limited");
    if (status >= 500 && status <= 599) return localised("Provider error {}", status);
    return fmt::format("HTTP {}", status);
}

std::string_view firstNonEmptyLine(std::string_view body) {
    auto start = body.find_first_not_of("\r\n");
    if (start == std::string_view::npos) return body;
    auto line = body.substr(start);
    return line.substr(0, line.find_first_of("\r\n"));
}

}  // namespace

std::string BrainError::description() const {
    constexpr std::size_t kShownCharacters = 300;
    return match(
        value,
        [](const MissingAPIKey& missing) {
            return localised("No API key set for {}. Add one in Settings → AI.", missing.provider);
        },
        [](const Http& http) {
            auto shown = characterPrefix(firstNonEmptyLine(http.body), kShownCharacters);
            return statusPhrase(http.status) + ": " + std::string(shown);
        },
        [](const Decoding& decoding) {
            return localised("Unexpected response from the provider: {}", decoding.detail);
        },
        [](const Unavailable& unavailable) { return unavailable.message; },
        [](const Cancelled&) { return localised("Cancelled."); });
}

}  // namespace vesk
