// JSON text: what can be read comes back the same from each style of writing.
#include "VeskCore/Support/Json.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using vesk::Json;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Json value;
    try {
        value = Json::parse({reinterpret_cast<const char*>(data), size});
    } catch (const vesk::JsonError&) {
        return 0;
    }
    const auto text = value.dump();
    for (auto style : {Json::Style::compact, Json::Style::pretty}) {
        for (bool escaped : {false, true}) {
            if (Json::parse(value.dump(style, escaped)).dump() != text) std::abort();
        }
    }
    const auto sorted = value.dump(Json::Style::sortedCompact);
    if (Json::parse(value.dump(Json::Style::sortedPretty)).dump(Json::Style::sortedCompact) != sorted)
        std::abort();
    return 0;
}
