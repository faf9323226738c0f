// Stylesheets laid out for the index.
#include <cstdint>

#include "VeskCore/Markdown/HTMLText.h"
#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Text.h"

using namespace vesk;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view css(reinterpret_cast<const char*>(data), size);
    const std::string text = CSSText::indexable(css);
    VESK_ENSURE(text.size() <= 3 * size);
    for (std::string_view line : split(text, '\n'))
        VESK_ENSURE(text.empty() || (!line.empty() && line.back() != ' '));
    return 0;
}
