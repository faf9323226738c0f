// Saved pages reduced to text: any bytes, as a page and as the beginning of one.
#include <cstdint>

#include "VeskCore/Markdown/HTMLText.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Text.h"

using namespace vesk;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::string text = HTMLText::decode(bytes);
    VESK_ENSURE(isValidUtf8(text));

    const HTMLExtract extract = HTMLText::extract(text, size % 2 == 0);
    VESK_ENSURE(isValidUtf8(extract.text));
    for (std::string_view line : split(extract.text, '\n')) {
        VESK_ENSURE(characterCount(line) <= HTMLText::maxLineCharacters);
        VESK_ENSURE(!line.ends_with(' '));
    }
    for (const HTMLExtract::Heading& heading : extract.headings) {
        VESK_ENSURE(heading.level >= 1 && heading.level <= 6);
        VESK_ENSURE(!heading.text.empty() && heading.text.find('\n') == std::string::npos);
    }
    VESK_ENSURE(isValidUtf8(HTMLText::extract(bytes, true).text));
    const std::string_view capped = HTMLText::capped(extract.text, size / 2);
    VESK_ENSURE(capped.size() <= size / 2 && isValidUtf8(capped));
    if (const auto title = HTMLText::title(bytes)) VESK_ENSURE(!title->empty());
    return 0;
}
