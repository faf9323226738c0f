#include "VeskCore/Support/Localised.h"

#include <fmt/args.h>
#include <fmt/format.h>
#include <libintl.h>

namespace vesk {

namespace {

constexpr const char* domain = "vesk";

}  // namespace

std::string localisation::filled(const char* translated, const char* english,
                                 const std::vector<std::string>& arguments) {
    fmt::dynamic_format_arg_store<fmt::format_context> store;
    for (const auto& argument : arguments) store.push_back(std::string_view(argument));
    try {
        return fmt::vformat(translated, store);
    } catch (const fmt::format_error&) {
        return fmt::vformat(english, store);
    }
}

const char* localisation::translated(const char* words) {
    return ::dgettext(domain, words);
}

const char* localisation::translated(const char* one, const char* many, std::size_t count) {
    return ::dngettext(domain, one, many, count);
}

std::string localised(const char* words) {
    return localisation::translated(words);
}

std::string localised(std::string_view words) {
    // The empty text is where a catalogue keeps what it says of itself.
    return words.empty() ? std::string() : localised(std::string(words).c_str());
}

}  // namespace vesk
