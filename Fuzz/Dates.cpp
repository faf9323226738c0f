// Dates as text, up to the first LF a pattern and behind it a date: what is read is written back as it was,
// and no pattern does harm.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "VeskCore/Support/DateFormat.h"
#include "VeskCore/Support/Text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const auto end = input.find('\n');
    if (end == std::string_view::npos || size > 500) return 0;
    const auto pattern = input.substr(0, end), text = input.substr(end + 1);
    static const vesk::DateFormat day("yyyy-MM-dd", "UTC"), time("yyyy-MM-dd'T'HH:mm:ss", "UTC");
    for (const auto* format : {&day, &time}) {
        auto date = format->parse(text);
        if (date && format->format(*date) != text) std::abort();
    }
    if (auto date = vesk::parseIso8601(text)) {
        if (vesk::parseIso8601(vesk::iso8601(*date)) !=
            std::chrono::floor<std::chrono::milliseconds>(*date)) {
            // An offset may lead out of the years that the form has digits for.
            if (*date >= vesk::distantPast() && *date < vesk::timeFromSecondsSince1970(253'402'300'800))
                std::abort();
        }
    }
    const vesk::DateFormat typed(pattern, "Europe/Berlin");
    if (auto date = typed.parse(text)) typed.format(*date);
    typed.parse(typed.format(vesk::timeFromSecondsSince1970(1'783'071'000)));
    return 0;
}
