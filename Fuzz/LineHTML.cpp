// Inline HTML of one line: the text is split by a code range at its backticks.
#include <cstdint>

#include "VeskCore/Markdown/HTMLEntities.h"
#include "VeskCore/Markdown/HTMLSpans.h"
#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

using namespace vesk;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = repairedUtf8({reinterpret_cast<const char*>(data), size});
    const std::u16string line = utf16(text);
    std::vector<TextRange> code;
    for (std::size_t at = 0; (at = line.find(u'`', at)) != std::u16string::npos;) {
        const std::size_t close = line.find(u'`', at + 1);
        if (close == std::u16string::npos) break;
        code.push_back({at, close + 1 - at});
        at = close + 1;
    }

    const auto scan = HTMLSpans::scan(line, line.size(), code);
    std::size_t end = 0;
    for (const TextRange& range : scan.mask) {
        VESK_ENSURE(range.location >= end && !range.empty() && range.end() <= line.size());
        VESK_ENSURE(line[range.location] == u'<' && line[range.end() - 1] == u'>');
        end = range.end();
    }
    VESK_ENSURE(scan.mask == HTMLSpans::markupRanges(line, code));
    std::size_t start = 0;
    for (const auto& span : scan.spans) {
        VESK_ENSURE(!span.range.empty() && span.range.end() <= line.size());
        VESK_ENSURE(span.range.location >= start);
        start = span.range.location;
    }
    VESK_ENSURE(isValidUtf8(HTMLEntities::decode(text, size % 2 == 0)));
    if (const auto style = HTMLSpans::parseStyleAttribute(text); style && style->color) {
        const auto color = style->textColor(CSSColor::darkEditorBackground);
        VESK_ENSURE(color && color->red >= 0 && color->red <= 1);
    }
    return 0;
}
